#pragma once

namespace tev
{
struct BuiltInFileType
{
    const char* m_description;
    const char* m_extensions;
    unsigned m_class;
    unsigned m_properties;
};

constexpr unsigned kBuiltInFileTypeCount = 31;

/// The types of a new registry, in the order of registration.
extern const BuiltInFileType kBuiltInFileTypes[kBuiltInFileTypeCount];
} // namespace tev
