#pragma once

#include "examples/host/model/ObjReader.h"
#include "services/FileStamp.h"

namespace host
{
/// A file that was read, to find out whether it has changed since: make it before the file is opened.
class FileState
{
public:
    explicit FileState(const CPathString& path) : m_path(path) { Look(); }

    const CPathString& GetPath() const noexcept { return m_path; }
    /// Whether it is another one than at the last look. False while it is not there: what replaces it is still to come.
    bool Look();

private:
    CPathString m_path;
    XFileStamp m_seen;
};

/// Reads an image file; null where it is none. The model needs no library for images, its user has one.
using ImageReader = std::function<std::shared_ptr<const Image>(const CPathString& path)>;

/// A model, the files that it names, and what could not be had of it: materials and textures that are missing or damaged.
struct OpenedModel
{
    Mesh m_mesh;
    std::vector<FileState> m_files; ///< none where it lies in an archive with them
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
