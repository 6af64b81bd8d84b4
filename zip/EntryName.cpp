#include "zip/EntryName.h"

#include "text/CaseFolding.h"
#include "text/Utf.h"

#include <algorithm>
#include <cstddef>

namespace tev
{
namespace
{
constexpr std::size_t kMostComponentBytes = 255;
constexpr std::size_t kMostBytes = 4095;
constexpr std::size_t kMostComponents = 256;

/// Devices that open under these names in every folder, whatever extension follows.
constexpr std::string_view kDevices[] = {"AUX", "CLOCK$", "CON", "CONIN$", "CONOUT$", "NUL", "PRN"};
/// Devices with a digit behind; the raised digits count as digits.
constexpr std::string_view kNumberedDevices[] = {"COM", "LPT"};
constexpr std::string_view kRaisedDigits[] = {"\xC2\xB9", "\xC2\xB2", "\xC2\xB3"};

constexpr bool IsLetter(char c)
{
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}

std::string UpperCase(std::string_view text)
{
    std::string upper(text);
    for (char& c : upper)
    {
        if (c >= 'a' && c <= 'z')
            c = static_cast<char>(c - 'a' + 'A');
    }
    return upper;
}

bool IsDigit(std::string_view text)
{
    return (text.size() == 1 && text[0] >= '0' && text[0] <= '9') ||
           std::find(std::begin(kRaisedDigits), std::end(kRaisedDigits), text) != std::end(kRaisedDigits);
}

bool IsDevice(std::string_view component)
{
    std::string_view title = component.substr(0, component.find_first_of(".:"));
    title = title.substr(0, title.find_last_not_of(' ') + 1);
    const std::string upper = UpperCase(title);
    if (std::find(std::begin(kDevices), std::end(kDevices), upper) != std::end(kDevices))
        return true;
    return std::any_of(std::begin(kNumberedDevices), std::end(kNumberedDevices), [&](std::string_view device) {
        return upper.compare(0, device.size(), device) == 0 && IsDigit(std::string_view(upper).substr(device.size()));
    });
}

/// Also with spaces between and behind: some systems drop these.
bool LeadsUpwards(std::string_view component)
{
    return component.find_first_not_of(". ") == component.npos;
}

bool IsSafeComponent(std::string_view component, const platform::FileNameRules& rules)
{
    return component.size() <= kMostComponentBytes && !LeadsUpwards(component) &&
           !(rules.hasDevices && IsDevice(component));
}

/// What remains of an absolute path lies beneath the destination.
std::string_view WithoutRootAndDrive(std::string_view name)
{
    for (;;)
    {
        if (!name.empty() && name[0] == '/')
            name.remove_prefix(1);
        else if (name.size() >= 2 && IsLetter(name[0]) && name[1] == ':')
            name.remove_prefix(2);
        else
            return name;
    }
}

/// Valid text decodes and encodes to itself.
bool IsUtf8(std::string_view text)
{
    const Utf8Reader reader(text.data(), text.size());
    if (Measure<Utf8Form>(reader) != text.size())
        return false;
    std::string again(text.size(), '\0');
    tev::Write<Utf8Form>(reader, again.data());
    return again == text;
}

bool IsSafeText(std::string_view name)
{
    constexpr std::string_view kForbidden("\\\0", 2);
    return name.size() <= kMostBytes && name.find_first_of(kForbidden) == name.npos && IsUtf8(name);
}

class NameHash
{
public:
    explicit NameHash(EntryNames::Compared compared) : m_isLoose(compared == EntryNames::Compared::Loosely) {}

    void AddComponent(std::string_view component)
    {
        const std::size_t size = m_isLoose ? component.find_last_not_of(". ") + 1 : component.size();
        Utf8Reader reader(component.data(), size);
        while (!reader.AtEnd())
        {
            const char32_t c = reader.Next();
            Add(m_isLoose ? platform::CaseFolded(c) : c);
        }
        Add(U'/');
    }
    std::uint64_t Value() const { return m_value; }

private:
    void Add(char32_t c)
    {
        constexpr std::uint64_t kPrime = 1099511628211; // FNV-1a
        m_value = (m_value ^ c) * kPrime;
    }

    bool m_isLoose;
    std::uint64_t m_value = 14695981039346656037u;
};
} // namespace

std::optional<EntryName> SafeEntryName(std::string_view name, const platform::FileNameRules& rules)
{
    if (!IsSafeText(name))
        return std::nullopt;
    name = WithoutRootAndDrive(name);
    EntryName safe;
    safe.m_isFolder = !name.empty() && name.back() == '/';
    std::size_t components = 0;
    for (std::size_t start = 0; start < name.size();)
    {
        const std::size_t end = std::min(name.find('/', start), name.size());
        const std::string_view component = name.substr(start, end - start);
        start = end + 1;
        if (component.empty() || component == ".")
            continue;
        if (!IsSafeComponent(component, rules))
            return std::nullopt;
        if (++components > kMostComponents)
            return std::nullopt;
        if (!safe.m_path.empty())
            safe.m_path += '/';
        safe.m_path += component;
    }
    if (safe.m_path.empty())
        return std::nullopt;
    return safe;
}

bool EntryNames::Claim(std::string_view path, bool isFolder)
{
    NameHash hash(m_compared);
    for (std::size_t start = 0;;)
    {
        const std::size_t end = path.find('/', start);
        const bool isLast = end == path.npos;
        hash.AddComponent(path.substr(start, end - start));
        if (isLast && !isFolder)
            return m_isFolder.emplace(hash.Value(), false).second;
        if (!ClaimFolder(hash.Value()))
            return false;
        if (isLast)
            return true;
        start = end + 1;
    }
}

bool EntryNames::ClaimFolder(std::uint64_t hash)
{
    return m_isFolder.emplace(hash, true).first->second;
}
} // namespace tev
