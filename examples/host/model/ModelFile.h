#pragma once

#include "examples/host/model/ObjReader.h"

namespace host
{
/// Reads an image file; null where it is none. The model needs no library for images, its user has one.
using ImageReader = std::function<std::shared_ptr<const Image>(const CPathString& path)>;

/// A model, and what could not be had of it: files of materials and textures that are missing or damaged.
struct OpenedModel
{
    Mesh m_mesh;
    std::vector<CXTString<wchar_t>> m_warnings;
};

/// Makes the registry of file types know what is opened and saved here: models and scenes.
void RegisterFileTypes();
/// Whether a file of this name is a model, also packed.
bool IsModelName(const CXTString<wchar_t>& path);
bool IsSceneName(const CXTString<wchar_t>& path);

/// Opens an .obj file with its materials and textures: plain, packed by gzip or Zstandard, or the first one in a ZIP archive.
/// Files that it names are looked for beneath its folder only. Throws ModelException, CXUserException and CXFileException.
OpenedModel OpenModel(const CPathString& path, const Progress& progress, const ImageReader& readImage);
} // namespace host
