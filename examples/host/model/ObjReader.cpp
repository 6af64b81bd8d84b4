#include "examples/host/model/ObjReader.h"

#include <charconv>
#include <climits>
#include <string>
#include <string_view>
#include <unordered_map>

X_IMPLEMENT_ABSTRACT_CLASS(host::ModelException, CXException, xSchemaNotSerializable)

namespace host
{
namespace
{
CXTString<wchar_t> InLine(unsigned __int64 line, const CXTString<wchar_t>& reason)
{
    if (line == 0)
        return reason;
    CXTString<wchar_t> text;
    text.Format(Say(L"line %I64u: %s", L"ligne %I64u : %s").GetConstBuffer(), line, reason.GetConstBuffer());
    return text;
}

/// The words of a file, line by line, in pieces of bounded size.
class Words
{
public:
    Words(CXFile& file, const Progress& progress) : m_file(file), m_progress(progress), m_total(file.GetLength()) {}

    /// The first word of the next line that has one. False at the end of the file.
    bool NextLine(std::string& word)
    {
        while (!m_isAtEnd)
        {
            SkipLine();
            ++m_line;
            if (Next(word))
                return true;
        }
        return false;
    }

    /// The next word of the line. False where the line ends.
    bool Next(std::string& word)
    {
        word.clear();
        SkipBlanks();
        while (!IsEndOfWord(Peek()))
        {
            if (word.size() == kLongestWord)
                Fail(Say(L"a word is too long", L"un mot est trop long"));
            word += static_cast<char>(Take());
        }
        return !word.empty();
    }

    /// What is left of the line, without blanks at its ends: names have blanks.
    CXTString<wchar_t> Rest()
    {
        std::string text;
        SkipBlanks();
        while (Peek() != '\n' && Peek() != kEnd)
        {
            if (text.size() == kLongestWord)
                Fail(Say(L"a name is too long", L"un nom est trop long"));
            text += static_cast<char>(Take());
        }
        return XDecodeUtf8(text).TrimRight();
    }

    [[noreturn]] void Fail(const CXTString<wchar_t>& reason) const { XThrow<ModelException>(m_line, reason); }

private:
    static constexpr std::size_t kLongestWord = 4096;
    static constexpr int kEnd = -1;

    static bool IsBlank(int character) { return character == ' ' || character == '\t' || character == '\r'; }
    static bool IsEndOfWord(int character)
    {
        return IsBlank(character) || character == '\n' || character == kEnd || character == '#' || character == '\\';
    }

    int Peek()
    {
        if (m_next == m_size && !m_isAtEnd)
            Fill();
        return m_isAtEnd ? kEnd : m_buffer[m_next];
    }
    int Take()
    {
        const int character = Peek();
        if (character != kEnd)
            ++m_next;
        return character;
    }
    void Fill()
    {
        if (m_progress && !m_progress(m_done, m_total))
            CXUserException::Throw();
        m_next = 0;
        m_size = m_file.Read(m_buffer, sizeof(m_buffer));
        m_done += m_size;
        m_isAtEnd = m_size == 0;
    }
    /// A backslash at the end of a line continues it.
    void SkipBlanks()
    {
        while (IsBlank(Peek()) || Peek() == '\\')
        {
            if (Take() != '\\')
                continue;
            while (Peek() == '\r')
                Take();
            if (Peek() != '\n')
                Fail(Say(L"a backslash is not at the end of its line", L"une barre inverse n'est pas en fin de ligne"));
            Take();
            ++m_line;
        }
    }
    /// To the start of the next line; not from the start of the file.
    void SkipLine()
    {
        for (int character = m_line == 0 ? '\n' : 0; character != '\n' && character != kEnd;)
            character = Take();
    }

    CXFile& m_file;
    const Progress& m_progress;
    const unsigned __int64 m_total;
    unsigned __int64 m_done = 0;
    unsigned __int64 m_line = 0;
    unsigned char m_buffer[65536];
    unsigned m_next = 0;
    unsigned m_size = 0;
    bool m_isAtEnd = false;
};

/// A number in any locale's program, within what can be drawn.
bool ParseNumber(std::string_view word, float& number)
{
    if (!word.empty() && word.front() == '+')
        word.remove_prefix(1);
    double value = 0;
    const auto [end, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc() || end != word.data() + word.size() || !(std::fabs(value) <= kLargestCoordinate))
        return false;
    number = static_cast<float>(value);
    return true;
}

class ObjReading
{
public:
    ObjReading(CXFile& file, const ModelLimits& limits, const Progress& progress, Mesh& mesh)
        : m_words(file, progress), m_limits(limits), m_mesh(mesh)
    {
    }

    void Read(std::vector<CXTString<wchar_t>>& materialFiles)
    {
        while (m_words.NextLine(m_word))
        {
            if (m_word == "v")
                ReadVertex();
            else if (m_word == "vt")
                ReadTexturePoint();
            else if (m_word == "f")
                ReadFace();
            else if (m_word == "usemtl")
                UseMaterial();
            else if (m_word == "mtllib")
            {
                CheckRoom(materialFiles.size(), m_limits.m_materials);
                materialFiles.push_back(m_words.Rest());
            }
        }
    }

private:
    struct Corner
    {
        unsigned m_vertex;
        unsigned m_texturePoint;
    };

    void CheckRoom(std::size_t count, unsigned limit) const
    {
        if (count >= limit)
            m_words.Fail(Say(L"the model is too large", L"le mod\u00e8le est trop grand"));
    }

