// Models of any bytes, and the materials of any bytes: what is read can be drawn.
// Input: a byte that says which of the two it is, then the file.

#include "examples/host/model/ObjReader.h"
#include "examples/host/model/Renderer.h"

#include <cstddef>
#include <cstdint>

namespace
{
void Read(CXFile& file, bool isModel, host::Mesh& mesh)
{
    host::ModelLimits limits;
    limits.m_vertices = limits.m_triangles = limits.m_materials = 1000;
    std::vector<CXTString<wchar_t>> materialFiles;
    try
    {
        if (isModel)
            host::ReadObj(file, limits, nullptr, mesh, materialFiles);
        else
            host::ReadMtl(file, nullptr, mesh);
    }
    catch (host::ModelException* e)
    {
        e->Delete();
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    host::Mesh mesh;
    mesh.m_materials[0].m_name = L"m";
    CXMemFile file(data + 1, size - 1, false);
    Read(file, data[0] % 2 == 0, mesh);
    host::View view;
    view.m_asWires = data[0] % 4 >= 2;
    host::Image image{16, 16, {}};
    host::Renderer().Draw({std::make_shared<const host::Mesh>(std::move(mesh))}, view, image);
    return 0;
}
