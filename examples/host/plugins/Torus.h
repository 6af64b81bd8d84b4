#pragma once

#include "examples/host/model/PlugIn.h"

namespace host
{
/// The mesh of a ring: `bulge` of 1 is a round tube, less is a flatter one.
inline std::shared_ptr<const Mesh> MakeRing(float ring, float tube, unsigned segments, float bulge,
                                            const CRGBColor& color)
{
    constexpr float kFullTurn = 6.2831853F;
    auto mesh = std::make_shared<Mesh>();
    mesh->m_materials[0].m_color = color;
    const auto index = [segments](unsigned i, unsigned j) { return i % segments * segments + j % segments; };
    for (unsigned i = 0; i < segments; ++i)
    {
        const float around = kFullTurn * static_cast<float>(i) / static_cast<float>(segments);
        for (unsigned j = 0; j < segments; ++j)
        {
            const float across = kFullTurn * static_cast<float>(j) / static_cast<float>(segments);
            const float distance = ring + tube * std::cos(across);
            mesh->m_vertices.push_back(
                {distance * std::cos(around), bulge * tube * std::sin(across), distance * std::sin(around)});
            mesh->m_triangles.push_back({{index(i, j), index(i + 1, j), index(i + 1, j + 1)}});
            mesh->m_triangles.push_back({{index(i, j), index(i + 1, j + 1), index(i, j + 1)}});
        }
    }
    return mesh;
}
} // namespace host
