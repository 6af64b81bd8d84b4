// A plug-in with one primitive: a torus.

#include "examples/host/plugins/Torus.h"

namespace
{
class Torus : public host::Primitive
{
public:
    X_DECLARE_CLASS(Torus)

    void Serialize(CXArchive& archive) override
    {
        Shape::Serialize(archive);
        // What a later version of the class has added stands behind these, and is passed over.
        SerializeParameters(archive, 3);
    }

    std::vector<host::Parameter> GetParameters() override
    {
        return {{host::Say(L"Radius of the ring", L"Rayon de l'anneau"), &m_ring, 0.1F, 100},
                {host::Say(L"Radius of the tube", L"Rayon du tube"), &m_tube, 0.01F, 50},
                {host::Say(L"Segments", L"Segments"), &m_segments, 3, 300}};
    }

    std::shared_ptr<const host::Mesh> MakeMesh() const override
    {
        return host::MakeRing(m_ring, m_tube, static_cast<unsigned>(m_segments), 1, m_color);
    }

private:
    float m_ring = 1;
    float m_tube = 0.4F;
    float m_segments = 48;
};
X_IMPLEMENT_NAMED_CLASS(Torus, host::Primitive, 1 | xSchemaVersionable, "example.Torus")
} // namespace

const host::PlugIn* HostPlugIn()
{
    static const host::PlugIn plugIn;
    return &plugIn;
}
