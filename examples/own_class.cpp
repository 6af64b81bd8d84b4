// An own class that the library can create by name, and an own exception class, thrown and caught by the rules.

#include "TevTools.h"

#include <iostream>
#include <memory>
#include <vector>

class CMeshException : public CXException
{
public:
    X_DECLARE_CLASS(CMeshException)

    explicit CMeshException(int vertex) : m_vertex(vertex) {}
    int GetVertex() const { return m_vertex; }

private:
    int m_vertex;
};

class CMesh : public CXObject
{
public:
    X_DECLARE_CLASS(CMesh)

    void AddVertex() { ++m_vertexCount; }
    void AddTriangle(int a, int b, int c)
    {
        for (const int vertex : {a, b, c})
        {
            if (vertex < 0 || vertex >= m_vertexCount)
                XThrow<CMeshException>(vertex);
        }
        m_corners.insert(m_corners.end(), {a, b, c});
    }

private:
    int m_vertexCount = 0;
    std::vector<int> m_corners;
};

X_IMPLEMENT_ABSTRACT_CLASS(CMeshException, CXException, xSchemaNotSerializable)
X_IMPLEMENT_CLASS(CMesh, CXObject, 1)

namespace scene
{
class Light : public CXObject
{
public:
    X_DECLARE_CLASS(Light)
};

class SpotLight : public Light
{
public:
    X_DECLARE_CLASS(SpotLight)
};
} // namespace scene

X_IMPLEMENT_CLASS(scene::Light, CXObject, 1)
X_IMPLEMENT_NAMED_CLASS(scene::SpotLight, scene::Light, 1, "com.example.SpotLight")

namespace
{
bool AddTriangleTo(CMesh& mesh, int a, int b, int c)
{
    try
    {
        mesh.AddTriangle(a, b, c);
        return true;
    }
    catch (CMeshException* exception)
    {
        std::cout << "there is no vertex " << exception->GetVertex() << '\n';
        exception->Delete();
    }
    catch (CXException* exception)
    {
        std::cout << "failed as " << exception->GetRuntimeClassDescriptor()->m_name << '\n';
        exception->Delete();
    }
    return false;
}

bool ImportAll()
{
    try
    {
        CXFileException::Throw(fileNotFound, L"scene.obj");
    }
    catch (...)
    {
        XDeleteThreadException();
        return false;
    }
}
} // namespace

int main()
{
    const CXRuntimeClass* type = CXRuntimeClass::FindRuntimeClass("CMesh");
    const std::unique_ptr<CXObject> object(type->CreateObject());
    if (!CXObject::IsKindOf(object.get(), CMesh::GetThisRuntimeClassDescriptor()))
        return 1;
    auto& mesh = static_cast<CMesh&>(*object);
    for (int i = 0; i < 3; ++i)
        mesh.AddVertex();

    for (const char* name : {"scene::Light", "com.example.SpotLight"})
    {
        if (CXRuntimeClass::FindRuntimeClass(name) == nullptr)
            return 1;
    }

    const bool good = AddTriangleTo(mesh, 0, 1, 2);
    const bool bad = AddTriangleTo(mesh, 0, 1, 7);
    return good && !bad && !ImportAll() ? 0 : 1;
}
