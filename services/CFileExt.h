#pragma once

#include "text/CXTString.h"

namespace tev
{
class FileTypes;
}

/// A four-character code, the first character in the highest byte: XFourCharacterCode("BMP ").
constexpr unsigned int XFourCharacterCode(const char (&code)[5]) noexcept
{
    unsigned int value = 0;
    for (int i = 0; i < 4; ++i)
        value = value << 8 | static_cast<unsigned char>(code[i]);
    return value;
}

/// The loader or saver of a type that has none.
constexpr unsigned int xFileCodeUnknown = XFourCharacterCode("UNKN");
/// The loader or saver of a type that the library itself loads or saves.
constexpr unsigned int xFileCodeBuiltIn = XFourCharacterCode("FERN");

/// Properties of a file type. The other bits of the lower half are the application's.
constexpr unsigned int xFileLoadable = 0x5;    ///< either bit
constexpr unsigned int xFileSavable = 0xA;     ///< either bit
constexpr unsigned int xFilePreferred = 0x800; ///< comes first among the types of its extensions
constexpr unsigned int xFileImage = 0x10000;
constexpr unsigned int xFile3DScene = 0x40000;
constexpr unsigned int xFileAudio = 0x80000;
constexpr unsigned int xFileVideo = 0x100000;
constexpr unsigned int xFileWeb = 0x200000;
constexpr unsigned int xFileArchive = 0x400000;
constexpr unsigned int xFileKinds = 0xFFFF0000; ///< the bits that hold the kind

/// The record of one file type. A value: one thread at a time.
class TEVTOOLS_API CFileExt
{
public:
    CFileExt() = default;
    /// Extensions are written with their dots and separated by '|': ".bmp|.dib".
    CFileExt(const CXTString<wchar_t>& description, const CXTString<wchar_t>& extensions, unsigned int fileClass,
             unsigned int properties, unsigned int loader = xFileCodeUnknown, unsigned int saver = xFileCodeUnknown);

    CXTString<wchar_t> GetDescription() const { return m_description; }
    CXTString<wchar_t> GetExtension() const { return m_extensions; }
    unsigned int GetClass() const noexcept { return m_class; }
    unsigned int GetProperties() const noexcept { return m_properties; }
    unsigned int GetKindOf() const noexcept { return m_properties & xFileKinds; }
    unsigned int GetLoader() const noexcept { return m_loader; }
    unsigned int GetSaver() const noexcept { return m_saver; }

    /// Restores the state of the default constructor.
    void Init() { *this = CFileExt(); }

private:
    friend class tev::FileTypes;

    CXTString<wchar_t> m_description;
    CXTString<wchar_t> m_extensions;
    unsigned int m_class = 0;
    unsigned int m_properties = 0;
    unsigned int m_loader = xFileCodeUnknown;
    unsigned int m_saver = xFileCodeUnknown;
    [[maybe_unused]] unsigned int m_reserved = 0;
};
