#include "examples/host/model/Renderer.h"

#include <algorithm>

namespace host
{
namespace
{
constexpr float kDistance = 3.0F; // of the eye, in radii: nothing is ever behind it, whatever the zoom

struct Sphere
{
    Vector m_middle;
    float m_radius = 1;
};

Sphere BoundsOf(const Meshes& meshes)
{
    Vector least{kLargestCoordinate, kLargestCoordinate, kLargestCoordinate};
    Vector most = least * -1.0F;
    for (const auto& mesh : meshes)
    {
        for (const Vector& v : mesh->m_vertices)
        {
            least = {std::fmin(least.x, v.x), std::fmin(least.y, v.y), std::fmin(least.z, v.z)};
            most = {std::fmax(most.x, v.x), std::fmax(most.y, v.y), std::fmax(most.z, v.z)};
        }
    }
    if (least.x > most.x)
        return {};
    constexpr float kPoint = 1e-6F; // so large is a point
    return {(least + most) * 0.5F, std::fmax((most - least).Length() * 0.5F, kPoint)};
}

unsigned Pixel(const CRGBColor& color, float brightness)
{
    const auto channel = [brightness](int value) {
        return static_cast<unsigned>(std::fmin(static_cast<float>(value) * brightness, 255.0F));
    };
    return 0xFF000000U | channel(color[0]) << 16 | channel(color[1]) << 8 | channel(color[2]);
}

unsigned Shaded(unsigned pixel, float brightness)
{
    const auto channel = [=](int shift) {
        return static_cast<unsigned>(static_cast<float>(pixel >> shift & 0xFF) * brightness) << shift;
    };
    return 0xFF000000U | channel(16) | channel(8) | channel(0);
}

/// The pixel of a place; textures repeat.
unsigned Texel(const Image& texture, float u, float v)
{
    const auto place = [](float part, int size) {
        const float within = part - std::floor(part);
        return std::clamp(static_cast<int>(within * static_cast<float>(size)), 0, size - 1);
    };
    const int row = texture.m_height - 1 - place(v, texture.m_height);
    return texture.m_pixels[static_cast<std::size_t>(row) * static_cast<unsigned>(texture.m_width) +
                            static_cast<unsigned>(place(u, texture.m_width))];
}

/// A value over a triangle on the screen: start + x * byX + y * byY.
struct Plane
{
    float m_start;
    float m_byX;
    float m_byY;

