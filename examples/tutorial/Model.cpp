#include "examples/tutorial/Model.h"

X_IMPLEMENT_ABSTRACT_CLASS(CModelException, CXException, xSchemaNotSerializable)
X_IMPLEMENT_CLASS(CModel, CXObject, 1 | xSchemaVersionable)

void CModel::Read(const CPathString& path, const Progress& progress)
{
    CStdioFileEx file(path, CXFile::modeRead | CXFile::typeText | CXFile::shareDenyNone);
    const unsigned __int64 total = file.GetLength();
    std::vector<Vertex> vertices;
    CXTString<wchar_t> line;
    for (unsigned number = 1; file.ReadString(line); ++number)
    {
        if (progress && number % 100 == 1 && !progress(file.GetPosition(), total))
            CXUserException::Throw();
        Vertex vertex{};
        if (line.Left(2) != L"v ")
            continue;
        if (line.ScanS(L"v %f %f %f", &vertex.x, &vertex.y, &vertex.z) != 3)
            XThrow<CModelException>(number);
        vertices.push_back(vertex);
    }
    m_name = path.GetTitle();
    m_vertices = std::move(vertices);
}

void CModel::Serialize(CXArchive& archive)
{
    if (archive.IsStoring())
    {
        archive << m_name;
        archive.WriteCount(m_vertices.size());
        for (const Vertex& vertex : m_vertices)
            archive << vertex.x << vertex.y << vertex.z;
        return;
    }
    archive >> m_name;
    for (auto left = archive.ReadCount(); left > 0; --left) // a count that is read is only a claim
    {
        Vertex& vertex = m_vertices.emplace_back();
        archive >> vertex.x >> vertex.y >> vertex.z;
    }
}

void SaveModel(const CModel& model, const CPathString& path)
{
    XReplaceFile(path, [&](CXFile& file) { // which has the old contents or the new ones, whatever happens
        CXArchive archive(&file, xArchiveStore);
        archive << &model;
    });
}

std::unique_ptr<CModel> LoadModel(const CPathString& path)
{
    CXFile file(path, CXFile::modeRead);
    CXArchive archive(&file, xArchiveLoad | xArchiveStrict);
    std::unique_ptr<CModel> model;
    archive >> model;
    return model;
}
