#include "platform/CodePages.h"

#include "platform/posix/text/SystemTextLock.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdio>
#include <iconv.h>

namespace tev::platform
{
namespace
{
struct CodePageName
{
    unsigned m_codePage;
    const char* m_name;
};

// Those whose name does not follow from the number; see NameOf for the others.
constexpr CodePageName kNames[] = {
    {708, "ISO-8859-6"},    {10000, "MACINTOSH"},   {10017, "MAC-UK"},      {10029, "MAC-CENTRALEUROPE"},
    {10079, "MAC-IS"},      {20127, "ASCII"},       {20866, "KOI8-R"},      {20932, "EUC-JP"},
    {20936, "EUC-CN"},      {20949, "EUC-KR"},      {21025, "CP1025"},      {21866, "KOI8-U"},
    {38598, "ISO-8859-8"},  {50220, "ISO-2022-JP"}, {50221, "ISO-2022-JP"}, {50222, "ISO-2022-JP"},
    {50225, "ISO-2022-KR"}, {50227, "ISO-2022-CN"}, {51932, "EUC-JP"},      {51936, "EUC-CN"},
    {51949, "EUC-KR"},      {51950, "EUC-TW"},      {54936, "GB18030"},     {65000, "UTF-7"},
};

/// The system's name of a code page, which may turn out to be unknown to it.
std::string NameOf(unsigned codePage)
{
    const auto* special = std::find_if(std::begin(kNames), std::end(kNames),
                                       [codePage](const CodePageName& name) { return name.m_codePage == codePage; });
    if (special != std::end(kNames))
        return special->m_name;
    char name[24];
    if (codePage >= 28591 && codePage <= 28606)
        std::snprintf(name, sizeof name, "ISO-8859-%u", codePage - 28590);
    else if (codePage >= 20000 && codePage < 21000) // a mainframe's code page has its own number there, plus 20000
        std::snprintf(name, sizeof name, "CP%03u", codePage - 20000);
    else
        std::snprintf(name, sizeof name, "CP%03u", codePage);
    return name;
}

enum class Direction
{
    decode,
    encode
};

const iconv_t kNoDescriptor = reinterpret_cast<iconv_t>(-1);

iconv_t OpenDescriptor(unsigned codePage, Direction direction)
{
    const std::string name = NameOf(codePage);
    const SystemTextGuard guard;
    return direction == Direction::decode ? iconv_open("WCHAR_T", name.c_str()) : iconv_open(name.c_str(), "WCHAR_T");
}

// Static destructors that convert text run after the main thread's cache is destroyed.
thread_local bool t_cacheEnded = false;

void CloseDescriptor(iconv_t handle) noexcept
{
    const SystemTextGuard guard;
    iconv_close(handle);
}

/// The descriptors that a thread used last. To open one takes far longer than to convert a line of text.
class DescriptorCache
{
public:
    DescriptorCache() = default;
    DescriptorCache(const DescriptorCache&) = delete;
    DescriptorCache& operator=(const DescriptorCache&) = delete;
    ~DescriptorCache()
    {
        for (Entry& entry : m_entries)
            Close(entry);
        t_cacheEnded = true;
    }

    iconv_t Find(unsigned codePage, Direction direction)
    {
        for (const Entry& entry : m_entries)
        {
            if (entry.m_handle != kNoDescriptor && entry.m_codePage == codePage && entry.m_direction == direction)
                return entry.m_handle;
        }
        const iconv_t handle = OpenDescriptor(codePage, direction);
        if (handle == kNoDescriptor)
            return handle;
        Entry& oldest = m_entries[m_oldest];
        m_oldest = (m_oldest + 1) % m_entries.size();
        Close(oldest);
        oldest = {codePage, direction, handle};
        return handle;
    }

private:
    struct Entry
    {
        unsigned m_codePage = 0;
        Direction m_direction = Direction::decode;
        iconv_t m_handle = kNoDescriptor;
    };

    static void Close(const Entry& entry)
    {
        if (entry.m_handle != kNoDescriptor)
            CloseDescriptor(entry.m_handle);
    }

