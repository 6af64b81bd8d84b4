// An array with elements chosen at run time: own and predefined kinds, in one archive.

#include <TevTools.h>

#include <cstdio>

namespace
{
struct Vertex
{
    float x = 0;
    float y = 0;
    float z = 0;
};

class VertexElements : public CXPlainElements<Vertex, XElementType("VERT")>
{
public:
    X_DECLARE_CLASS(VertexElements)
};

X_IMPLEMENT_CLASS(VertexElements, CElementMethods, 1)

void Print(const CElementArray& array)
{
    if (array.GetTypeOfElement() == XElementType("VERT"))
    {
        for (const void* at = array.GetFirst(); at != nullptr; at = array.GetNext(at))
        {
            const auto* vertex = static_cast<const Vertex*>(at);
            std::printf("vertex %g %g %g\n", vertex->x, vertex->y, vertex->z);
        }
    }
    else if (array.GetTypeOfElement() == XElementType("UNIC"))
    {
        for (const void* at = array.GetFirst(); at != nullptr; at = array.GetNext(at))
            std::printf("text %s\n", CXTString<char>(*static_cast<const CXTString<wchar_t>*>(at)).GetConstBuffer());
    }
}
} // namespace

int main()
{
    CElementArray vertices(new VertexElements); // the kind belongs to the array
    const Vertex corner = {1, 2, 3};
    vertices.Add(&corner);
    vertices.Add(nullptr); // zeros

    CElementArray names(new CXStringElements);
    const CXTString<wchar_t> name = L"corner";
    names.Add(&name);
    try
    {
        CXMemFile file;
        CXArchive store(&file, xArchiveStore);
        vertices.Serialize(store);
        names.Serialize(store);
        store.Close();

        file.SeekToBegin();
        CXArchive load(&file, xArchiveLoad | xArchiveStrict);
        for (int i = 0; i < 2; ++i)
        {
            CElementArray array; // the archive says of what kind
            array.Serialize(load);
            Print(array);
        }
        return 0;
    }
    catch (CXArchiveException* e)
    {
        std::fprintf(stderr, "%s\n", CXTString<char>(XGetExceptionText(e)).GetConstBuffer());
        e->Delete();
    }
    return 1;
}