    float Number()
    {
        float number = 0;
        if (!m_words.Next(m_word) || !ParseNumber(m_word, number))
            m_words.Fail(Say(L"a number is missing or out of range", L"un nombre manque ou est hors limites"));
        return number;
    }

    void ReadVertex()
    {
        CheckRoom(m_mesh.m_vertices.size(), m_limits.m_vertices);
        const float x = Number();
        const float y = Number();
        m_mesh.m_vertices.push_back({x, y, Number()});
    }

    void ReadTexturePoint()
    {
        CheckRoom(m_mesh.m_texturePoints.size(), m_limits.m_vertices);
        const float u = Number();
        float v = 0; // may be left out
        if (m_words.Next(m_word) && !ParseNumber(m_word, v))
            m_words.Fail(Say(L"a number is out of range", L"un nombre est hors limites"));
        m_mesh.m_texturePoints.push_back({u, v});
    }

    /// Indexes count from 1; negative ones from the end of what was read so far.
    unsigned Index(std::string_view& text, std::size_t count) const
    {
        __int64 index = 0;
        const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), index);
        const __int64 place = index < 0 ? static_cast<__int64>(count) + index : index - 1;
        if (error != std::errc() || index == 0 || place < 0 || place >= static_cast<__int64>(count))
            m_words.Fail(Say(L"a face has a corner that does not exist", L"une face a un sommet qui n'existe pas"));
        text.remove_prefix(static_cast<std::size_t>(end - text.data()));
        return static_cast<unsigned>(place);
    }

    /// "vertex", "vertex/texture", "vertex//normal" or "vertex/texture/normal"; normals follow from the triangles.
    Corner ParseCorner(std::string_view text) const
    {
        Corner corner{Index(text, m_mesh.m_vertices.size()), Triangle::kNone};
        if (text.size() > 1 && text[0] == '/' && text[1] != '/')
        {
            text.remove_prefix(1);
            corner.m_texturePoint = Index(text, m_mesh.m_texturePoints.size());
        }
        if (!text.empty() && text.front() != '/')
            m_words.Fail(Say(L"a corner of a face is no number", L"un sommet d'une face n'est pas un nombre"));
        return corner;
    }

    void ReadFace()
    {
        Corner corners[3] = {};
        std::size_t count = 0;
        for (; m_words.Next(m_word); ++count)
        {
            corners[count < 2 ? count : 2] = ParseCorner(m_word);
            if (count < 2)
                continue;
            AddTriangle(corners);
            corners[1] = corners[2];
        }
        if (count < 3)
            m_words.Fail(Say(L"a face has fewer than three corners", L"une face a moins de trois sommets"));
    }

    void AddTriangle(const Corner (&corners)[3])
    {
        CheckRoom(m_mesh.m_triangles.size(), m_limits.m_triangles);
        Triangle triangle;
        triangle.m_material = m_material;
        bool isTextured = true;
        for (const Corner& corner : corners)
            isTextured = isTextured && corner.m_texturePoint != Triangle::kNone;
        for (int i = 0; i < 3; ++i)
        {
            triangle.m_vertices[i] = corners[i].m_vertex;
            if (isTextured)
                triangle.m_texturePoints[i] = corners[i].m_texturePoint;
        }
        m_mesh.m_triangles.push_back(triangle);
    }

    void UseMaterial()
    {
        const CXTString<wchar_t> name = m_words.Rest();
        const auto [found, isNew] = m_materials.try_emplace(name, static_cast<unsigned>(m_mesh.m_materials.size()));
        if (isNew)
        {
            CheckRoom(m_mesh.m_materials.size(), m_limits.m_materials);
            m_mesh.m_materials.emplace_back().m_name = name;
        }
        m_material = found->second;
    }

    Words m_words;
    const ModelLimits& m_limits;
    Mesh& m_mesh;
    std::string m_word;
    unsigned m_material = 0;
    std::unordered_map<CXTString<wchar_t>, unsigned> m_materials;
};

int Channel(Words& words, std::string& word)
{
    float value = 0;
    if (!words.Next(word) || !ParseNumber(word, value))
        words.Fail(Say(L"a colour needs three numbers", L"une couleur demande trois nombres"));
    return static_cast<int>(std::lround(std::fmin(std::fmax(value, 0.0F), 1.0F) * 255));
}
} // namespace

ModelException::ModelException(unsigned __int64 line, const CXTString<wchar_t>& reason)
    : CXException(InLine(line, reason)), m_line(line)
{
}

void ReadObj(CXFile& file, const ModelLimits& limits, const Progress& progress, Mesh& mesh,
             std::vector<CXTString<wchar_t>>& materialFiles)
{
    ObjReading(file, limits, progress, mesh).Read(materialFiles);
}

void ReadMtl(CXFile& file, const Progress& progress, Mesh& mesh)
{
    std::unordered_map<CXTString<wchar_t>, Material*> known;
    for (Material& material : mesh.m_materials)
        known.emplace(material.m_name, &material);
    Words words(file, progress);
    std::string word;
    for (Material* material = nullptr; words.NextLine(word);)
    {
        if (word == "newmtl")
        {
            const auto found = known.find(words.Rest());
            material = found == known.end() ? nullptr : found->second;
        }
        else if (material != nullptr && word == "Kd")
        {
            const int red = Channel(words, word);
            const int green = Channel(words, word);
            material->m_color = CRGBColor(red, green, Channel(words, word));
        }
        else if (material != nullptr && word == "map_Kd")
            material->m_textureName = words.Rest();
    }
}
} // namespace host
