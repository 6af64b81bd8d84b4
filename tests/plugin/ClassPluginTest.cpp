// What a program sees of the classes of a plug-in. It uses the shared library as the plug-in does.

#include "objects/CXFileException.h"
#include "objects/ClassClashes.h"
#include "objects/DerivedClasses.h"
#include "objects/LastFailure.h"
#include "objects/ThreadException.h"
#include "services/CXModule.h"
#include "tests/plugin/Probe.h"
#include "tests/support/Sanitized.h"
#include "text/XCA2W.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>
#include <dlfcn.h>
#include <filesystem>
#include <fstream>
#include <malloc.h>
#include <memory>
#include <string>
#include <vector>

namespace
{
const std::string kPlugin = std::string(TEVTOOLS_PLUGIN_DIR) + "/ProbePlugin.so";

struct Plugin : CXModule
{
    Plugin()
    {
        if (!Open(XDecodeUtf8(kPlugin)))
            throw std::runtime_error(XEncodeUtf8(GetError()).GetConstBuffer());
    }
};

bool IsLoaded()
{
    void* handle = dlopen(kPlugin.c_str(), RTLD_NOW | RTLD_NOLOAD);
    if (handle != nullptr)
        dlclose(handle);
    return handle != nullptr;
}

const CXRuntimeClass* FindProbe()
{
    return CXRuntimeClass::FindRuntimeClass("Probe");
}

/// Has the plug-in throw, and catches by the exact class or by the base.
template <class Exception, class Look>
void Catch(ProbeInterface& probe, ProbeInterface::What what, Look look)
{
    try
    {
        probe.Throw(what);
    }
    catch (Exception* exception)
    {
        look(*exception);
        ASSERT_EQ(XTakeThreadException(), exception);
        XSetThreadException(exception);
        exception->Delete();
        ASSERT_EQ(XTakeThreadException(), nullptr);
        return;
    }
    catch (...)
    {
        FAIL() << "not caught as the class that it is";
    }
    FAIL() << "nothing was thrown";
}

/// One plug-in's life: opened, its class made by name, thrown from, closed.
void OpenUseAndClose()
{
    ASSERT_EQ(FindProbe(), nullptr);
    {
        const Plugin plugin;
        const CXRuntimeClass* record = FindProbe();
        ASSERT_NE(record, nullptr);
        ASSERT_EQ(record->m_base, CXObject::GetThisRuntimeClassDescriptor());
        const std::vector<const CXRuntimeClass*> listed =
            XGetDerivedClasses(CXException::GetThisRuntimeClassDescriptor());
        ASSERT_EQ(std::count(listed.begin(), listed.end(), CXRuntimeClass::FindRuntimeClass("HiddenException")), 1);
        ASSERT_EQ(record->m_schema, 5u);

        const std::unique_ptr<CXObject> object(record->CreateObject());
        ASSERT_NE(object, nullptr);
        ASSERT_TRUE(object->IsKindOf(record));
        ASSERT_TRUE(object->IsKindOf(CXObject::GetThisRuntimeClassDescriptor()));
        auto* probe = dynamic_cast<ProbeInterface*>(object.get());
        ASSERT_NE(probe, nullptr);

        Catch<CXFileException>(*probe, ProbeInterface::LibraryException, [](CXFileException& e) {
            ASSERT_EQ(e.GetCause(), fileDiskFull);
            ASSERT_EQ(e.GetFileName(), L"from the plug-in");
        });
        Catch<CXException>(*probe, ProbeInterface::LibraryException, [](CXException& e) {
            ASSERT_TRUE(e.IsKindOf(CXFileException::GetThisRuntimeClassDescriptor()));
            ASSERT_NE(dynamic_cast<CXFileException*>(&e), nullptr);
        });
        Catch<CXException>(*probe, ProbeInterface::PluginException, [](CXException& e) {
            ASSERT_EQ(e.GetRuntimeClassDescriptor(), CXRuntimeClass::FindRuntimeClass("HiddenException"));
            ASSERT_TRUE(e.IsKindOf(CXException::GetThisRuntimeClassDescriptor()));
        });
        Catch<ProbeException>(*probe, ProbeInterface::HeaderException,
                              [](ProbeException& e) { ASSERT_EQ(e.m_number, 77); });
    }
    ASSERT_EQ(FindProbe(), nullptr);
    ASSERT_EQ(CXRuntimeClass::FindRuntimeClass("HiddenException"), nullptr);
    ASSERT_FALSE(IsLoaded());
}
} // namespace

TEST(ClassPlugin, ClassesAreLoadedAndUnloadedThousandsOfTimes)
{
    const auto run = [](int rounds) {
        for (int i = 0; i < rounds && !testing::Test::HasFailure(); ++i)
            OpenUseAndClose();
    };
    run(100);
    const size_t before = mallinfo2().uordblks;
    constexpr int kRounds = tev::test::kIsSanitized ? 1000 : 10000;
    run(kRounds);
    // The dynamic linker may keep a little; the smallest block a round would be 32 bytes for each.
    EXPECT_LT(mallinfo2().uordblks, before + 4096);
}

