// A plug-in that measures the surface of what is shown, on a worker.

#include "examples/host/model/PlugIn.h"

namespace
{
class Measuring : public CCustomThread
{
public:
    explicit Measuring(const host::Meshes& meshes) : m_meshes(meshes) {}

protected:
    bool Run() override
    {
        double area = 0;
        for (const auto& mesh : m_meshes)
        {
            for (const host::Triangle& triangle : mesh->m_triangles)
            {
                if (MustTerminate() || ShouldCancel())
                    return false;
                const host::Vector& corner = mesh->m_vertices[triangle.m_vertices[0]];
                area += 0.5 * static_cast<double>(Cross(mesh->m_vertices[triangle.m_vertices[1]] - corner,
                                                        mesh->m_vertices[triangle.m_vertices[2]] - corner)
                                                      .Length());
            }
        }
        CXTString<wchar_t> text;
        text.Format(host::Say(L"The surface is %.6g.", L"La surface est de %.6g.").GetConstBuffer(), area);
        XGetUserInterface().Notify(host::Say(L"Measured", L"Mesur\u00e9"), text, L"");
        return true;
    }

private:
    const host::Meshes m_meshes;
};

void Measure(const host::Meshes& shown)
{
    CXThread::BeginThread(new Measuring(shown), xThreadPriorityBelowNormal, 0, 0);
}

const host::PlugInCommand kMeasure{L"Measure the surface", L"Mesurer la surface", Measure};
} // namespace

const host::PlugIn* HostPlugIn()
{
    static const host::PlugIn plugIn{host::PlugIn::kInterface, &kMeasure};
    return &plugIn;
}
