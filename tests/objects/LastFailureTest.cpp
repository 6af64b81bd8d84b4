#include "objects/LastFailure.h"

#include "arrays/CBitArray.h"
#include "arrays/CElementArray.h"
#include "crash/XMinidump.h"
#include "files/CStdioFileEx.h"
#include "files/CXArchive.h"
#include "files/CXMemFile.h"
#include "maps/CHashMap.h"
#include "maps/CHashTable.h"
#include "objects/FailureNote.h"
#include "services/CWatchFolder.h"
#include "services/LogFile.h"
#include "services/Paths.h"
#include "settings/CCustomData.h"
#include "settings/CRegUtil.h"
#include "settings/PreferenceFile.h"
#include "settings/RegistryText.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/FailingFileSystem.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/OnThreads.h"
#include "tests/support/RawZip.h"
#include "tests/support/TestRegistry.h"
#include "text/CSwitchLocale.h"
#include "text/InvalidParameter.h"
#include "text/TextLoss.h"
#include "text/XCA2W.h"
#include "threads/CCustomThread.h"
#include "threads/CXThread.h"
#include "threads/ParallelFor.h"
#include "values/CXTime.h"
#include "zip/CMiniZip.h"
#include "zip/CZip.h"

#include <sys/stat.h>
#include <unistd.h>

namespace
{
using namespace tev::test;

using Kind = XFailureKind;
using Text = CXTString<wchar_t>;

constexpr unsigned kAnyError = ~0u;

class LastFailure : public testing::Test
{
protected:
    struct Case
    {
        const char* operation;
        Kind kind;
        unsigned systemError;
        std::wstring path; ///< the record's, "" for none
        std::function<bool()> fails;
    };

    void Expect(const std::vector<Case>& cases)
    {
        for (const Case& c : cases)
        {
            SCOPED_TRACE(c.operation);
            XClearLastFailure();
            EXPECT_TRUE(c.fails());
            const XFailure failure = XLastFailure();
            EXPECT_STREQ(failure.GetOperation(), c.operation);
            EXPECT_EQ(failure.GetKind(), c.kind);
            EXPECT_TRUE(c.systemError == kAnyError || failure.GetSystemError() == c.systemError)
                << failure.GetSystemError();
            EXPECT_EQ(std::wstring(failure.GetPath()), c.path);
            const Text english = failure.GetText(XLanguage::English);
            const Text french = failure.GetText(XLanguage::French);
            EXPECT_NE(english, french);
            for (const Text& text : {english, french})
            {
                EXPECT_GE(text.Find(Text(c.operation)), 0) << Text(text).GetConstBuffer();
                EXPECT_TRUE(c.path.empty() || text.Find(c.path.c_str()) >= 0);
                EXPECT_LT(text.Find(L"%"), 0);
            }
            Text without = english; // the path, or ", " and the path in the details
            without.Replace((L", " + c.path).c_str(), L"");
            without.Replace(c.path.c_str(), L"it");
            EXPECT_TRUE(c.path.empty() || failure.GetTextWithoutPath() == without) << without;
        }
    }