    std::array<Entry, 8> m_entries;
    size_t m_oldest = 0;
};

thread_local DescriptorCache t_cache;

/// A descriptor in its initial state, for one conversion.
class Descriptor
{
public:
    Descriptor(unsigned codePage, Direction direction)
        : m_owned(t_cacheEnded),
          m_handle(m_owned ? OpenDescriptor(codePage, direction) : t_cache.Find(codePage, direction))
    {
        if (IsOpen())
            iconv(m_handle, nullptr, nullptr, nullptr, nullptr);
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    ~Descriptor()
    {
        if (m_owned && IsOpen())
            CloseDescriptor(m_handle);
    }
    bool IsOpen() const { return m_handle != kNoDescriptor; }

    /// Appends what the units become and returns 0, or the error that stopped it: EILSEQ or EINVAL. `from` and `count`
    /// then describe what was not converted.
    template <class From, class To>
    int Convert(const From*& from, size_t& count, std::basic_string<To>& to)
    {
        // The C library's interface has no const, but it does not write to the input.
        char* in = reinterpret_cast<char*>(const_cast<From*>(from));
        size_t inLeft = count * sizeof(From);
        int error = 0;
        do
            error = Step(&in, &inLeft, to);
        while (error == E2BIG);
        from = reinterpret_cast<const From*>(in);
        count = inLeft / sizeof(From);
        return error;
    }

    /// Appends what the converter has kept back and returns to the initial state.
    template <class To>
    void Finish(std::basic_string<To>& to)
    {
        Step(nullptr, nullptr, to);
    }

private:
    template <class To>
    int Step(char** in, size_t* inLeft, std::basic_string<To>& to)
    {
        To chunk[1024];
        char* out = reinterpret_cast<char*>(chunk);
        size_t outLeft = sizeof chunk;
        const int error = iconv(m_handle, in, inLeft, &out, &outLeft) == static_cast<size_t>(-1) ? errno : 0;
        to.append(chunk, (sizeof chunk - outLeft) / sizeof(To));
        return error;
    }

    bool m_owned;
    iconv_t m_handle;
};

/// Their decoders keep a letter back until they know that no accent follows.
bool IsComposing(unsigned codePage)
{
    return codePage == 1255 || codePage == 1258;
}

/// The C library's encoders drop language tags (U+E0000 to U+E007F) silently where the code page lacks them.
bool IsTag(wchar_t c)
{
    return c >= 0xE0000 && c <= 0xE007F;
}

void AppendSubstitute(Descriptor& descriptor, std::string& bytes)
{
    const wchar_t* substitute = L"?";
    size_t one = 1;
    descriptor.Convert(substitute, one, bytes);
}
void NoteReplaced(ReplacedText* replaced, std::ptrdiff_t index)
{
    if (replaced != nullptr && replaced->m_count++ == 0)
        replaced->m_first = static_cast<size_t>(index);
}
} // namespace

bool DecodeCodePage(unsigned codePage, const char* bytes, size_t size, std::wstring& text, ReplacedText* replaced)
{
    const char* const begin = bytes;
    Descriptor descriptor(codePage, Direction::decode);
    if (!descriptor.IsOpen())
        return false;
    while (const int error = descriptor.Convert(bytes, size, text))
    {
        if (IsComposing(codePage))
            descriptor.Finish(text);
        text += static_cast<wchar_t>(0xFFFD);
        NoteReplaced(replaced, bytes - begin);
        if (error != EILSEQ)
            break;
        ++bytes;
        --size;
    }
    descriptor.Finish(text);
    return true;
}

bool EncodeCodePage(unsigned codePage, const wchar_t* text, size_t length, std::string& bytes, ReplacedText* replaced)
{
    const wchar_t* const begin = text;
    Descriptor descriptor(codePage, Direction::encode);
    if (!descriptor.IsOpen())
        return false;
    const wchar_t* const end = text + length;
    const wchar_t* runEnd = text;
    while (text != end)
    {
        const bool isTag = IsTag(*text);
        // A run that stops at something to substitute continues after it; its end is searched for only once.
        if (isTag)
            runEnd = text + 1;
        else if (runEnd <= text)
            runEnd = std::find_if(text, end, IsTag);
        const size_t sizeBefore = bytes.size();
        size_t left = static_cast<size_t>(runEnd - text);
        if (descriptor.Convert(text, left, bytes) != 0)
            ++text;
        else if (!isTag || bytes.size() != sizeBefore)
            continue;
        AppendSubstitute(descriptor, bytes);
        NoteReplaced(replaced, text - begin - 1);
    }
    descriptor.Finish(bytes);
    return true;
}
} // namespace tev::platform
