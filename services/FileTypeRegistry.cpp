#include "services/FileTypeRegistry.h"

#include "services/FileTypes.h"
#include "text/TextView.h"

#include <algorithm>
#include <vector>

namespace
{
using Text = CXTString<wchar_t>;
using TextArray = CXArray<Text, const Text&>;
using tev::FileTypes;

bool Any(const CFileExt&) noexcept
{
    return true;
}

/// A number from the record of a name's default type, 0 when there is none.
unsigned NumberOfDefault(const Text& name, unsigned (CFileExt::*number)() const noexcept)
{
    unsigned result = 0;
    FileTypes::Get().FindForName(name, Any, [&](const CFileExt& type) { result = (type.*number)(); });
    return result;
}

unsigned NumberOfClass(unsigned fileClass, unsigned (CFileExt::*number)() const noexcept)
{
    unsigned result = 0;
    FileTypes::Get().Find(fileClass, [&](const CFileExt& type) { result = (type.*number)(); });
    return result;
}

unsigned Deliver(const std::vector<Text>& found, bool withDot, TextArray& extensions)
{
    extensions.RemoveAll(false);
    for (const Text& extension : found)
    {
        if (!withDot)
            extensions.Add(tev::WithoutDots(extension), -1);
        else
            extensions.Add(extension[0] == L'.' ? extension : L'.' + extension, -1);
    }
    return static_cast<unsigned>(found.size());
}
} // namespace

Text fileGetExtension(const Text& path)
{
    const std::wstring_view extension = tev::ExtensionOf(tev::ViewOf(path));
    return Text(extension.data(), static_cast<int>(extension.size()));
}

void fileRegisterFile(CFileExt& type)
{
    FileTypes::MarkSavableScene(type);
    FileTypes::Get().Register(type);
}

void fileUnregisterFile(unsigned int fileClass, unsigned int mode)
{
    FileTypes* types = FileTypes::GetIfThere();
    if (types != nullptr && fileClass != 0)
        types->Unregister(fileClass, mode);
}

CFileExt* fileGetRegisteredFiles(unsigned int& count, unsigned int filter)
{
    std::vector<CFileExt> types = FileTypes::Get().Select(filter);
    std::stable_sort(types.begin(), types.end(), [](const CFileExt& a, const CFileExt& b) {
        return a.GetDescription().CompareNoCase(b.GetDescription()) < 0;
    });
    auto* result = new CFileExt[types.size()];
    std::move(types.begin(), types.end(), result);
    count = static_cast<unsigned>(types.size());
    return result;
}

void fileFreeRegisteredFiles(CFileExt* types, unsigned int)
{
    delete[] types;
}

bool fileGetExtensionInfo(unsigned int fileClass, CFileExt& type)
{
    return FileTypes::Get().Find(fileClass, [&](const CFileExt& found) { type = found; });
}

unsigned int fileGetProperties(unsigned int fileClass)
{
    return NumberOfClass(fileClass, &CFileExt::GetProperties);
}

unsigned int fileGetKindOf(unsigned int fileClass)
{
    return NumberOfClass(fileClass, &CFileExt::GetKindOf);
}

bool fileGetFileExt(const Text& name, CFileExt& type)
{
    return FileTypes::Get().FindForName(name, Any, [&](const CFileExt& found) { type = found; });
}

unsigned int fileGetClass(const Text& name)
{
    return NumberOfDefault(name, &CFileExt::GetClass);
}

unsigned int fileGetLoader(const Text& name)
{
    return NumberOfDefault(name, &CFileExt::GetLoader);
}

unsigned int fileGetSaver(const Text& name)
{
    return NumberOfDefault(name, &CFileExt::GetSaver);
}

unsigned int fileGetProperties(const Text& name)
{
    return NumberOfDefault(name, &CFileExt::GetProperties);
}

unsigned int fileGetKindOf(const Text& name)
{
    return NumberOfDefault(name, &CFileExt::GetKindOf);
}

unsigned int fileFindParser(const Text& name, unsigned int kindMask, unsigned int propertyMask)
{
    unsigned fileClass = 0;
    FileTypes::Get().FindForName(
        name,
        [=](const CFileExt& type) {
            return tev::IsOfKind(type.GetProperties(), kindMask) &&
                   (type.GetProperties() & propertyMask & 0xFFFF) == propertyMask;
        },
        [&](const CFileExt& type) { fileClass = type.GetClass(); });
    return fileClass;
}

unsigned int fileGetExtensionArray(unsigned int fileClass, TextArray& extensions, bool withDot)
{
    CFileExt type;
    fileGetExtensionInfo(fileClass, type);
    return Deliver(tev::ExtensionsOf(type), withDot, extensions);
}

unsigned int fileGetExtensionArrayByProperty(unsigned int properties, TextArray& extensions, bool withDot,
                                             bool allTypes)
{
    return Deliver(FileTypes::Get().ExtensionsOfTypes(properties, allTypes), withDot, extensions);
}

Text fileGetMainExtension(unsigned int fileClass)
{
    TextArray extensions;
    return fileGetExtensionArray(fileClass, extensions, true) == 0 ? Text() : extensions[0];
}

Text fileGetMainExtension(const Text& name)
{
    return fileGetMainExtension(fileGetClass(name));
}
