#include "examples/host/window/PlugIns.h"
#include "tests/qt/host/HostTesting.h"

#include <iterator>
#include <random>

namespace host
{
namespace
{
using testing::ElementsAre;

const CPathString kPlugIns = fs::path(HOST_PLUGIN_DIR);
const CPathString kNewerPlugIns = fs::path(HOST_NEWER_PLUGIN_DIR);

std::string BytesOf(const CPathString& path)
{
    std::ifstream file(fs::path(path), std::ios::binary);
    return {std::istreambuf_iterator<char>(file), {}};
}

std::vector<float> ValuesOf(Shape& shape)
{
    std::vector<float> values;
    for (const Parameter& parameter : shape.GetParameters())
        values.push_back(*parameter.m_value);
    return values;
}

/// Saves a scene with a torus of these values by the plug-ins of the folder.
void SaveTorus(const CPathString& plugInFolder, const CPathString& path, const std::vector<float>& values)
{
    const PlugIns plugIns(plugInFolder);
    Scene scene;
    const CXRuntimeClass* type = CXRuntimeClass::FindRuntimeClass("example.Torus");
    ASSERT_NE(nullptr, type);
    scene.m_shapes.emplace_back(static_cast<Shape*>(type->CreateObject()));
    scene.m_shapes[0]->m_name = L"ring";
    const std::vector<Parameter> parameters = scene.m_shapes[0]->GetParameters();
    ASSERT_EQ(values.size(), parameters.size());
    for (std::size_t i = 0; i < values.size(); ++i)
        *parameters[i].m_value = values[i];
    SaveScene(scene, path);
}

/// The values of the one torus in a scene, by the plug-ins of the folder.
std::vector<float> LoadTorus(const CPathString& plugInFolder, const CPathString& path)
{
    const PlugIns plugIns(plugInFolder);
    const std::unique_ptr<Scene> scene = LoadScene(path);
    EXPECT_STREQ(L"ring", scene->m_shapes.at(0)->m_name);
    EXPECT_FALSE(scene->m_shapes[0]->MakeMesh()->m_triangles.empty());
    return ValuesOf(*scene->m_shapes[0]);
}
} // namespace

TEST_F(HostTest, AModelInASceneComesBackWithItsTexture)
{
    Mesh mesh = OpenModel(Sample(L"pawn.obj"), nullptr, nullptr).m_mesh;
    mesh.m_materials[2].m_texture = std::make_shared<const Image>(Image{2, 1, {0xFF010203, 0xFFFFFFFF}});
    Scene scene;
    scene.m_shapes.push_back(std::make_unique<MeshShape>(mesh));
    const CPathString path = m_folder / L"a.tevscene";
    SaveScene(scene, path);
    const std::unique_ptr<Scene> loaded = LoadScene(path);
    ASSERT_EQ(1u, loaded->m_shapes.size());
    const std::shared_ptr<const Mesh> back = loaded->m_shapes[0]->MakeMesh();
    EXPECT_EQ(mesh.m_triangles.size(), back->m_triangles.size());
    EXPECT_EQ(mesh.m_materials[3].m_name, back->m_materials[3].m_name);
    ASSERT_NE(nullptr, back->m_materials[2].m_texture);
    EXPECT_THAT(back->m_materials[2].m_texture->m_pixels, ElementsAre(0xFF010203, 0xFFFFFFFF));
}

TEST_F(HostTest, AShapeWithoutItsPlugInIsReportedAndKeptAsItWas)
{
    const CPathString path = m_folder / L"a.tevscene";
    SaveTorus(kPlugIns, path, {2, 0.5F, 7});
    const std::string bytes = BytesOf(path);
    {
        const std::unique_ptr<Scene> scene = LoadScene(path);
        const auto* kept = dynamic_cast<const KeptShape*>(scene->m_shapes.at(0).get());
        ASSERT_NE(nullptr, kept);
        EXPECT_STREQ("example.Torus", kept->m_className);
        SaveScene(*scene, path);
    }
    EXPECT_EQ(bytes, BytesOf(path));
    EXPECT_THAT(LoadTorus(kPlugIns, path), ElementsAre(2, 0.5F, 7));
}

TEST_F(HostTest, PlugInsOfDifferentAgeReadEachOther)
{
    const CPathString path = m_folder / L"a.tevscene";
    SaveTorus(kNewerPlugIns, path, {3, 0.25F, 9, 0.75F});
    EXPECT_THAT(LoadTorus(kPlugIns, path), ElementsAre(3, 0.25F, 9)) << "an older one has what it knows";
    const auto passThroughOlder = [&](bool isChanged) {
        const PlugIns plugIns(kPlugIns);
        const std::unique_ptr<Scene> scene = LoadScene(path);
        Shape& shape = *scene->m_shapes.at(0);
        if (isChanged)
        {
            *shape.GetParameters()[0].m_value = 5;
            shape.NoteChange();
        }
        EXPECT_EQ(isChanged, shape.m_losesNewer);
        SaveScene(*scene, path);
    };
    passThroughOlder(false);
    EXPECT_THAT(LoadTorus(kNewerPlugIns, path), ElementsAre(3, 0.25F, 9, 0.75F)) << "which keeps the rest, too";
    passThroughOlder(true);
    EXPECT_THAT(LoadTorus(kNewerPlugIns, path), ElementsAre(5, 0.25F, 9, 1)) << "but not of what is changed";
    SaveTorus(kPlugIns, path, {2, 1000, 4});
    EXPECT_THAT(LoadTorus(kNewerPlugIns, path), ElementsAre(2, 50, 4, 1))
        << "what is missing or out of range is corrected";
}

TEST_F(HostTest, OpeningASceneIsCancelledAtAnyStep)
{
    Scene scene;
    scene.m_shapes.push_back(std::make_unique<MeshShape>(OpenModel(Sample(L"pawn.obj"), nullptr, nullptr).m_mesh));
    const CPathString path = m_folder / L"a.tevscene";
    SaveScene(scene, path);
    int steps = 0;
    LoadScene(path, [&](unsigned __int64 done, unsigned __int64 total) {
        EXPECT_LE(done, total);
        return ++steps > 0;
    });
    EXPECT_GT(steps, static_cast<int>(BytesOf(path).size() / 8192)) << "also while it makes a shape of the bytes";
    for (int last = 0; last < steps; ++last)
    {
        int left = last;
        EXPECT_THAT(ThrownText([&] { LoadScene(path, [&](auto, auto) { return left-- > 0; }); }),
                    testing::HasSubstr("CXUserException"));
    }
}

TEST_F(HostTest, SavingThatFailsLeavesWhatIsThere)
{
    const CPathString folder = m_folder / L"a.tevscene";
    fs::create_directories(fs::path(folder) / "in the way");
    EXPECT_THAT(ThrownText([&] { SaveScene(Scene(), folder); }), testing::HasSubstr("CXFileException"));
    EXPECT_EQ(1, std::distance(fs::directory_iterator(fs::path(m_folder)), fs::directory_iterator()));
}

TEST_F(HostTest, ADamagedSceneFailsAsOneOrHasWhatCanBeDrawn)
{
    const PlugIns plugIns(kPlugIns);
    Scene scene;
    scene.m_shapes.emplace_back(static_cast<Shape*>(CXRuntimeClass::FindRuntimeClass("example.Torus")->CreateObject()));
    scene.m_shapes.push_back(std::make_unique<MeshShape>(OpenModel(Sample(L"pawn.obj"), nullptr, nullptr).m_mesh));
    const CPathString path = m_folder / L"a.tevscene";
    SaveScene(scene, path);
    const std::string sound = BytesOf(path);
    std::mt19937 random(11);
    Image image{20, 20, {}};
    for (int round = 0; round < 300; ++round)
    {
        std::string bytes = sound;
        const std::size_t reach = round % 2 == 0 ? 300 : bytes.size();
        for (int i = 0; i <= round % 3; ++i)
            bytes[random() % reach] = static_cast<char>(random());
        bytes.resize(bytes.size() - (round % 5 == 0 ? random() % bytes.size() : 0));
        Write(L"a.tevscene", bytes);
        const std::string thrown = ThrownText([&] {
            const std::unique_ptr<Scene> loaded = LoadScene(path);
            Meshes meshes;
            for (const auto& shape : loaded->m_shapes)
                meshes.push_back(shape->MakeMesh());
            Renderer().Draw(meshes, View(), image);
        });
        EXPECT_TRUE(thrown.empty() || thrown.find("CXArchiveException") == 0) << thrown;
    }
}
} // namespace host
