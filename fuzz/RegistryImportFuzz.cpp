// Arbitrary registry texts. The first byte chooses their encoding. What was imported is exported, and importing that text
// gives the same export.

#include "files/CXMemFile.h"
#include "settings/RegistryText.h"
#include "settings/engine/SettingsStore.h"
#include "tests/support/TestRegistry.h"
#include "text/TextEncoding.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{
using namespace tev;

constexpr SettingsRoot kRoots[] = {kClassesRoot, kCurrentUser, kLocalMachine, kUsers, kCurrentConfig, kDynData};
constexpr const wchar_t* kRootNames[] = {L"HKEY_CLASSES_ROOT", L"HKEY_CURRENT_USER",   L"HKEY_LOCAL_MACHINE",
                                         L"HKEY_USERS",        L"HKEY_CURRENT_CONFIG", L"HKEY_DYN_DATA"};

void Check(bool holds)
{
    if (!holds)
        std::abort();
}

void Clear(SettingsRoot root)
{
    std::vector<SettingsTreeKey> tree;
    Check(ReadSettingsTree(RootKey(root), L"", tree) == kSettingsDone);
    std::vector<SettingsChange> changes;
    for (const SettingsTreeKey& key : tree)
    {
        if (!key.path.empty() && key.path.find(L'\\') == key.path.npos)
            changes.push_back({SettingsChange::Kind::DeleteKey, root, key.path, {}, {}});
        for (const SettingsTreeValue& value : key.values)
        {
            if (key.path.empty())
                changes.push_back({SettingsChange::Kind::DeleteValue, root, {}, value.name, {}});
        }
    }
    std::size_t failed = 0;
    Check(ChangeSettings(changes, failed) == kSettingsDone);
}

std::string Export(const wchar_t* root)
{
    CXMemFile file;
    int systemError = 0;
    Check(XExportRegistry(root, file, xEncodingUtf16, systemError));
    std::string bytes(static_cast<std::size_t>(file.GetLength()), '\0');
    file.SeekToBegin();
    file.Read(bytes.data(), static_cast<unsigned>(bytes.size()));
    return bytes;
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    static const tev::test::TestRegistry registry;
    if (size == 0)
        return 0;
    CXTString<wchar_t> text;
    Check(XDecodeText(data + 1, size - 1, data[0] % 2 == 0 ? xEncodingUtf8 : xEncodingUtf16, text));
    XRegistryImport result;
    if (!XImportRegistry(text, result))
    {
        Check(result.m_fault != XRegistryFault::None && result.m_systemError != 0);
        return 0;
    }
    for (std::size_t i = 0; i < std::size(kRoots); ++i)
    {
        const std::string exported = Export(kRootNames[i]);
        Clear(kRoots[i]);
        Check(XDecodeText(exported.data(), exported.size(), xEncodingUtf16, text));
        Check(XImportRegistry(text, result));
        Check(Export(kRootNames[i]) == exported);
        Clear(kRoots[i]);
    }
    return 0;
}
