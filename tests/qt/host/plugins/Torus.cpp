// The torus of a later version, which has got one parameter more.

#include "examples/host/plugins/Torus.h"

namespace
{
class Torus : public host::Primitive
{
public:
    X_DECLARE_CLASS(Torus)

    void Serialize(CXArchive& archive) override
    {
        const unsigned schema = archive.GetObjectSchema();
        Shape::Serialize(archive);
        SerializeParameters(archive, schema >= 2 ? 4 : 3);
    }

    std::vector<host::Parameter> GetParameters() override
    {
        return {{L"Radius of the ring", &m_ring, 0.1F, 100},
                {L"Radius of the tube", &m_tube, 0.01F, 50},
                {L"Segments", &m_segments, 3, 300},
                {L"Bulge", &m_bulge, 0, 2}};
    }

    std::shared_ptr<const host::Mesh> MakeMesh() const override
    {
        return host::MakeRing(m_ring, m_tube, static_cast<unsigned>(m_segments), m_bulge, m_color);
    }

private:
    float m_ring = 1;
    float m_tube = 0.4F;
    float m_segments = 48;
    float m_bulge = 1;
};
X_IMPLEMENT_NAMED_CLASS(Torus, host::Primitive, 2 | xSchemaVersionable, "example.Torus")
} // namespace

const host::PlugIn* HostPlugIn()
{
    static const host::PlugIn plugIn;
    return &plugIn;
}
