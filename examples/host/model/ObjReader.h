#pragma once

#include "examples/host/model/Mesh.h"

#include <functional>

namespace host
{
/// Says that a file is no model: in which line, and why. One thread at a time.
class ModelException : public CXException
{
public:
    X_DECLARE_CLASS(ModelException)

    ModelException(unsigned __int64 line, const CXTString<wchar_t>& reason);
    /// Counted from 1; 0 where no line is to blame.
    unsigned __int64 GetLine() const noexcept { return m_line; }

private:
    unsigned __int64 m_line;
};

/// How far the work is; a total of 0 means not known yet. False ends it: the operation throws CXUserException.
using Progress = std::function<bool(unsigned __int64 done, unsigned __int64 total)>;

/// What a file may hold at most. A model of so many triangles takes some 1.5 GB.
struct ModelLimits
{
    unsigned m_vertices = 20'000'000; ///< and as many texture points
    unsigned m_triangles = 20'000'000;
    unsigned m_materials = 10'000;
};

/// Reads an .obj file: vertices, texture points, faces of any number of corners, the names of materials, and those of the
/// files that describe them. Memory depends on what the file holds, never on a number in it; a line may have any length, a
/// word up to 4096 bytes. Throws ModelException, CXUserException, and what the file throws.
void ReadObj(CXFile& file, const ModelLimits& limits, const Progress& progress, Mesh& mesh,
             std::vector<CXTString<wchar_t>>& materialFiles);

/// Reads the colours and textures of an .mtl file into the materials that the mesh has already; fails as ReadObj does.
void ReadMtl(CXFile& file, const Progress& progress, Mesh& mesh);
} // namespace host