    float At(float x, float y) const { return m_start + x * m_byX + y * m_byY; }
};
} // namespace

void Renderer::Place(const Meshes& meshes, const View& view, const Image& image)
{
    const Sphere bounds = BoundsOf(meshes);
    const float sinYaw = std::sin(view.m_yaw), cosYaw = std::cos(view.m_yaw);
    const float sinPitch = std::sin(view.m_pitch), cosPitch = std::cos(view.m_pitch);
    m_middleX = static_cast<float>(image.m_width) * 0.5F;
    m_middleY = static_cast<float>(image.m_height) * 0.5F;
    m_scale = std::clamp(view.m_zoom, View::kLeastZoom, View::kMostZoom) * (kDistance - 0.2F) *
              std::fmin(m_middleX, m_middleY);
    m_seen.resize(meshes.size());
    for (std::size_t i = 0; i < meshes.size(); ++i)
    {
        const std::vector<Vector>& vertices = meshes[i]->m_vertices;
        std::vector<Seen>& seen = m_seen[i];
        seen.resize(vertices.size());
        constexpr unsigned kBlock = 16384;
        XParallelFor(static_cast<unsigned>((vertices.size() + kBlock - 1) / kBlock), [&](unsigned block) {
            const std::size_t end = std::min(vertices.size(), (block + std::size_t{1}) * kBlock);
            for (std::size_t v = std::size_t{block} * kBlock; v < end; ++v)
            {
                const Vector p = (vertices[v] - bounds.m_middle) * (1 / bounds.m_radius);
                const float side = p.x * cosYaw + p.z * sinYaw;
                const float depth = p.z * cosYaw - p.x * sinYaw;
                const float up = p.y * cosPitch - depth * sinPitch;
                const float nearness = 1 / (kDistance - (p.y * sinPitch + depth * cosPitch));
                seen[v] = {m_middleX + side * nearness * m_scale, m_middleY - up * nearness * m_scale, nearness};
            }
        });
    }
}

void Renderer::DrawTriangle(const Mesh& mesh, const Triangle& triangle, const Seen* seen, Band band, Image& image)
{
    const Seen& a = seen[triangle.m_vertices[0]];
    const Seen& b = seen[triangle.m_vertices[1]];
    const Seen& c = seen[triangle.m_vertices[2]];
    const int top = std::max(band.m_top, static_cast<int>(std::ceil(std::min({a.y, b.y, c.y}) - 0.5F)));
    const int bottom = std::min(band.m_bottom, static_cast<int>(std::ceil(std::max({a.y, b.y, c.y}) - 0.5F)));
    const int left = std::max(0, static_cast<int>(std::ceil(std::min({a.x, b.x, c.x}) - 0.5F)));
    const int right = std::min(image.m_width, static_cast<int>(std::ceil(std::max({a.x, b.x, c.x}) - 0.5F)));
    const float area = (b.x - a.x) * (c.y - a.y) - (b.y - a.y) * (c.x - a.x);
    if (top >= bottom || left >= right || area == 0)
        return;

    // How a corner's share changes over the screen; the three shares add up to 1.
    const auto plane = [&](float valueA, float valueB, float valueC) {
        const float byX = ((valueB - valueA) * (c.y - a.y) - (valueC - valueA) * (b.y - a.y)) / area;
        const float byY = ((valueC - valueA) * (b.x - a.x) - (valueB - valueA) * (c.x - a.x)) / area;
        return Plane{valueA - a.x * byX - a.y * byY, byX, byY};
    };
    const Plane shareB = plane(0, 1, 0);
    const Plane shareC = plane(0, 0, 1);
    const Plane nearness = plane(a.nearness, b.nearness, c.nearness);

    // Lit from the eye: the normal of the triangle, as it is in the view.
    const auto inView = [this](const Seen& s) {
        return Vector{(s.x - m_middleX) / (s.nearness * m_scale), (m_middleY - s.y) / (s.nearness * m_scale),
                      -1 / s.nearness};
    };
    const Vector normal = Cross(inView(b) - inView(a), inView(c) - inView(a));
    const Vector light{-0.3F, 0.4F, 0.866F};
    const float length = normal.Length();
    const float brightness = 0.25F + 0.75F * (length > 0 ? std::fabs(Dot(normal, light)) / length : 0);

    const Material& material = mesh.m_materials[triangle.m_material];
    const bool isTextured = material.m_texture != nullptr && triangle.m_texturePoints[0] != Triangle::kNone;
    const unsigned color = Pixel(material.m_color, brightness);
    Plane u{}, v{}; // divided by the distance, so that they are linear
    if (isTextured)
    {
        const TexturePoint& ta = mesh.m_texturePoints[triangle.m_texturePoints[0]];
        const TexturePoint& tb = mesh.m_texturePoints[triangle.m_texturePoints[1]];
        const TexturePoint& tc = mesh.m_texturePoints[triangle.m_texturePoints[2]];
        u = plane(ta.u * a.nearness, tb.u * b.nearness, tc.u * c.nearness);
        v = plane(ta.v * a.nearness, tb.v * b.nearness, tc.v * c.nearness);
    }
    constexpr float kEdge = 1e-4F; // neighbours leave no gap
    for (int row = top; row < bottom; ++row)
    {
        const float y = static_cast<float>(row) + 0.5F;
        const std::size_t start = static_cast<std::size_t>(row) * static_cast<unsigned>(image.m_width);
        for (int column = left; column < right; ++column)
        {
            const float x = static_cast<float>(column) + 0.5F;
            const float partB = shareB.At(x, y), partC = shareC.At(x, y);
            const std::size_t place = start + static_cast<unsigned>(column);
            const float near = nearness.At(x, y);
            if (partB < -kEdge || partC < -kEdge || partB + partC > 1 + kEdge || near <= m_nearness[place])
                continue;
            m_nearness[place] = near;
            image.m_pixels[place] =
                isTextured ? Shaded(Texel(*material.m_texture, u.At(x, y) / near, v.At(x, y) / near), brightness)
                           : color;
        }
    }
}

void Renderer::DrawLine(const Seen& from, const Seen& to, unsigned color, Band band, Image& image)
{
    // The part of the line within the band, as shares of its length.
    float first = 0, last = 1;
    const auto cut = [&](float start, float step, float least, float most) {
        if (step == 0)
            return start >= least && start < most;
        const float enter = (least - start) / step, leave = (most - start) / step;
        first = std::fmax(first, std::fmin(enter, leave));
        last = std::fmin(last, std::fmax(enter, leave));
        return first <= last;
    };
    const float stepX = to.x - from.x, stepY = to.y - from.y;
    if (!cut(from.x, stepX, 0, static_cast<float>(image.m_width)) ||
        !cut(from.y, stepY, static_cast<float>(band.m_top), static_cast<float>(band.m_bottom)))
        return;
    const float longest = std::fmax(std::fabs(stepX), std::fabs(stepY));
    const int count = static_cast<int>((last - first) * longest) + 1;
    for (int i = 0; i <= count; ++i)
    {
        const float share = first + (last - first) * static_cast<float>(i) / static_cast<float>(count);
        const int x = static_cast<int>(from.x + stepX * share), y = static_cast<int>(from.y + stepY * share);
        if (x >= 0 && x < image.m_width && y >= band.m_top && y < band.m_bottom)
            image.m_pixels[static_cast<std::size_t>(y) * static_cast<unsigned>(image.m_width) +
                           static_cast<unsigned>(x)] = color;
    }
}

void Renderer::DrawBand(const Meshes& meshes, const View& view, Band band, Image& image)
{
    const std::size_t begin = static_cast<std::size_t>(band.m_top) * static_cast<unsigned>(image.m_width);
    const std::size_t end = static_cast<std::size_t>(band.m_bottom) * static_cast<unsigned>(image.m_width);
    std::fill(image.m_pixels.begin() + static_cast<std::ptrdiff_t>(begin),
              image.m_pixels.begin() + static_cast<std::ptrdiff_t>(end), Pixel(view.m_background, 1));
    std::fill(m_nearness.begin() + static_cast<std::ptrdiff_t>(begin),
              m_nearness.begin() + static_cast<std::ptrdiff_t>(end), 0.0F);
    for (std::size_t i = 0; i < meshes.size(); ++i)
    {
        const Mesh& mesh = *meshes[i];
        const Seen* seen = m_seen[i].data();
        for (const Triangle& triangle : mesh.m_triangles)
        {
            if (!view.m_asWires)
            {
                DrawTriangle(mesh, triangle, seen, band, image);
                continue;
            }
            const unsigned color = Pixel(mesh.m_materials[triangle.m_material].m_color, 1);
            for (int side = 0; side < 3; ++side)
                DrawLine(seen[triangle.m_vertices[side]], seen[triangle.m_vertices[(side + 1) % 3]], color, band,
                         image);
        }
    }
}

void Renderer::Draw(const Meshes& meshes, const View& view, Image& image)
{
    const std::size_t count = static_cast<std::size_t>(image.m_width) * static_cast<unsigned>(image.m_height);
    image.m_pixels.resize(count);
    m_nearness.resize(count);
    Place(meshes, view, image);
    const int bands = static_cast<int>(OMPGetMaxThreadCount());
    XParallelFor(static_cast<unsigned>(bands), [&](unsigned index) {
        const int band = static_cast<int>(index);
        DrawBand(meshes, view, {image.m_height * band / bands, image.m_height * (band + 1) / bands}, image);
    });
}
} // namespace host
