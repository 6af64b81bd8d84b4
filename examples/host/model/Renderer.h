#pragma once

#include "examples/host/model/Mesh.h"

namespace host
{
using Meshes = std::vector<std::shared_ptr<const Mesh>>;

/// From where a person looks: around the middle of what there is, from a distance from which all of it is seen at zoom 1.
struct View
{
    static constexpr float kLeastZoom = 0.1F;
    static constexpr float kMostZoom = 50.0F;

    float m_yaw = 0.6F;   ///< to the right, in radians
    float m_pitch = 0.4F; ///< upwards
    float m_zoom = 1.0F;
    bool m_asWires = false;
    CRGBColor m_background{0x70, 0x78, 0x80};
};

/// Draws meshes into an image without any other help. It works on as many threads as parallel loops have. One thread at a time.
class Renderer
{
public:
    /// Fills the image, whose size is set.
    void Draw(const Meshes& meshes, const View& view, Image& image);

private:
    /// A vertex as it is seen: its pixel, and the reciprocal of its distance, which is linear on the screen.
    struct Seen
    {
        float x;
        float y;
        float nearness;
    };
    /// A horizontal part of the image.
    struct Band
    {
        int m_top;
        int m_bottom;
    };

    void Place(const Meshes& meshes, const View& view, const Image& image);
    void DrawBand(const Meshes& meshes, const View& view, Band band, Image& image);
    void DrawTriangle(const Mesh& mesh, const Triangle& triangle, const Seen* seen, Band band, Image& image);
    static void DrawLine(const Seen& from, const Seen& to, unsigned color, Band band, Image& image);

    std::vector<std::vector<Seen>> m_seen; ///< of each mesh
    std::vector<float> m_nearness;         ///< of each pixel
    float m_scale = 1;
    float m_middleX = 0;
    float m_middleY = 0;
};
} // namespace host
