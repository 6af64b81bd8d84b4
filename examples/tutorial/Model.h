#pragma once

#include <TevTools.h>

#include <functional>
#include <memory>
#include <vector>

/// Says in which line a file is no model.
class CModelException : public CXException
{
public:
    X_DECLARE_CLASS(CModelException)

    explicit CModelException(unsigned line) : m_line(line) {}
    unsigned GetLine() const noexcept { return m_line; }

private:
    unsigned m_line;
};

/// The vertices of a model. One thread at a time.
class CModel : public CXObject
{
public:
    X_DECLARE_CLASS(CModel)

    struct Vertex
    {
        float x;
        float y;
        float z;
    };

    /// Asked now and then whether to go on, with how much of the file is done.
    using Progress = std::function<bool(unsigned __int64 done, unsigned __int64 total)>;

    /// Throws CModelException, CXFileException, and CXUserException when it is not to go on.
    void Read(const CPathString& path, const Progress& progress = {});
    void Serialize(CXArchive& archive) override;

    CXTString<wchar_t> m_name;
    std::vector<Vertex> m_vertices;
};

/// Throw what files and archives throw.
void SaveModel(const CModel& model, const CPathString& path);
std::unique_ptr<CModel> LoadModel(const CPathString& path);
