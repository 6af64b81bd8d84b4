#include "tests/qt/host/HostTesting.h"

#include <random>

namespace host
{
namespace
{
using testing::ElementsAre;
using testing::HasSubstr;

Mesh Parse(const std::string& text, const ModelLimits& limits = {})
{
    CXMemFile file;
    file.Write(text.data(), static_cast<unsigned>(text.size()));
    file.SeekToBegin();
    Mesh mesh;
    std::vector<CXTString<wchar_t>> materialFiles;
    ReadObj(file, limits, nullptr, mesh, materialFiles);
    return mesh;
}

std::vector<std::vector<unsigned>> TrianglesOf(const Mesh& mesh)
{
    std::vector<std::vector<unsigned>> triangles;
    for (const Triangle& triangle : mesh.m_triangles)
        triangles.push_back({triangle.m_vertices[0], triangle.m_vertices[1], triangle.m_vertices[2]});
    return triangles;
}

constexpr const char* kSquare = "v 0 0 0\nv 1 0 0\nv 1 1 0\nv 0 1 0\nvt 0 0\nvt 1 0\nvt 1 1\n";
} // namespace

TEST(ObjReader, UnderstandsFacesOfAllFormsAndLinesThatGoOn)
{
    const std::string square = kSquare;
    const auto fan = ElementsAre(ElementsAre(0, 1, 2), ElementsAre(0, 2, 3));
    for (const char* face : {"f 1 2 3 4", "f -4 -3 -2 -1", "f 1//1 2//1 3//9 4//1", "f 1/1 2/2 3/3 4/1 # all",
                             "f 1 2 \\\r\n 3\\\n 4", "o square\n\n  f\t1/1/1 2/2/2 3/3/3 4/1/1\r"})
        EXPECT_THAT(TrianglesOf(Parse(square + face)), fan) << face;
    const Mesh mesh = Parse(square + "usemtl red oak\nf 1/3 2/2 3/1\nusemtl plain\nf 1 2/2 3\nusemtl red oak\nf 2 3 4");
    ASSERT_EQ(3u, mesh.m_triangles.size());
    EXPECT_THAT(mesh.m_triangles[0].m_texturePoints, ElementsAre(2, 1, 0));
    EXPECT_THAT(mesh.m_triangles[1].m_texturePoints, testing::Each(Triangle::kNone)) << "not all corners have one";
    EXPECT_STREQ(L"red oak", mesh.m_materials[mesh.m_triangles[2].m_material].m_name);
    EXPECT_THAT((std::vector<unsigned>{mesh.m_triangles[0].m_material, mesh.m_triangles[1].m_material}),
                ElementsAre(1, 2));
}

TEST(ObjReader, SaysInWhichLineAFileIsNoModel)
{
    const std::string square = kSquare;
    const std::string longWord(5000, 'x');
    const struct
    {
        std::string m_text;
        const char* m_said;
    } rows[] = {
        {square + "f 1 2 5", "line 8: a face has a corner that does not exist"},
        {square + "f 0 1 2", "does not exist"},
        {square + "f -5 1 2", "does not exist"},
        {square + "f 99999999999999999999 1 2", "does not exist"},
        {square + "f -9223372036854775808 1 2", "does not exist"},
        {square + "f 4294967297 1 2", "does not exist"},
        {square + "f 1/4 2/1 3/1", "does not exist"},
        {square + "f 1x 2 3", "no number"},
        {square + "f 1 2", "fewer than three"},
        {"v 1 2", "line 1: a number is missing"},
        {"\n\nv 1 2 nan", "line 3: a number is missing"},
        {"v 1e30 2 3", "out of range"},
        {"v 1,5 2 3", "out of range"},
        {"vt 0 x", "out of range"},
        {"v 1 \\ 2 3", "backslash"},
        {longWord, "too long"},
        {"usemtl " + longWord, "too long"},
    };
    for (const auto& row : rows)
        EXPECT_THAT(ThrownText([&] { Parse(row.m_text); }), HasSubstr(row.m_said)) << row.m_text.substr(0, 100);
}

TEST(ObjReader, HoldsToItsLimitsInOneEndlessLine)
{
    std::string line = "v 0 0 0\nf";
    for (int i = 0; i < 1'000'000; ++i)
        line += " 1";
    EXPECT_EQ(999'998u, Parse(line).m_triangles.size());
    ModelLimits limits;
    limits.m_vertices = 2;
    limits.m_triangles = 3;
    limits.m_materials = 2;
    for (const char* text :
         {"v 1 1 1\nv 1 1 1\nv 1 1 1", "vt 1\nvt 1\nvt 1", "v 1 1 1\nf 1 1 1 1 1 1", "usemtl a\nusemtl b"})
        EXPECT_THAT(ThrownText([&] { Parse(text, limits); }), HasSubstr("too large")) << text;
}

TEST(ObjReader, EndsForAnyBytes)
{
    const std::string words[] = {"v ", "f ", "vt ",  "usemtl ", "mtllib ", "1 ", "-1 ",  "2/1 ", "3//",
                                 "\n", "\\", "\\\n", "#",       "0.5 ",    "\r", "\xFF", "\0"};
    std::mt19937 random(7);
    for (int round = 0; round < 3000; ++round)
    {
        std::string text = kSquare;
        for (int i = 0; i < 40; ++i)
            text += words[random() % std::size(words)];
        Mesh mesh;
        const std::string thrown = ThrownText([&] { mesh = Parse(text); });
        EXPECT_TRUE(thrown.empty() || thrown.find("host::ModelException") == 0) << thrown;
        for (const Triangle& triangle : mesh.m_triangles)
            EXPECT_THAT(triangle.m_vertices, testing::Each(testing::Lt(mesh.m_vertices.size())));
    }
}

TEST_F(HostTest, AModelIsTheSamePlainAndPacked)
{
    const OpenedModel plain = OpenModel(Sample(L"pawn.obj"), nullptr, nullptr);
    EXPECT_THAT(plain.m_warnings, testing::IsEmpty());
    ASSERT_EQ(4u, plain.m_mesh.m_materials.size());
    EXPECT_EQ(CRGBColor(20, 79, 38), plain.m_mesh.m_materials[1].m_color) << "felt, from the .mtl file";
    EXPECT_GT(plain.m_mesh.m_triangles.size(), 100u);
    for (const wchar_t* name : {L"archives/pawn.zip", L"archives/pawn.obj.gz", L"archives/pawn.obj.zst"})
    {
        ASSERT_TRUE(IsModelName(name));
        const OpenedModel packed = OpenModel(Sample(name), nullptr, nullptr);
        EXPECT_EQ(TrianglesOf(plain.m_mesh), TrianglesOf(packed.m_mesh)) << CXTString<char>(name);
    }
    EXPECT_THAT(ThrownText([&] { OpenModel(Write(L"not.zip", "PK\3\4 no archive"), nullptr, nullptr); }),
                HasSubstr("ModelException"));
    EXPECT_THAT(ThrownText([&] { OpenModel(m_folder / L"nothing.obj", nullptr, nullptr); }),
                HasSubstr("CXFileException"));
    EXPECT_FALSE(IsModelName(L"archive.tar.gz"));
}

TEST_F(HostTest, AModelReadsItsTexturesFromBeneathItsFolderOnly)
{
    Write(L"secret.png", "x");
    Write(L"model/skin.png", "x");
    Write(L"model/a.mtl", "newmtl a\nmap_Kd skin.png\nnewmtl b\nmap_Kd ../secret.png\nnewmtl c\nKd 2 0.5 -1\n");
    const CPathString path = Write(L"model/model.obj", "mtllib a.mtl\nmtllib gone.mtl\nusemtl a\nusemtl b\nusemtl c\n");
    std::vector<std::wstring> read;
    const OpenedModel model = OpenModel(path, nullptr, [&](const CPathString& texture) {
        read.emplace_back(texture.GetFileName());
        return std::make_shared<const Image>();
    });
    EXPECT_THAT(read, ElementsAre(L"skin.png"));
    ASSERT_EQ(2u, model.m_files.size());
    EXPECT_EQ(m_folder / L"model" / L"a.mtl", model.m_files[0].GetPath());
    EXPECT_EQ(m_folder / L"model" / L"skin.png", model.m_files[1].GetPath());
    ASSERT_EQ(2u, model.m_warnings.size());
    EXPECT_TRUE(model.m_warnings[0].Find(L"gone.mtl: ") == 0 && model.m_warnings[1].Find(L"../secret.png: ") == 0);
    EXPECT_EQ(CRGBColor(255, 128, 0), model.m_mesh.m_materials[3].m_color);
}

TEST_F(HostTest, OpeningIsCancelledAtAnyStepAndLeavesNothing)
{
    const auto countTemporary = [] {
        return std::distance(fs::directory_iterator(fs::temp_directory_path()), fs::directory_iterator());
    };
    for (const wchar_t* name : {L"pawn.obj", L"archives/pawn.zip", L"archives/pawn.obj.gz", L"archives/pawn.obj.zst"})
    {
        int steps = 0;
        OpenModel(
            Sample(name),
            [&](unsigned __int64 done, unsigned __int64 total) {
                EXPECT_TRUE(total == 0 || done <= total);
                return ++steps > 0;
            },
            nullptr);
        ASSERT_GT(steps, 0);
        for (int last = 0; last < steps; ++last)
        {
            const auto before = countTemporary();
            int left = last;
            EXPECT_THAT(ThrownText([&] {
                            OpenModel(
                                Sample(name), [&](auto, auto) { return left-- > 0; }, nullptr);
                        }),
                        HasSubstr("CXUserException"));
            EXPECT_EQ(before, countTemporary());
        }
    }
}
} // namespace host
