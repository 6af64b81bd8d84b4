#include "services/FileTypeRegistry.h"

#include "services/BuiltInFileTypes.h"
#include "services/CFileNameSpec.h"
#include "services/FileTypes.h"
#include "services/FileWildcards.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/ForkedChild.h"
#include "tests/support/MadeLocale.h"
#include "tests/support/OnThreads.h"
#include "tests/support/PrintText.h"

namespace
{
using namespace tev::test;

using Text = CXTString<wchar_t>;
using TextArray = CXArray<Text, const Text&>;

constexpr unsigned Code(const char (&code)[5])
{
    return XFourCharacterCode(code);
}

/// A type that the destructor unregisters.
class Registered
{
public:
    explicit Registered(CFileExt type) : m_class(type.GetClass()) { fileRegisterFile(type); }
    ~Registered() { fileUnregisterFile(m_class, 3); }
    Registered(const Registered&) = delete;
    Registered& operator=(const Registered&) = delete;

private:
    unsigned m_class;
};

std::wstring Joined(const TextArray& texts)
{
    std::wstring joined;
    for (int i = 0; i < texts.GetSize(); ++i)
        joined += (i == 0 ? L"" : L" ") + std::wstring(texts[i]);
    return joined;
}

CFileExt TypeOf(unsigned fileClass)
{
    CFileExt type;
    EXPECT_TRUE(fileGetExtensionInfo(fileClass, type));
    return type;
}

// The first test, since it needs a registry that was not used before; ctest runs each test in a process of its own.
TEST(FileTypeRegistry, KnowsItsTypesFromTheFirstCallOnFromAnyThread)
{
    // Where memory runs out while the types are entered, the next call enters those that are missing.
    const bool isFirstUse = tev::FileTypes::GetIfThere() == nullptr;
    constexpr int kIncomplete = 0;
    constexpr int kCompleted = 1;
    constexpr int kNothingFailed = 2;
    unsigned which = 0;
    for (int result = kCompleted; result == kCompleted;)
    {
        which += 7; // not each of several hundred
        result = ResultInChild([which] {
            FailingAllocations failing(which);
            failing.Run([] { fileGetClass(L"a.gz"); });
            unsigned count = 0;
            fileFreeRegisteredFiles(fileGetRegisteredFiles(count, 0), count);
            return count != 30 ? kIncomplete : failing.HasFailed() ? kCompleted : kNothingFailed;
        });
        ASSERT_NE(result, kIncomplete) << which;
    }
    EXPECT_TRUE(which > 30 || !isFirstUse);
    std::atomic<int> right{0};
    OnThreads(4, [&right](int) { right += fileGetClass(L"a.gz") == Code("GZ  ") ? 1 : 0; });
    EXPECT_EQ(right, 4);
}

TEST(FileTypeRegistry, ExtensionsOfPathsAndUrls)
{
    const std::pair<const wchar_t*, const wchar_t*> cases[] = {
        {L"", L""},
        {L"name", L""},
        {L"a.b.c", L".c"},
        {L".hidden", L".hidden"},
        {L"name.", L"."},
        {L"C:\\dir.d\\name", L""},
        {L"/dir.d/name", L""},
        {L"C:/dir.d\\na.me", L".me"},
        {L"a.b?c.d", L".d"},
        {L"http://host.org/b/c.jpg?x=1.2&y=a/b.c", L".jpg"},
        {L"http://host", L""},
        {L"http://host.org/dir", L".org/dir"},
        {L"c://a.b?c.d", L".d"}, // a drive
        {L"://a.b?c.d", L".d"},
        {L"ht1p://a.b?c.d", L".d"},
    };
    for (const auto& [path, extension] : cases)
        EXPECT_EQ(fileGetExtension(path), extension) << path;
}

TEST(FileTypeRegistry, TheBuiltInTypesAreFoundByNameAndByClass)
{
    EXPECT_EQ(fileGetClass(L"C:/a/b.BMP"), Code("BMP "));
    EXPECT_EQ(fileGetClass(L"b.wmv"), Code("MPG4"));
    EXPECT_EQ(fileGetClass(L"b.flv"), Code("MOV "));
    EXPECT_EQ(fileGetClass(L"b.unknown"), 0U);
    EXPECT_EQ(fileGetClass(L""), 0U);
    EXPECT_EQ(fileGetClass(L"http://host.org/b.zip?v=1.bmp"), Code("ZIP "));

    const CFileExt depth = TypeOf(Code("ZFIL"));
    EXPECT_EQ(depth.GetDescription(), L"Z-Buffer files");
    EXPECT_EQ(depth.GetExtension(), L".tev");
    EXPECT_EQ(depth.GetProperties(), 0x1000BU);
    EXPECT_EQ(depth.GetKindOf(), 0x10000U);
    EXPECT_EQ(TypeOf(Code("MOV ")).GetDescription(), L"Flash video files");

    const std::tuple<const wchar_t*, unsigned, unsigned, unsigned> cases[] = {
        {L"a.tev", 0x1000B, Code("FERN"), Code("FERN")},  {L"a.bmp", 0x10011, Code("FERN"), Code("UNKN")},
        {L"a.mov", 0x100004, Code("FERN"), Code("UNKN")}, {L"a.max", 0x41013, Code("FERN"), Code("FERN")},
        {L"a.rar", 0x400000, Code("UNKN"), Code("UNKN")}, {L"a", 0, 0, 0},
    };
    for (const auto& [name, properties, loader, saver] : cases)
    {
        EXPECT_EQ(fileGetProperties(name), properties) << name;
        EXPECT_EQ(fileGetKindOf(name), properties & 0xFFFF0000) << name;
        EXPECT_EQ(fileGetLoader(name), loader) << name;
        EXPECT_EQ(fileGetSaver(name), saver) << name;
        EXPECT_EQ(fileGetProperties(fileGetClass(name)), properties) << name;
        CFileExt type;
        EXPECT_EQ(fileGetFileExt(name, type), properties != 0);
        EXPECT_EQ(type.GetProperties(), properties);
    }
    EXPECT_EQ(fileGetKindOf(Code("FLAS")), 0x230000U);
    CFileExt none;
    EXPECT_FALSE(fileGetExtensionInfo(Code("????"), none));
}

TEST(FileTypeRegistry, RegisteredFilesAreFilteredAndSorted)
{
    const Registered scene(CFileExt(L"aaa scenes", L".aaa", Code("aaa "), 0x40002));
    const std::pair<unsigned, unsigned> cases[] = {
        // Counted in the table of built-in types, of which two share a class; "aaa scenes" is one more.
        {0, 31},   {0x10000, 11}, {0x40000, 5}, {0x50000, 16}, {0x40001, 4},  {0x40002, 5},
        {0x1, 26}, {0x2, 8},      {0x3, 7},     {0x400002, 1}, {0x800000, 0},
    };
    for (const auto& [filter, expected] : cases)
    {
        const CXRegisteredFiles types(filter);
        EXPECT_EQ(types.GetCount(), expected) << std::hex << filter;
        Text before;
        for (const CFileExt& type : types)
        {
            EXPECT_LE(before.CompareNoCase(type.GetDescription()), 0);
            before = type.GetDescription();
        }
        if (filter == 0 && types.GetCount() == 31)
        {
            EXPECT_EQ(types.begin()[0].GetDescription(), L"3ds Max files (Dynamic Data Format Exchange)");
            EXPECT_EQ(types.begin()[2].GetDescription(),
                      L"aaa scenes"); // before "Avi files" in spite of its small letters
        }
    }
}

TEST(FileTypeRegistry, TypesAreMergedPreferredAndMarked)
{
    CFileExt scene(L"Scenes", L".abc|x|..a.b|", Code("scen"), 0x40002);
    fileRegisterFile(scene);
    EXPECT_EQ(scene.GetProperties(), 0x40082U);
    EXPECT_EQ(fileGetProperties(L"n.ABC"), 0x40082U);
    EXPECT_EQ(fileGetClass(L"n.x"), Code("scen"));
    EXPECT_EQ(fileGetClass(L"n.ab"), Code("scen"));
    {
        const Registered second(CFileExt(L"Second", L".abc", Code("2nd "), 0x10001));
        EXPECT_EQ(fileGetClass(L"n.abc"), Code("scen"));
        const Registered preferred(CFileExt(L"Preferred", L".abc", Code("pref"), 0x10801));
        EXPECT_EQ(fileGetClass(L"n.abc"), Code("pref"));
        EXPECT_EQ(fileFindParser(L"n.abc", 0x40000, 0x2), Code("scen"));
        EXPECT_EQ(fileFindParser(L"n.abc", 0x10000, 0x1), Code("pref"));
        EXPECT_EQ(fileFindParser(L"n.abc", 0xFFFF0000, 0x82), Code("scen"));
        EXPECT_EQ(fileFindParser(L"n.abc", 0x80000, 0), 0U);
        EXPECT_EQ(fileFindParser(L"n.abc", 0x10000, 0x4), 0U);
        EXPECT_EQ(fileFindParser(L"n.abc", 0x10000, 0x10001), 0U); // kinds are no properties

        // The loader of the first stays, and with it the properties; the saver is the new one.
        fileUnregisterFile(Code("scen"), 3);
        CFileExt withLoader(L"One", L".abc", Code("scen"), 0x40011, Code("LOAD"), Code("SAVE"));
        fileRegisterFile(withLoader);
        CFileExt withoutLoader(L"Two", L".new", Code("scen"), 0x40100, Code("UNKN"), Code("SAV2"));
        fileRegisterFile(withoutLoader);
        const CFileExt merged = TypeOf(Code("scen"));
        EXPECT_EQ(merged.GetDescription(), L"Two");
        EXPECT_EQ(merged.GetLoader(), Code("LOAD"));
        EXPECT_EQ(merged.GetSaver(), Code("SAV2"));
        EXPECT_EQ(merged.GetProperties(), 0x40111U);
        CFileExt withoutSaver(L"Three", L".new", Code("scen"), 0x40200, Code("LOA3"));
        fileRegisterFile(withoutSaver);
        EXPECT_EQ(TypeOf(Code("scen")).GetLoader(), Code("LOA3"));
        EXPECT_EQ(TypeOf(Code("scen")).GetSaver(), Code("SAV2"));
        EXPECT_EQ(fileGetProperties(Code("scen")), 0x40311U);
        EXPECT_EQ(fileGetClass(L"n.new"), Code("scen"));
    }
    EXPECT_EQ(fileGetClass(L"n.abc"), Code("scen"));

    fileUnregisterFile(Code("scen"), 4);
    fileUnregisterFile(Code("scen"), 1);
    EXPECT_EQ(fileGetLoader(L"n.abc"), Code("UNKN"));
    EXPECT_EQ(fileGetProperties(L"n.abc"), 0x40310U);
    EXPECT_EQ(fileGetSaver(L"n.abc"), Code("SAV2"));
    fileUnregisterFile(Code("scen"), 2);
    EXPECT_EQ(fileGetSaver(L"n.abc"), Code("UNKN"));
    fileUnregisterFile(Code("scen"), 7);
    EXPECT_EQ(fileGetClass(L"n.abc"), 0U);
    EXPECT_EQ(fileGetClass(L"n.new"), 0U);
}

TEST(FileTypeRegistry, WithoutMemoryATypeIsRegisteredAsAWholeOrNotAtAll)
{
    const Registered first(CFileExt(L"First", L".one", Code("frst"), 0x10020));
    unsigned failures = 0;
    FailEachAllocation([&](FailingAllocations& failing) {
        CFileExt type(L"Type", L".one|.two|.three", Code("type"), 0x10801);
        const bool isDone = failing.Run([&] { fileRegisterFile(type); });
        failures += isDone ? 0 : 1;
        EXPECT_EQ(fileGetExtensionInfo(Code("type"), type), isDone);
        TextArray extensions;
        EXPECT_EQ(fileGetExtensionArrayByProperty(0x10801, extensions, true, true), isDone ? 3U : 0U);
        EXPECT_EQ(fileGetClass(L"a.one"), isDone ? Code("type") : Code("frst"));
        EXPECT_EQ(fileGetExtensionArrayByProperty(0x10020, extensions, true, false), isDone ? 0U : 1U);
        fileUnregisterFile(Code("type"), 3);
        EXPECT_EQ(fileGetClass(L"a.two"), 0U);
    });
    EXPECT_GT(failures, 10U);
}

TEST(FileTypeRegistry, ExtensionsOfAClassAndOfAKind)
{
    TextArray extensions(false);
    EXPECT_EQ(fileGetExtensionArray(Code("AIMC"), extensions, true), 3U);
    EXPECT_EQ(Joined(extensions), L".aif .aifc .aiff");
    EXPECT_EQ(fileGetExtensionArray(Code("BMP "), extensions, false), 2U);
    EXPECT_EQ(Joined(extensions), L"bmp dib");
    EXPECT_EQ(fileGetExtensionArray(Code("????"), extensions, false), 0U);
    EXPECT_EQ(fileGetMainExtension(Code("IHTM")), L".htm");
    EXPECT_EQ(fileGetMainExtension(L"a.dib"), L".bmp");
    EXPECT_EQ(fileGetMainExtension(L"a.none"), L"");

    EXPECT_EQ(fileGetExtensionArrayByProperty(0x400002, extensions, false, true), 1U);
    EXPECT_EQ(Joined(extensions), L"zip");
    const Registered second(CFileExt(L"Other waves", L".wav|.wvx", Code("WVX "), 0x80020));
    EXPECT_EQ(fileGetExtensionArrayByProperty(0x80020, extensions, true, true), 2U);
    EXPECT_EQ(Joined(extensions), L".wav .wvx");
    EXPECT_EQ(fileGetExtensionArrayByProperty(0x80020, extensions, true, false), 1U);
    EXPECT_EQ(Joined(extensions), L".wvx");
    EXPECT_EQ(fileGetExtensionArrayByProperty(0x100000, extensions, true, true), 8U);
    EXPECT_EQ(Joined(extensions), L".avi .mpeg .mpg .mp4 .m2v .m4v .wmv .flv");

    // Each once, however they are written, in the order in which the types were registered first.
    const Registered later(CFileExt(L"A", L".tar.gz|..|Zz||.WAV", Code("many"), 0x800040));
    const Registered last(CFileExt(L"0", L".ZZ|.yy", Code("last"), 0x800040));
    CFileExt again(L"B", L".tar.gz|..|Zz||.WAV", Code("many"), 0x800040);
    fileRegisterFile(again);
    EXPECT_EQ(fileGetExtensionArrayByProperty(0x800040, extensions, true, true), 4U);
    EXPECT_EQ(Joined(extensions), L".tar.gz .Zz .WAV .yy");
    EXPECT_EQ(fileGetExtensionArrayByProperty(0x800040, extensions, false, false), 3U);
    EXPECT_EQ(Joined(extensions), L"targz Zz yy");
    EXPECT_EQ(fileGetExtensionArray(Code("many"), extensions, true), 3U);
    EXPECT_EQ(Joined(extensions), L".tar.gz .Zz .WAV");
    EXPECT_EQ(fileGetMainExtension(Code("many")), L".tar.gz");
    EXPECT_EQ(fileGetClass(L"a.tar.gz"), Code("GZ  "));
    EXPECT_EQ(fileGetClass(L"a.zz"), Code("many"));
}

TEST(FileTypeRegistry, ExtensionsAreComparedAlikeInEveryLocale)
{
    const Registered other(CFileExt(L"Other", L".INI|.\u00C4x", Code("othr"), 0x10000));
    const std::pair<const wchar_t*, unsigned> cases[] = {
        {L"MODEL.ZIP", Code("ZIP ")}, {L"A.MIDI", Code("MIDI")}, {L"a.dib", Code("BMP ")},
        {L"A.DIB", Code("BMP ")},     {L"A.ini", Code("othr")},  {L"A.\u00E4X", Code("othr")},
    };
    const auto expectAll = [&] {
        for (const auto& [name, fileClass] : cases)
            EXPECT_EQ(fileGetClass(name), fileClass) << Text(name);
        CHashTable<Text> patterns;
        EXPECT_EQ(fileCleanExtensionList(L"\"ICO\" \u00C4", false, &patterns), L"*.ico *\u00E4*");
        EXPECT_TRUE(fileMatchWilcards(L"FAVICON.ICO", patterns));
    };
    expectAll();
    // In Turkish the C library's small letter of I is another one than i.
    const MadeLocale turkish("tr_TR");
    if (!turkish.IsSet())
        GTEST_SKIP() << "this machine cannot make a Turkish locale";
    expectAll();
}

TEST(CFileNameSpec, TakesTheClassOfItsExtensionUnlessOneIsGiven)
{
    const CFileNameSpec none;
    EXPECT_EQ(none.GetClass(), 0U);
    EXPECT_TRUE(none.IsDefaultParserChoice());
    const CFileNameSpec found(L"C:/a/b.BMP", 0);
    EXPECT_EQ(found.GetFileName(), L"C:\\a\\b.BMP");
    EXPECT_EQ(found.GetClass(), Code("BMP "));
    EXPECT_TRUE(found.IsDefaultParserChoice());
    CFileNameSpec given(Text(L"x/x.bmp"), Code("ZFIL"));
    EXPECT_EQ(given.GetClass(), Code("ZFIL"));
    EXPECT_FALSE(given.IsDefaultParserChoice());
    const CFileNameSpec null(static_cast<const wchar_t*>(nullptr), Code("ZFIL"));
    EXPECT_EQ(null.GetClass(), 0U);
    EXPECT_TRUE(null.IsDefaultParserChoice());

    EXPECT_TRUE(found.IsSameFile(CFileNameSpec(L"c:\\A\\B.bmp", Code("BMP "))));
    EXPECT_FALSE(found.IsSameFile(CFileNameSpec(L"C:/a/b.BMP", Code("ZFIL"))));
    EXPECT_FALSE(found.IsSameFile(CFileNameSpec(L"C:/a/./b.BMP", 0)));
    EXPECT_TRUE(none.IsSameFile(null));
    EXPECT_FALSE(none.IsSameFile(CFileNameSpec(L"x", 0)));

    given.SetClass(0);
    EXPECT_EQ(given.GetClass(), Code("BMP "));
    EXPECT_TRUE(given.IsDefaultParserChoice());
    given.SetClass(Code("ZFIL"));
    given = Text(L"a/b.zip");
    EXPECT_EQ(given.GetFileName(), L"a/b.zip");
    EXPECT_EQ(given.GetClass(), Code("ZIP "));
    EXPECT_TRUE(given.IsDefaultParserChoice());
}

TEST(CFileExt, InitForgetsEverything)
{
    CFileExt type(L"d", L".e", 1, 2, 3, 4);
    type.Init();
    EXPECT_TRUE(type.GetDescription().IsEmpty());
    EXPECT_TRUE(type.GetExtension().IsEmpty());
    EXPECT_EQ(type.GetClass() + type.GetProperties(), 0U);
    EXPECT_EQ(type.GetLoader(), Code("UNKN"));
    EXPECT_EQ(type.GetSaver(), Code("UNKN"));
}
} // namespace