TEST(ClassPlugin, AnEarlierClassOfTheNameComesBack)
{
    const CXRuntimeClass hosts = {"Probe", sizeof(CXObject), 1, CXObject::GetThisRuntimeClassDescriptor(), nullptr};
    const CXRuntimeClass later = hosts;
    {
        const XClassDeclaration declaration(&hosts);
        {
            const Plugin plugin;
            EXPECT_NE(FindProbe(), &hosts);
            EXPECT_EQ(FindProbe()->m_schema, 5u);
            const std::vector<XClassClash> clashes = XGetClassClashes();
            ASSERT_EQ(clashes.size(), 1u);
            EXPECT_EQ(clashes[0].m_name, "Probe");
            EXPECT_GE(clashes[0].m_place.Find(L"ProbePlugin.cpp:36 ("), 0);
            EXPECT_GE(clashes[0].m_place.Find(L"/ProbePlugin.so)"), 0);
        }
        EXPECT_EQ(FindProbe(), &hosts);
        {
            auto plugin = std::make_unique<Plugin>();
            const XClassDeclaration declaredLater(&later);
            plugin.reset();
            EXPECT_EQ(FindProbe(), &later) << "a closed plug-in takes out its own record only";
        }
        EXPECT_EQ(FindProbe(), &hosts);
    }
    EXPECT_EQ(FindProbe(), nullptr);
}

TEST(ClassPlugin, AProgramMayEndWithThePluginOpen)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    EXPECT_EXIT(
        {
            [[maybe_unused]] static const auto* const plugin = new Plugin;
            XSetThreadException(new CXFileException(fileNotFound));
            std::exit(FindProbe() == nullptr);
        },
        testing::ExitedWithCode(0), "^$");
}

TEST(Module, IsOpenAsLongAsThereIsACopy)
{
    EXPECT_STREQ(CXModule::GetExtension(), L".so");
    CXModule kept;
    {
        Plugin plugin;
        EXPECT_EQ(plugin.GetPath(), XDecodeUtf8(kPlugin));
        const auto version = plugin.Find<int()>("ProbeVersion");
        ASSERT_NE(version, nullptr);
        EXPECT_EQ(version(), 3);
        EXPECT_EQ(plugin.Find<int()>("NoVersion"), nullptr);
        EXPECT_EQ(plugin.Find<int()>(nullptr), nullptr);
        kept = plugin;
        ASSERT_TRUE(plugin.Open(plugin.GetPath())) << "its own path";
    }
    EXPECT_NE(FindProbe(), nullptr);
    kept.Close();
    EXPECT_FALSE(kept.IsOpen());
    EXPECT_EQ(kept.Find<int()>("ProbeVersion"), nullptr);
    EXPECT_EQ(FindProbe(), nullptr);
    EXPECT_FALSE(IsLoaded());
}

TEST(Module, SaysWhyItCannotBeOpened)
{
    const std::string folder = testing::TempDir() + "tevtools-modules";
    std::filesystem::create_directory(folder);
    std::ofstream(folder + "/text.so") << "no module";
    const CXTString<wchar_t> wideFolder = XDecodeUtf8(folder);
    Plugin module;
    const std::tuple<CXTString<wchar_t>, XFailureKind, unsigned> rows[] = {
        {wideFolder + L"/none.so", XFailureKind::kSystem, 2},
        {wideFolder + L"/text.so", XFailureKind::kData, 0},
        {wideFolder, XFailureKind::kData, 0},
        {L"libc.so.6", XFailureKind::kSystem, 2}, // of the current folder
        {L"", XFailureKind::kSystem, 2},
        {wideFolder + L"/\xD800.so", XFailureKind::kSystem, 2}};
    for (const auto& [path, kind, systemError] : rows)
    {
        EXPECT_FALSE(module.Open(path));
        EXPECT_FALSE(module.IsOpen());
        EXPECT_GT(module.GetError().GetLength(), path.GetLength());
        EXPECT_GE((L' ' + module.GetError()).Find(path.IsEmpty() ? L" " : path.GetConstBuffer(), 0, false), 0);
        const XFailure failure = XLastFailure();
        EXPECT_STREQ(failure.GetOperation(), "CXModule::Open");
        EXPECT_EQ(failure.GetKind(), kind) << XEncodeUtf8(module.GetError()).GetConstBuffer();
        EXPECT_EQ(failure.GetSystemError(), systemError) << XEncodeUtf8(module.GetError()).GetConstBuffer();
        EXPECT_STREQ(failure.GetPath(), path);
    }
    std::filesystem::remove_all(folder);
}
