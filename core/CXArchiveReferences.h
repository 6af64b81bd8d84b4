#pragma once

#include <unordered_map>
#include <vector>

class CXObject;

namespace tev
{
constexpr unsigned kNoSchema = 0xFFFFFFFFu;

/// An object or class that an archive has loaded.
struct ArchiveReference
{
    enum class Kind : unsigned
    {
        kNone = 0,
        kClass = 1,
        kObject = 2
    };

    CXObject* Object() const noexcept { return const_cast<CXObject*>(static_cast<const CXObject*>(m_pointer)); }

    const void* m_pointer = nullptr;
    Kind m_kind = Kind::kNone;
    unsigned m_schema = kNoSchema; ///< of a class, as it stood in the archive
};

/// What an archive knows of the objects and classes that have gone through it, by one common index.
struct ArchiveReferences
{
    std::unordered_map<const void*, unsigned> m_stored;
    std::vector<ArchiveReference> m_loaded; ///< starts with the null reference; empty before the first class
};
} // namespace tev
