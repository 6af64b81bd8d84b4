#pragma once

#include <TevTools.h>

#include <cmath>
#include <memory>
#include <vector>

namespace host
{
/// One of two texts, in the language of the library's messages.
inline CXTString<wchar_t> Say(const wchar_t* english, const wchar_t* french)
{
    return XGetLanguage() == XLanguage::French ? french : english;
}

struct Vector
{
    float x = 0;
    float y = 0;
    float z = 0;

    friend Vector operator+(const Vector& a, const Vector& b) { return {a.x + b.x, a.y + b.y, a.z + b.z}; }
    friend Vector operator-(const Vector& a, const Vector& b) { return {a.x - b.x, a.y - b.y, a.z - b.z}; }
    friend Vector operator*(const Vector& a, float factor) { return {a.x * factor, a.y * factor, a.z * factor}; }
    friend float Dot(const Vector& a, const Vector& b) { return a.x * b.x + a.y * b.y + a.z * b.z; }
    friend Vector Cross(const Vector& a, const Vector& b)
    {
        return {a.y * b.z - a.z * b.y, a.z * b.x - a.x * b.z, a.x * b.y - a.y * b.x};
    }
    float Length() const { return std::sqrt(Dot(*this, *this)); }
};

/// Of vertices: products of three of them are still numbers.
constexpr float kLargestCoordinate = 1e12F;

/// A place in a texture: (0, 0) is its lower left corner, (1, 1) the upper right one.
struct TexturePoint
{
    float u = 0;
    float v = 0;
};

/// Pixels as 0xFFRRGGBB, the upper row first.
struct Image
{
    int m_width = 0;
    int m_height = 0;
    std::vector<unsigned> m_pixels;
};

struct Material
{
    CXTString<wchar_t> m_name;
    CRGBColor m_color{200, 200, 200};
    CXTString<wchar_t> m_textureName; ///< as the file has it
    std::shared_ptr<const Image> m_texture;
};

/// Three corners, as indexes into the lists of a mesh.
struct Triangle
{
    static constexpr unsigned kNone = 0xFFFFFFFF;

    unsigned m_vertices[3] = {};
    unsigned m_texturePoints[3] = {kNone, kNone, kNone}; ///< all of them, or none
    unsigned m_material = 0;
};

/// What is drawn. The indexes of its triangles are always valid.
struct Mesh
{
    std::vector<Vector> m_vertices;
    std::vector<TexturePoint> m_texturePoints;
    std::vector<Triangle> m_triangles;
    std::vector<Material> m_materials = std::vector<Material>(1);
};
} // namespace host
