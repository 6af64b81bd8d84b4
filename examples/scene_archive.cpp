// Stores a small scene in a file and loads it back: objects of several classes, one of them shared, one link empty, and
// a class that still reads what its earlier version wrote.

#include <TevTools.h>

#include <cstdio>
#include <memory>
#include <vector>

namespace
{
class Material : public CXObject
{
public:
    X_DECLARE_CLASS(Material)

    Material() = default;
    Material(const wchar_t* name, float shine) : m_name(name), m_shine(shine) {}

    void Serialize(CXArchive& archive) override
    {
        if (archive.IsStoring())
        {
            archive << m_name << m_shine;
            return;
        }
        const unsigned schema = archive.GetObjectSchema();
        archive >> m_name;
        if (schema >= 2) // the first version had no shine
            archive >> m_shine;
    }

    CXTString<wchar_t> m_name;
    float m_shine = 0.5f;
};

class Node : public CXObject
{
public:
    X_DECLARE_CLASS(Node)

    void Serialize(CXArchive& archive) override
    {
        if (archive.IsStoring())
        {
            archive << m_name << m_material;
            archive.WriteCount(m_children.size());
            for (const Node* child : m_children)
                archive << child;
            return;
        }
        archive >> m_name;
        m_material = static_cast<Material*>(archive.ReadObject(Material::GetThisRuntimeClassDescriptor()));
        for (auto left = archive.ReadCount(); left > 0; --left)
            m_children.push_back(static_cast<Node*>(archive.ReadObject(GetThisRuntimeClassDescriptor())));
    }

    CXTString<wchar_t> m_name;
    Material* m_material = nullptr;
    std::vector<Node*> m_children;
};

X_IMPLEMENT_CLASS(Material, CXObject, 2 | xSchemaVersionable)
X_IMPLEMENT_CLASS(Node, CXObject, 1)

void Print(const Node& node, int depth)
{
    CXTString<char> line;
    line.Format("%*s%S", 2 * depth, "", node.m_name.GetConstBuffer());
    if (node.m_material != nullptr)
        line.AppendFormat(" (%S, shine %.2f)", node.m_material->m_name.GetConstBuffer(), node.m_material->m_shine);
    std::puts(line);
    for (const Node* child : node.m_children)
        Print(*child, depth + 1);
}

void Save(const Node& scene, const wchar_t* path)
{
    XReplaceFile(path, [&](CXFile& file) { // the old file stays until the new one is complete
        CXArchive archive(&file, xArchiveStore);
        archive << &scene;
    });
}

// The objects belong to the caller, each once, however many links lead to it.
Node* Load(const wchar_t* path, std::vector<std::unique_ptr<CXObject>>& objects)
{
    CXFile file(path, CXFile::modeRead);
    CXArchive archive(&file, xArchiveLoad | xArchiveStrict);
    const auto take = [&] {
        for (CXObject* object : archive.GetCreatedObjects())
            objects.emplace_back(object);
    };
    try
    {
        auto* scene = static_cast<Node*>(archive.ReadObject(Node::GetThisRuntimeClassDescriptor()));
        take();
        return scene;
    }
    catch (...)
    {
        take();
        throw;
    }
}
} // namespace

int main()
{
    Material oak(L"oak", 0.2f);
    Node scene;
    Node table;
    Node chair;
    Node lamp;
    scene.m_name = L"room";
    table.m_name = L"table";
    chair.m_name = L"chair";
    lamp.m_name = L"lamp";
    table.m_material = &oak;
    chair.m_material = &oak;
    scene.m_children = {&table, &chair, &lamp};
    try
    {
        Save(scene, L"scene.tevarc");
        std::vector<std::unique_ptr<CXObject>> objects;
        const Node* loaded = Load(L"scene.tevarc", objects);
        Print(*loaded, 0);
        const bool shared = loaded->m_children[0]->m_material == loaded->m_children[1]->m_material;
        std::printf("%zu objects, the material is %s\n", objects.size(), shared ? "shared" : "not shared");
        return shared ? 0 : 1;
    }
    catch (CXArchiveException* e)
    {
        std::fprintf(stderr, "%s\n", CXTString<char>(XGetExceptionText(e)).GetConstBuffer());
        e->Delete();
    }
    catch (CXFileException* e)
    {
        std::fprintf(stderr, "%s\n", CXTString<char>(XGetExceptionText(e)).GetConstBuffer());
        e->Delete();
    }
    return 1;
}
