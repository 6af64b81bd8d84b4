#pragma once

#include <TevTools.h>

namespace host
{
/// What the host remembers, in a preference file that running copies share: each reads it anew, and changes it under the
/// lock of its folder.
class Preferences
{
public:
    explicit Preferences(const CPathString& path) : m_path(path) {}

    /// The latest first.
    std::vector<CXTString<wchar_t>> GetRecentFiles() const;
    void AddRecentFile(const CXTString<wchar_t>& path) const;
    /// As the window gave it; empty at first.
    std::vector<unsigned char> GetWindowPlace() const;
    void SetWindowPlace(const void* place, unsigned size) const;
    bool GetAsWires() const;
    void SetAsWires(bool asWires) const;

private:
    template <class Change>
    void Update(const Change& change) const;

    CPathString m_path;
};
} // namespace host
