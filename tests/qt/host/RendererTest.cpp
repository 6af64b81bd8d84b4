#include "tests/qt/host/HostTesting.h"

namespace host
{
namespace
{
Mesh TwoSquares()
{
    Mesh mesh; // a red one in front of a larger green one
    mesh.m_vertices = {{-1, -1, 1},  {1, -1, 1},  {1, 1, 1},  {-1, 1, 1},
                       {-2, -2, -1}, {2, -2, -1}, {2, 2, -1}, {-2, 2, -1}};
    mesh.m_materials.resize(2);
    mesh.m_materials[0].m_color = CRGBColor(255, 0, 0);
    mesh.m_materials[1].m_color = CRGBColor(0, 255, 0);
    for (const unsigned first : {0U, 4U})
    {
        for (const unsigned second : {1U, 2U})
        {
            Triangle triangle;
            triangle.m_vertices[0] = first;
            triangle.m_vertices[1] = first + second;
            triangle.m_vertices[2] = first + second + 1;
            triangle.m_material = first / 4;
            mesh.m_triangles.push_back(triangle);
        }
    }
    return mesh;
}

Image Drawn(Mesh mesh, const View& view)
{
    Image image{200, 200, {}};
    Renderer().Draw({std::make_shared<const Mesh>(std::move(mesh))}, view, image);
    return image;
}

/// The colour of a pixel without its brightness.
char ColorAt(const Image& image, int x, int y)
{
    const unsigned pixel = image.m_pixels[static_cast<std::size_t>(y * image.m_width + x)];
    const unsigned red = pixel >> 16 & 0xFF, green = pixel >> 8 & 0xFF, blue = pixel & 0xFF;
    return red > green + 40 ? 'r' : green > red + 40 ? 'g' : blue > red + 40 ? 'b' : '.';
}

View Front()
{
    View view;
    view.m_yaw = view.m_pitch = 0;
    return view;
}
} // namespace

TEST(Renderer, ShowsWhatIsInFrontFromWhereverItIsSeen)
{
    View view = Front();
    EXPECT_EQ('r', ColorAt(Drawn(TwoSquares(), view), 100, 100));
    EXPECT_EQ('g', ColorAt(Drawn(TwoSquares(), view), 50, 100));
    EXPECT_EQ('.', ColorAt(Drawn(TwoSquares(), view), 1, 1));
    view.m_yaw = 3.14159265F;
    EXPECT_EQ('g', ColorAt(Drawn(TwoSquares(), view), 100, 100)) << "from behind";
    view.m_asWires = true;
    const Image wires = Drawn(TwoSquares(), view);
    EXPECT_TRUE(ColorAt(wires, 127, 90) == 'r' || ColorAt(wires, 128, 90) == 'r') << "wires hide nothing: the red side";
    EXPECT_EQ('.', ColorAt(wires, 100, 88));
    view = Front();
    view.m_zoom = View::kMostZoom;
    for (const int place : {0, 99, 199})
        EXPECT_EQ('r', ColorAt(Drawn(TwoSquares(), view), place, 199 - place));
}

TEST(Renderer, LaysTexturesOnTheRightWay)
{
    Mesh mesh = TwoSquares();
    mesh.m_texturePoints = {{0, 0}, {1, 0}, {1, 1}, {0, 1}};
    for (Triangle& triangle : mesh.m_triangles)
    {
        for (int i = 0; i < 3; ++i)
            triangle.m_texturePoints[i] = triangle.m_vertices[i] % 4;
    }
    // Upper left red, upper right green, lower left blue, lower right grey.
    mesh.m_materials[0].m_texture =
        std::make_shared<const Image>(Image{2, 2, {0xFFFF0000, 0xFF00FF00, 0xFF0000FF, 0xFF808080}});
    const Image image = Drawn(mesh, Front());
    const std::string seen = {ColorAt(image, 90, 90), ColorAt(image, 110, 90), ColorAt(image, 90, 110),
                              ColorAt(image, 110, 110)};
    EXPECT_EQ("rgb.", seen);
}

TEST(Renderer, DrawsAnyNumbersOfAMeshWithinTheImage)
{
    const float values[] = {0, 1, -1, 1e-30F, kLargestCoordinate, -kLargestCoordinate, 3.5F};
    for (const float x : values)
    {
        for (const float y : values)
        {
            Mesh mesh = TwoSquares();
            mesh.m_vertices[2] = {x, y, x};
            mesh.m_vertices[5] = {y, x, -y};
            View view;
            view.m_zoom = 1e20F;
            Drawn(mesh, view);
            view.m_asWires = true;
            Drawn(mesh, view);
        }
    }
    EXPECT_EQ(Drawn(Mesh(), View()).m_pixels, std::vector<unsigned>(40000, 0xFF707880)) << "nothing";
    Image empty;
    Renderer().Draw({}, View(), empty);
    EXPECT_TRUE(empty.m_pixels.empty());
}
} // namespace host
