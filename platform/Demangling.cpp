#include "platform/Demangling.h"

#include <cstdlib>
#include <typeinfo>

#include <cxxabi.h>

namespace tev::platform
{
std::string Demangled(const char* name)
{
    int status = 0;
    char* const text = abi::__cxa_demangle(name, nullptr, nullptr, &status);
    std::string result = status == 0 && text != nullptr ? text : name;
    std::free(text);
    return result;
}

const char* CurrentExceptionType() noexcept
{
    const std::type_info* const type = abi::__cxa_current_exception_type();
    return type == nullptr ? nullptr : type->name();
}
} // namespace tev::platform
