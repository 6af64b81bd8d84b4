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

/// The types that every registry knows, in the order in which they are registered.
extern const BuiltInFileType kBuiltInFileTypes[kBuiltInFileTypeCount];
} // namespace tev