    TestRegistry m_registry;
    const TempFolder m_folder;
    const std::wstring m_missing = m_folder.WidePath("missing");
    const std::wstring m_text = m_folder.WriteFile("text", "no archive, no dump, no store");
    const Text m_missingText = m_missing.c_str();
    const Text m_textText = m_text.c_str();
    CXTime m_date{0};
    CCustomData m_store;
};

/// Makes the call where there is no memory.
template <class CALL>
void WithoutMemory(CALL call)
{
    tev::test::FailingAllocations(1, true).Run(call);
}

template <class T>
bool IsAllOnes(T value)
{
    return value == static_cast<T>(-1);
}

TEST_F(LastFailure, OfFilesSaysWhy)
{
    const std::wstring folder = m_folder.WidePath();
    const std::wstring tooLong(260, L'x');
    CXFile file(false);
    CXMemFile memory(0, false);
    char byte = 0;
    Expect({
        {"CXFile::Open", Kind::kSystem, 2, m_missing, [&] { return !file.Open(m_missing.c_str(), CXFile::modeRead); }},
        {"CXFile::Open", Kind::kSystem, 5, folder, [&] { return !file.Open(folder.c_str(), CXFile::modeRead); }},
        {"CXFile::Open", Kind::kArgument, 0, tooLong, [&] { return !file.Open(tooLong.c_str(), CXFile::modeRead); }},
        {"CXFile::Open", Kind::kSystem, 2, m_missing,
         [&] { return !CStdioFileEx(false).Open(m_missing.c_str(), CXFile::modeRead | CXFile::typeText); }},
        {"CXFile::Seek", Kind::kSystem, 6, L"", [] { return IsAllOnes(CXFile(false).Seek(0, CXFile::begin)); }},
        {"CXFile::GetPosition", Kind::kSystem, 6, L"", [] { return IsAllOnes(CXFile(false).GetPosition()); }},
        {"CXFile::GetLength", Kind::kSystem, 6, L"", [] { return IsAllOnes(CXFile(false).GetLength()); }},
        {"CXFile::SetLength", Kind::kSystem, 6, L"", [] { return !CXFile(false).SetLength(1); }},
        {"CXFile::Read", Kind::kArgument, 0, L"", [&] { return CXFile(false).Read(&byte, 1) == 0; }},
        {"CXFile::Write", Kind::kSystem, 6, L"", [&] { return CXFile(false).Write(&byte, 1), true; }},
        {"CXMemFile::Open", Kind::kArgument, 0, m_missing, [&] { return !memory.Open(m_missing.c_str(), 0); }},
        {"CXMemFile::Seek", Kind::kArgument, 0, L"", [&] { return memory.Seek(1, CXFile::end) == 0; }},
        {"CXMemFile::SetLength", Kind::kMemory, 8, L"", [&] { return !memory.SetLength(1ull << 32); }},
        {"CXFile::HandleFromDescriptor", Kind::kArgument, 0, L"",
         [] { return CXFile::HandleFromDescriptor(-1) == nullptr; }},
        {"CXMemFile::Read", Kind::kArgument, 0, L"", [&] { return memory.Read(nullptr, 1) == 0; }},
        {"CXMemFile::Write", Kind::kArgument, 0, L"", [&] { return memory.Write(nullptr, 1), true; }},
        {"CXMemFile::Attach", Kind::kArgument, 0, L"", [&] { return memory.Attach(nullptr, 1, false), true; }},
    });
}

TEST_F(LastFailure, OfTextsAndTimesSaysWhy)
{
    constexpr auto kNoEncoding = static_cast<xStringEncoding>(7777);
    constexpr const wchar_t* kLone = L"\xD800";
    const wchar_t* const none = nullptr;
    const CXTime far(1ll << 62);
    std::tm fields;
    Text text;
    CXTString<char> bytes;
    XTextLoss loss;
    char two[2];
    const auto argument = [](const char* operation, std::function<bool()> fails, const wchar_t* path = L"") {
        return Case{operation, Kind::kArgument, 0, path, std::move(fails)};
    };
    Expect({
        argument("XDecodeText", [&] { return !XDecodeText(nullptr, 1, xEncodingUtf8, text); }),
        argument("XDecodeText", [&] { return !XDecodeText("a", 1, kNoEncoding, text); }),
        argument("XDecodeText", [&] { return !XDecodeText("a", 1, kNoEncoding, text, loss); }),
        argument("XDecodeText", [&] { return !XDecodeText(nullptr, 1, xEncodingUtf8, text, loss); }),
        argument("XEncodeText", [&] { return !XEncodeText(L"a", 1, kNoEncoding, bytes); }),
        argument("XEncodeText", [&] { return !XEncodeText(L"a", 1, kNoEncoding, bytes, loss); }),
        argument("XEncodeText", [&] { return !XEncodeText(nullptr, 1, xEncodingUtf8, bytes, loss); }),
        argument(
            "XEncodePath", [&] { return !XEncodePath(kLone, bytes); }, kLone),
        argument("XCA2W", [] { return !XCA2W("a", kNoEncoding).IsValid(); }),
        argument("XCW2A", [] { return !XCW2A(L"a", kNoEncoding).IsValid(); }),
        argument("XCA2A", [] { return !XCA2A(nullptr).IsValid(); }),
        argument("XCW2W", [] { return !XCW2W(nullptr).IsValid(); }),
        argument("XStrCopy", [&] { return XStrCopy(two, sizeof(two), "abc") == ERANGE; }),
        argument("CXTString::Copy", [&] { return text.Copy(nullptr, 1), true; }),
        argument("CXTString::SetAt", [&] { return text.SetAt(9, L'a'), true; }),
        argument("CXTString::GetBufferSetLength", [&] { return text.GetBufferSetLength(-1) == nullptr; }),
        argument("CXTString::ReleaseBuffer", [&] { return text.ReleaseBuffer(1 << 20), true; }),
        argument("CXTString::Format", [&] { return text.FormatV(L"%k", {}), text.IsEmpty(); }),
        argument("CXTString::Format", [&] { return text.Format(none), true; }),
        argument("CXTString::AppendFormat", [&] { return text.AppendFormat(none), true; }),
        argument("CXTString::ScanS", [&] { return text.ScanS(none) == -1 && text.ScanS(1, L"%d", two) == -1; }),
        argument("CSwitchLocale::CSwitchLocale", [] { return CSwitchLocale(LC_ALL, L"no_SUCH"), true; }),
        argument("CXTime::GetUTCTm", [&] { return !far.GetUTCTm(&fields); }),
        argument("CXTime::GetLocalTm", [&] { return !far.GetLocalTm(&fields); }),
        argument("CXTime::GetLocalTm", [&] { return far.GetHour() == -1; }),
        argument("CXTime::Format", [&] { return far.Format(L"%Y") == L"%Y"; }),
        argument("CXTime::FormatGmt", [&] { return m_date.FormatGmt(std::wstring(256, L'x').c_str()).IsEmpty(); }),
    });
    const auto reason = [] { return XLastFailure().GetText(XLanguage::English); };
    EXPECT_FALSE(XDecodeText("a", 1, kNoEncoding, text));
    EXPECT_EQ(reason(), L"The encoding is not known on this system. (XDecodeText)");
    EXPECT_FALSE(XEncodeText(L"a", 1, kNoEncoding, bytes, loss));
    EXPECT_EQ(reason(), L"The encoding is not known on this system. (XEncodeText)");
}

TEST_F(LastFailure, OfContainersSaysWhy)
{
    const CElementArray kindless;
    CElementArray array;
    using Map = CHashMap<int, int, int>;
    using Table = CHashTable<int>;
    const auto lacksMemory = [](const char* operation, std::function<bool()> fails) {
        return Case{operation, Kind::kMemory, 8, L"", [fails = std::move(fails)] {
                        bool isAsExpected = false;
                        WithoutMemory([&] { isAsExpected = fails(); });
                        return isAsExpected;
                    }};
    };
    Map map;
    Table table;
    map.Insert(1, 1);
    Map moved;
    Table movedTable;
    const Map emptied(std::move(moved));
    const Table emptiedTable(std::move(movedTable));
    Expect({
        {"CElementArray::Append", Kind::kArgument, 0, L"", [&] { return array.Append(kindless) == -1; }},
        {"CElementArray::Copy", Kind::kArgument, 0, L"", [&] { return !array.Copy(kindless); }},
        {"CElementArray::Copy", Kind::kArgument, 0, L"", [&] { return !array.Copy(0, 0, kindless); }},
        {"CElementArray::InsertAt", Kind::kArgument, 0, L"", [&] { return !array.InsertAt(0, &kindless); }},
        {"CElementArray::Reorder", Kind::kArgument, 0, L"", [&] { return !array.Reorder(nullptr, 0, false); }},
        {"CBitArray::SetBuffer", Kind::kArgument, 0, L"",
         [] { return !CBitArray().SetBuffer(new unsigned[1]{}, 64, 1); }},
        {"CHashMap::InitHashTable", Kind::kArgument, 0, L"", [&] { return !map.InitHashTable(~0u); }},
        lacksMemory("CHashMap::InitHashTable", [] { return !Map().InitHashTable(100); }),
        lacksMemory("CHashMap::CHashMap", [&] { return Map(map).IsEmpty(); }),
        lacksMemory("CHashTable::CHashTable", [] { return Table(100).IsEmpty(); }),
        lacksMemory("CHashMap::Minimize", [&] { return !map.Minimize(); }),
        lacksMemory("CHashMap::Insert", [&] { return moved.Insert(1, 1) == 0; }),
        lacksMemory("CHashTable::Insert", [&] { return movedTable.Insert(1) == 0; }),
    });
}

TEST_F(LastFailure, OfServicesAndThreadsSaysWhy)
{
    const auto body = [](void*) { return true; };
    CXThread idle(body, nullptr);
    const std::wstring log = m_folder.WidePath("none/log.txt");
    Expect({
        {"CXRuntimeClass::CreateObject", Kind::kArgument, 0, L"",
         [] { return CXException::GetThisRuntimeClassDescriptor()->CreateObject() == nullptr; }},
        {"CXRuntimeClass::DeclareRuntimeClass", Kind::kArgument, 0, L"",
         [] { return !CXRuntimeClass::DeclareRuntimeClass(nullptr); }},
        {"CXThread::BeginThread", Kind::kArgument, 0, L"",
         [] {
             return CXThread::BeginThread(CXException::GetThisRuntimeClassDescriptor(), nullptr, xThreadPriorityNormal,
                                          0, 0) == nullptr &&
                    XLastFailure() &&
                    CXThread::BeginThread(static_cast<CXThread*>(nullptr), xThreadPriorityNormal, 0, 0) == nullptr;
         }},
        {"CXThread::SetThreadPriority", Kind::kArgument, 0, L"",
         [&] { return !idle.SetThreadPriority(xThreadPriorityLowest); }},
        {"CXThread::WaitForEnd", Kind::kArgument, 0, L"", [&] { return !idle.WaitForEnd(0); }},
        {"CXThread::WaitForEnd", Kind::kSystem, 1460, L"",
         [&] {
             const std::unique_ptr<CXThread> waiting(
                 CXThread::BeginThread(body, nullptr, xThreadPriorityNormal,
                                       CXThread::kBeginSuspended | CXThread::kBeginWithoutAutoDelete, 0));
             return !waiting->WaitForEnd(0);
         }},
        {"CCustomThread::EndThreads", Kind::kSystem, 1460, L"",
         [] {
             bool isOver = true;
             {
                 const CCustomThread worker;
                 isOver = CCustomThread::EndThreads(0);
             }
             return !isOver && CCustomThread::EndThreads(0);
         }},
        {"XParallelFor", Kind::kCancelled, 0, L"", [] { return !XParallelFor(9, [](unsigned i) { return i != 4; }); }},
        {"CXThread::ResumeThread", Kind::kArgument, 0, L"", [&] { return !idle.ResumeThread(); }},
        {"CXThread::SuspendThread", Kind::kArgument, 0, L"", [&] { return !idle.SuspendThread(); }},
        {"fileGetLastWriteDate", Kind::kSystem, 2, m_missing,
         [&] { return !fileGetLastWriteDate(m_missingText, m_date); }},
        {"fileGetCreationDate", Kind::kSystem, 2, m_missing,
         [&] { return !fileGetCreationDate(m_missingText, m_date); }},
        {"fileSetLastWriteDate", Kind::kSystem, 2, m_missing,
         [&] { return !fileSetLastWriteDate(m_missingText, m_date); }},
        {"fileSetCreationDate", Kind::kSystem, kAnyError, m_text,
         [&] { return !fileSetCreationDate(m_textText, m_date); }},
        {"SetLogFile", Kind::kSystem, 2, log, [&] { return !SetLogFile(log.c_str(), xLogCreate, 0xFF); }},
        {"SetLogFile", Kind::kArgument, 0, log, [&] { return !SetLogFile(log.c_str(), LogFileMode(7), 0xFF); }},
        {"CWatchFolder::OnDeviceChange", Kind::kArgument, 0, L"",
         [] { return CWatchFolder().OnDeviceChange(CWatchFolder::kVolumeArrived, 0) == 0; }},
        {"CWatchFolder::AddRefreshNotification", Kind::kSystem, 3, m_missing,
         [&] { return !CWatchFolder().AddRefreshNotification(m_missingText, false, 1); }},
    });
}

TEST_F(LastFailure, OfSettingsSaysWhy)
{
    const std::wstring noName = m_folder.WidePath() + L"/";
    const std::wstring lost = m_folder.WidePath("none/prefs");
    const Text lostText = lost.c_str();
    const Text prefs = m_folder.WidePath("prefs").c_str();
    ASSERT_TRUE(m_store.SetInt(1, 1) && m_store.SetInt(2, 2) && m_store.SaveToPrefs(prefs, 1, 1));
    std::vector<XPreferenceRecord> records;
    CRegUtil registry(CRegUtil::kReadWrite);
    CXMemFile file;
    XRegistryImport imported;
    int error = 0;
    const auto change = [](CCustomData&) {};
    Expect({
        {"CCustomData::CopyID", Kind::kArgument, 0, L"", [&] { return !m_store.CopyID(nullptr, 1); }},
        {"CCustomData::SetArray", Kind::kMemory, 8, L"", [&] { return !m_store.SetArray(3, "", ~0u, 2); }},
        {"CCustomData::ChangeID", Kind::kArgument, 0, L"", [&] { return !m_store.ChangeID(1, 2); }},
        {"CCustomData::SetData", Kind::kArgument, 0, L"", [&] { return !CCustomData().SetData(nullptr, 4); }},
        {"CCustomData::SetData", Kind::kData, 0, L"", [&] { return !CCustomData().SetData("damaged", 7); }},
        {"CCustomData::Attach", Kind::kData, 0, L"",
         [&] { return !CCustomData().Attach(std::memset(CCustomData::Alloc(7), 7, 7), 7); }},
        {"CCustomData::SerializeFromData", Kind::kData, 0, L"",
         [&] { return !CCustomData().SerializeFromData("no store", 8); }},
        {"CCustomData::SaveToPrefs", Kind::kArgument, 0, noName,
         [&] { return !m_store.SaveToPrefs(noName.c_str(), 1, 1); }},
        {"CCustomData::SaveToPrefs", Kind::kSystem, 2, lost, [&] { return !m_store.SaveToPrefs(lostText, 1, 1); }},
        {"CCustomData::SaveToPrefs", Kind::kSystem, 23, prefs.GetConstBuffer(),
         [&] {
             tev::test::FailingFileSystem disk;
             disk.FailEach("get length", EIO);
             return !m_store.SaveToPrefs(prefs, 1, 1);
         }},
        {"XUpdatePreferences", Kind::kSystem, 112, prefs.GetConstBuffer(),
         [&] {
             tev::test::FailingFileSystem disk;
             disk.AtStep("get length", [&] { disk.FailEach("resolve links", ENOSPC); });
             return !XUpdatePreferences(prefs, 1, 1, change);
         }},
        {"CCustomData::LoadFromPrefs", Kind::kSystem, 2, m_missing,
         [&] { return !CCustomData().LoadFromPrefs(m_missingText, 1, 1, false); }},
        {"CCustomData::LoadFromPrefs", Kind::kData, 0, m_text,
         [&] { return !CCustomData().LoadFromPrefs(m_textText, 1, 1, false); }},
        {"CCustomData::LoadFromPrefs", Kind::kData, 0, prefs.GetConstBuffer(),
         [&] { return !CCustomData().LoadFromPrefs(prefs, 7, 7, false); }},
        {"XListPreferences", Kind::kData, 0, m_text, [&] { return !XListPreferences(m_textText, records); }},
        {"XRemovePreference", Kind::kData, 0, m_text, [&] { return !XRemovePreference(m_textText, 1, 1); }},
        {"XRemovePreference", Kind::kData, 0, prefs.GetConstBuffer(), [&] { return !XRemovePreference(prefs, 7, 7); }},
        {"XUpdatePreferences", Kind::kData, 0, m_text, [&] { return !XUpdatePreferences(m_textText, 1, 1, change); }},
        {"XUpdatePreferences", Kind::kSystem, 2, lost, [&] { return !XUpdatePreferences(lostText, 1, 1, change); }},
        {"CRegUtil::SetPath", Kind::kSystem, 2, L"No/Such", [&] { return !registry.SetPath(L"No/Such", false); }},
        {"CRegUtil::OpenBase", Kind::kSystem, 2, L"No/Such", [&] { return !registry.OpenBase(false); }},
        {"CRegUtil::WriteKeyInt", Kind::kSystem, 2, L"No/Such", [&] { return !registry.WriteKeyInt(L"a", 1); }},
        {"CRegUtil::DeleteKey", Kind::kArgument, 87, L"No/Such", [&] { return !registry.DeleteKey(nullptr, false); }},
        {"XImportRegistry", Kind::kData, 13, L"", [&] { return !XImportRegistry(L"no registry", imported); }},
        {"XExportRegistry", Kind::kSystem, 2, L"No/Such",
         [&] { return !XExportRegistry(L"No/Such", file, xEncodingUtf8, error); }},
    });
}

TEST_F(LastFailure, OfTheRegistryEachOperationSaysWhy)
{
    m_registry.m_folder.WriteFile("user.db", "no registry");
    CRegUtil registry(L"Viewer", CRegUtil::kAllAccess);
    ASSERT_FALSE(registry.SetPath(L"Some", false));
    const wchar_t* components[] = {L"Some"};
    wchar_t name[16];
    unsigned long number = 0;
    std::vector<unsigned char> data;
    const std::pair<const char*, std::function<bool()>> operations[] = {
        {"SetPath", [&] { return registry.SetPath(L"Some", true); }},
        {"SetPath", [&] { return registry.SetPath(components, 1, nullptr, false); }},
        {"SetPath", [&] { return registry.SetPath(); }},
        {"SetRelPath", [&] { return registry.SetRelPath(L"Other", false); }},
        {"OpenBase", [&] { return registry.OpenBase(true); }},
        {"GetKeyString", [&] { return !registry.GetKeyString(L"a", false).IsEmpty(); }},
        {"WriteKeyString", [&] { return registry.WriteKeyString(L"a", L"b"); }},
        {"WriteKeyInt", [&] { return registry.WriteKeyInt(L"a", 1); }},
        {"GetKeyInt", [&] { return registry.GetKeyInt(L"a", number); }},
        {"WriteKeyBin", [&] { return registry.WriteKeyBin(L"a", "b", 1); }},
        {"GetKeyBin", [&] { return registry.GetKeyBin(L"a", nullptr, number); }},
        {"WriteRegNoneKey", [&] { return registry.WriteRegNoneKey(L"a"); }},
        {"KeyExists", [&] { return registry.KeyExists(L"a"); }},
        {"ReadValue", [&] { return registry.ReadValue(L"a", number, data); }},
        {"WriteValue", [&] { return registry.WriteValue(L"a", CRegUtil::kTypeBinary, "b", 1); }},
        {"WriteSubKeyString", [&] { return registry.WriteSubKeyString(L"a", L"b", L"c"); }},
        {"WriteSubKeyInt", [&] { return registry.WriteSubKeyInt(L"a", L"b", 1); }},
        {"GetSubKeyInt", [&] { return registry.GetSubKeyInt(L"a", L"b", 0) != 0; }},
        {"GetSubKeyString", [&] { return !registry.GetSubKeyString(L"a", L"b", L"", false).IsEmpty(); }},
        {"DeleteValue", [&] { return registry.DeleteValue(L"a", L"b"); }},
        {"DeleteKey", [&] { return registry.DeleteKey(L"a", true); }},
        {"EndBatch", [&] { return registry.EndBatch(); }},
        {"StartBatch", [&] { return registry.StartBatch() && registry.StartBatch(); }},
        {"StartSubKeyEnum", [&] { return registry.StartSubKeyEnum(); }},
        {"GetNextSubKeyName", [&] { return registry.GetNextSubKeyName(name, 16); }},
        {"StartValueSection", [&] { return registry.StartValueSection(L"a"); }},
        {"GetNextValueName", [&] { return registry.GetNextValueName(name, 16); }},
    };
    for (const auto& [operation, succeeds] : operations)
    {
        XClearLastFailure();
        EXPECT_FALSE(succeeds()) << operation;
        EXPECT_EQ(XLastFailure().GetOperation(), std::string("CRegUtil::") + operation);
        EXPECT_EQ(XLastFailure().GetSystemError(), static_cast<unsigned>(registry.GetLastError())) << operation;
    }
}

TEST_F(LastFailure, OfAStoreEachSetterSaysThatMemoryIsLacking)
{
    const CXTString<char> narrow("a");
    const CXArray<Text> array{L"a"};
    const std::vector<Text> list{L"a"};
    const CXTime time(1);
    const std::tm utc{};
    ASSERT_TRUE(m_store.SetInt(1, 1));
    const std::pair<const char*, std::function<bool(CCustomData&)>> setters[] = {
        {"SetInt", [](CCustomData& store) { return store.SetInt(1, 1); }},
        {"SetUInt", [](CCustomData& store) { return store.SetUInt(1, 1); }},
        {"SetLong", [](CCustomData& store) { return store.SetLong(1, 1); }},
        {"SetULong", [](CCustomData& store) { return store.SetULong(1, 1); }},
        {"SetLongInt", [](CCustomData& store) { return store.SetLongInt(1, 1); }},
        {"SetULongInt", [](CCustomData& store) { return store.SetULongInt(1, 1); }},
        {"SetChar", [](CCustomData& store) { return store.SetChar(1, 'a'); }},
        {"SetUChar", [](CCustomData& store) { return store.SetUChar(1, 1); }},
        {"SetBool", [](CCustomData& store) { return store.SetBool(1, 1); }},
        {"SetFloat", [](CCustomData& store) { return store.SetFloat(1, 1); }},
        {"SetDouble", [](CCustomData& store) { return store.SetDouble(1, 1); }},
        {"SetPtr", [](CCustomData& store) { return store.SetPtr(1, nullptr); }},
        {"SetStringW", [&](CCustomData& store) { return store.SetStringW(1, array[0]); }},
        {"SetStringA", [&](CCustomData& store) { return store.SetStringA(1, narrow); }},
        {"SetStringList", [&](CCustomData& store) { return store.SetStringArray(1, array); }},
        {"SetStringList", [&](CCustomData& store) { return store.SetStringList(1, list); }},
        {"SetXTime", [&](CCustomData& store) { return store.SetXTime(1, time); }},
        {"SetUTCTime", [&](CCustomData& store) { return store.SetUTCTime(1, utc); }},
        {"SetBinary", [](CCustomData& store) { return store.SetBinary(1, "a", 1); }},
        {"SetArray", [](CCustomData& store) { return store.SetArray(1, "a", 1, 1); }},
        {"SetCustomData", [&](CCustomData& store) { return store.SetCustomData(1, m_store); }},
        {"SetData", [](CCustomData& store) { return store.SetData("twelve bytes", 12); }},
    };
    for (const auto& [name, set] : setters)
    {
        CCustomData store;
        bool isSet = true;
        XClearLastFailure();
        WithoutMemory([&, &sets = set] { isSet = sets(store); });
        EXPECT_FALSE(isSet) << name;
        EXPECT_EQ(XLastFailure().GetKind(), Kind::kMemory) << name;
        const std::string wanted = name == std::string("SetData") ? "Alloc" : name; // which SetData calls
        EXPECT_EQ(XLastFailure().GetOperation(), "CCustomData::" + wanted);
    }
}

TEST_F(LastFailure, OfArchivesAndDumpsSaysWhy)
{
    CMiniZip unpacked;
    CZip zip;
    CZipFileInfo info;
    const Text out = m_folder.WidePath("out").c_str();
    const auto openZip = [&](const std::wstring& path) {
        return !zip.Open(path.c_str(), zipOpenReadOnly, false, nullptr);
    };
    Expect({
        {"CZip::Open", Kind::kSystem, 2, m_missing, [&] { return openZip(m_missing); }},
        {"CZip::Open", Kind::kData, 0, m_text, [&] { return openZip(m_text); }},
        {"CZip::GetFileInfo", Kind::kArgument, 0, L"", [&] { return !zip.GetFileInfo(info, 0); }},
        {"CZip::ExtractFile", Kind::kArgument, 0, L"",
         [&] { return zip.ExtractFile(0, L".", false, nullptr, false) == zipFailed; }},
        {"CZip::AddNewFile", Kind::kArgument, 0, L"", [&] { return !zip.AddNewFile(L"a", true, zipLevelDefault); }},
        {"CMiniZip::ExtractZip", Kind::kSystem, 2, m_missing,
         [&] { return !unpacked.ExtractZip(m_missingText, out, false); }},
        {"CMiniZip::ExtractZip", Kind::kData, 0, m_text, [&] { return !unpacked.ExtractZip(m_textText, out, false); }},
        {"CMiniZip::ExtractGZip", Kind::kData, 0, m_text,
         [&] { return !unpacked.ExtractGZip(m_textText, out, false); }},
        {"CMiniZip::ExtractZFile", Kind::kSystem, 2, m_missing,
         [&] { return !unpacked.ExtractZFile(m_missingText, out, false); }},
        {"XMinidump::Load", Kind::kSystem, 2, m_missing, [&] { return !XMinidump().Load(m_missing.c_str()); }},
        {"XMinidump::Load", Kind::kData, 0, m_text, [&] { return !XMinidump().Load(m_text.c_str()); }},
        {"XMinidump::Parse", Kind::kData, 0, L"", [&] { return !XMinidump().Parse({}); }},
    });
}

TEST_F(LastFailure, IsLeftAloneByLookUpsAndSuccess)
{
    const unsigned damaged[] = {9, 4, CCustomData::kCustomData, 7}; // its four bytes are no store
    ASSERT_TRUE(m_store.SetData(damaged, sizeof damaged) && m_store.SetInt(1, 1));
    CCustomData nested;
    CStdioFileEx file(false);
    CRegUtil registry(CRegUtil::kReadWrite);
    ASSERT_TRUE(registry.SetPath(L"Some", true));
    CZip zip;
    ASSERT_TRUE(zip.Open(m_folder.WriteFile("a.zip", RawZip({})).c_str(), zipOpenReadOnly, false, nullptr));
    int number = 0;
    unsigned count = 0;
    unsigned long value = 0;
    Text line;
    XClearLastFailure();
    EXPECT_FALSE(fileExists(m_missingText) || fileIsFile(m_missingText) || fileIsDirectory(m_missingText) ||
                 fileIsSameFile(m_missingText, m_textText) || CMiniZip::IsZFile(m_missingText));
    EXPECT_FALSE(m_store.GetInt(7, number, 0) || m_store.GetArray(7, count) != nullptr || m_store.RemoveCustom(7) ||
                 m_store.ChangeID(7, 8) || m_store.CopyID(&m_store, 7) || m_store.GetCustomData(9, nested));
    EXPECT_FALSE(registry.GetKeyInt(L"a", value) || registry.KeyExists(L"a") || registry.DeleteValue(L"b", L"a") ||
                 !registry.GetKeyString(L"a", false).IsEmpty() || registry.GetSubKeyInt(L"b", L"a", 0) != 0);
    EXPECT_TRUE(zip.FindFile(L"a", true, false) == xZipNoEntry && zip.GetLastFailure() == XZipFailure::kNotFound);
    EXPECT_TRUE(CXRuntimeClass::FindRuntimeClass("NoSuchClass") == nullptr &&
                !CWatchFolder().StopWatching(m_missingText));
    EXPECT_TRUE(file.Open(m_text.c_str(), CXFile::modeRead | CXFile::typeText) && file.ReadString(line));
    EXPECT_FALSE(file.ReadString(line));
    int scanned = 0;
    CHashMap<int, int, int> map;
    EXPECT_TRUE(!line.LoadString(1) && line.ScanS(L"%d", &scanned) == -1 && map.Find(1) == nullptr &&
                map.Remove(1) == 0 && m_date.Format(L"").IsEmpty());
    const std::unique_ptr<CElementArray> copy(CElementArray().Duplicate());
    EXPECT_TRUE(nested.SetInt(1, 1) && m_store.AddToCustomData(9, nested, 0));
    EXPECT_TRUE(XParallelFor(3, [](unsigned) {}) && CCustomThread::EndThreads(0));
    // Of what cannot seek no position is needed.
    int ends[2];
    ASSERT_TRUE(pipe(ends) == 0 && write(ends[1], "ab", 2) == 2 && close(ends[1]) == 0);
    CXFile in(CXFile::HandleFromDescriptor(ends[0]), true);
    CXArchive archive(&in, xArchiveLoad);
    char byte = 0;
    archive >> byte;
    archive.SetBudget(1, 1, 1);
    archive.Flush();
    archive.Close();
    in.Close();
    const std::wstring name = m_folder.WidePath("pipe");
    ASSERT_EQ(mkfifo(m_folder.Path("pipe").c_str(), 0600), 0);
    const CXFile reader(name.c_str(), CXFile::modeReadWrite | CXFile::shareDenyNone); // so that a writer need not wait
    EXPECT_TRUE(file.Open(name.c_str(), CXFile::modeWrite | CXFile::shareDenyNone | CStdioFileEx::kWriteUtf16));
    for (int i = 0; i < 2; ++i)
    {
        file.WriteString(L"a");
        file.Flush();
    }
    file.Close();
    EXPECT_TRUE(SetLogFile(name.c_str(), xLogAppend, 0xFF));
    WriteToLogFile(L"a");
    EXPECT_TRUE(CloseLogFile());
    EXPECT_FALSE(XLastFailure()) << XLastFailure().GetOperation();
    EXPECT_STREQ(XLastFailure().GetOperation(), "");
}

TEST_F(LastFailure, IsRecordedWithoutMemoryAndEachThreadsOwn)
{
    CXFile file(false);
    const auto fail = [&] { return file.Open(m_missing.c_str(), CXFile::modeRead); };
    EXPECT_FALSE(fail()); // the path's own memory is there from now on
    XClearLastFailure();
    FailingAllocations none(1, true);
    none.Run([&] { tev::NoteNoMemory("without memory", m_missing.c_str()); });
    EXPECT_FALSE(none.HasFailed());
    EXPECT_EQ(std::wstring(XLastFailure().GetPath()), m_missing);

    std::atomic<int> wrong{0};
    OnThreads(8, [&](int thread) {
        wrong += XLastFailure() ? 1 : 0;
        const std::wstring own = L"thread " + std::to_wstring(thread);
        for (int i = 0; i < 500; ++i)
        {
            tev::NoteBadData("a thread", own.c_str());
            wrong += own != XLastFailure().GetPath();
        }
    });
    EXPECT_EQ(wrong, 0);
    EXPECT_STREQ(XLastFailure().GetOperation(), "without memory");
    EXPECT_EQ(ResultInChild([&] {
                  const bool isInherited = XLastFailure().GetPath() == m_missing;
                  return isInherited && !fail() && XLastFailure().GetSystemError() == 2 ? 0 : 1;
              }),
              0);
}

TEST_F(LastFailure, KeepsTheStartOfALongPathAndTellsThatItIsCut)
{
    for (const std::size_t length : {XFailure::kPathRoom, XFailure::kPathRoom + 1})
    {
        const std::wstring path(length, L'x');
        tev::NoteSystemError("long", 2, path.c_str());
        const XFailure failure = XLastFailure();
        const bool isCut = length > XFailure::kPathRoom;
        EXPECT_EQ(failure.IsPathCut(), isCut);
        EXPECT_EQ(failure.GetPath(), path.substr(0, XFailure::kPathRoom));
        EXPECT_EQ(failure.GetText().Find(L"x...") >= 0, isCut);
    }
    tev::NoteNoMemory("short");
    EXPECT_TRUE(*XLastFailure().GetPath() == L'\0' && !XLastFailure().IsPathCut());
}
} // namespace
