#include "platform/EnvironmentText.h"

#include "platform/PathNames.h"

#include <cstdlib>

std::wstring tev::platform::ExpandEnvironmentText(const wchar_t* text)
{
    const std::wstring source = text;
    std::wstring result;
    std::string name;
    std::size_t at = 0;
    for (std::size_t start = source.find(L'%'); start != source.npos; start = source.find(L'%', at))
    {
        const std::size_t end = source.find(L'%', start + 1);
        if (end == source.npos)
            break;
        result.append(source, at, start - at);
        const std::wstring variable = source.substr(start + 1, end - start - 1);
        const bool isName = !variable.empty() && WidePathToSystem(variable.c_str(), name);
        if (const char* const value = isName ? std::getenv(name.c_str()) : nullptr)
        {
            result += SystemPathToWide(value);
            at = end + 1;
        }
        else // the second sign may begin a name
        {
            result.append(source, start, end - start);
            at = end;
        }
    }
    return result.append(source, at);
}
