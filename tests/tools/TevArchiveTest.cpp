#include "tests/support/TempFolder.h"
#include "tests/tools/TevRunner.h"

namespace
{
using namespace tev::test;

// Two nodes that share a material, written by hand; the second material is of an older version without shine.
const std::string kNewNode = "\xFF\xFF\x01\0\x04\0Node"s;
const std::string kNewMaterial = "\xFF\xFF\x02\0\x08\0Material"s;
const std::string kNoText = "\xFF\xFE\xFF\0"s;
const std::string kNewOldMaterial = "\xFF\xFF\x01\0\x08\0Material"s;
const std::string kScene = kNewNode + "\xFF\xFE\xFF\x02r\0\xE9\0"s + kNewMaterial + "\x03oak\0\0\0\x3F"s + "\x01\0"s +
                           "\x01\x80"s + kNoText + "\x04\0"s + "\0\0"s + kNewOldMaterial + "\xFF\xFD\xFF\x01\""s;
const char* const kDumpedScene = R"(00000000  class 1 "Node", schema 1
00000000  object 2, Node
0000000a    name: UTF-16 "ré"
00000012    class 3 "Material", schema 2
00000012    material: object 4, Material
00000020      name: ANSI "oak"
00000024      shine: float 0.5
00000028    children: count 1
0000002a      [0] object 5, Node
0000002c        name: UTF-16 ""
00000030        material: object 4 again, Material
00000032        children: count 0
00000034  class 6 "Material", schema 1
00000034  object 7, Material
00000042    name: UTF-8 "\""
00000047  end
)";

TEST(TevArchive, DumpShowsObjectsClassesAndValuesWithOffsets)
{
    EXPECT_THAT(RunTev({"archive", "dump"}, kScene), FieldsAre(0, kDumpedScene, ""));
}

TEST(TevArchive, DumpTakesDescriptionsOfClasses)
{
    const std::string bytes = "\xFF\xFF\x07\0\x01\0X\x01\xFE\xFF\xFF\xFF\0\0\0\0\0\0\x04\xC0\xFF\xFF\0\0\x01\0"s;
    const TevResult dumped =
        RunTev({"archive", "dump", "--class", "Y=int z", "--class", "X=bool a,int b,double c,count d,int e@8"}, bytes);
    EXPECT_EQ(dumped.m_output, "00000000  class 1 \"X\", schema 7\n"
                               "00000000  object 2, X\n"
                               "00000007    a: bool 1\n"
                               "00000008    b: int -2\n"
                               "0000000c    c: double -2.5\n"
                               "00000014    d: count 65536\n"
                               "0000001a  end\n");
    for (const char* wrong : {"X", "=int a", "X=int", "X=thing a", "X=int a@", "X=int a@x"})
        EXPECT_EQ(RunTev({"archive", "dump", "--class", wrong}).m_exitCode, 2) << wrong;
}

TEST(TevArchive, DumpReportsWhereItFails)
{
    TempFolder folder;
    const std::pair<std::string, const char*> rows[] = {
        {"\0\0"s, ": at offset 00000000: "},
        {kNewNode + kNoText + "\x09\0"s, ": at offset 0000000e: "},
        {"\xFF\xFF\x01\0\x01\0?"s, ": at offset 00000000: the fields of class \"?\", schema 1, are not known"},
        {"\xFF\xFF\x01\0\xFF\xFF?"s, ": at offset 00000000: "},
        {kNewNode + "\xFF\xFE\xFF\xFF\xFF\xFF\xFF\xFF\xFF\x7F"s, ": at offset 0000000a: "},
    };
    for (const auto& [bytes, error] : rows)
    {
        folder.WriteFile("broken", bytes);
        const std::string name = folder.Path("broken").string();
        const TevResult dumped = RunTev({"archive", "dump", name});
        EXPECT_THAT(dumped.m_error, testing::AllOf(StartsWith("tev: "), HasSubstr(name), HasSubstr(error)));
        EXPECT_EQ(dumped.m_error.find(name), dumped.m_error.rfind(name)) << "once";
        EXPECT_EQ(dumped.m_exitCode, 1);
    }
    // Every truncated archive fails, and its complete part is shown.
    for (std::size_t length = 1; length < kScene.size(); length += 3)
    {
        if (length == 0x34) // here the first object is complete
            continue;
        const TevResult dumped = RunTev({"archive", "dump"}, kScene.substr(0, length));
        EXPECT_EQ(dumped.m_exitCode, 1) << length;
        EXPECT_THAT(kDumpedScene, StartsWith(dumped.m_output)) << length;
    }
    std::string deep = kNewNode;
    for (int i = 0; i < 3000; ++i)
        deep += kNoText + "\0\0\x01\0\x01\x80"s;
    EXPECT_THAT(RunTev({"archive", "dump"}, deep).m_error, HasSubstr("objects nest deeper"));
    EXPECT_THAT(RunTev({"archive", "dump", "no such file"}).m_error, HasSubstr("no such file"));
}

TEST(TevArchive, DumpShowsBytesOfAClassThatIsNotDescribed)
{
    // A class that only has its name in common with one of the example's.
    const std::string later = "\xFF\xFF\x02\0\x04\0Node"s + "0123456789abcdef\0\x80"s;
    for (const std::string& bytes : {later, "\xFF\xFF\x01\0\x04\0Nine"s + later.substr(10)})
    {
        EXPECT_THAT(RunTev({"archive", "dump"}, bytes),
                    FieldsAre(1,
                              testing::EndsWith("0000000a  bytes 30 31 32 33 34 35 36 37 38 39 61 62 63 64 65 66\n"
                                                "0000001a  bytes 00 80\n"),
                              HasSubstr("--class can describe them")));
    }
    EXPECT_EQ(RunTev({"archive", "dump", "--class", "Node=char a"}, later.substr(0, 11)).m_exitCode, 0);
}
} // namespace
