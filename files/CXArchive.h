#pragma once

#include "base/LittleEndian.h"
#include "objects/CXArchiveException.h"
#include "objects/CXObject.h"
#include "objects/ThreadUse.h"
#include "text/CXTString.h"
#include "text/TextEncoding.h"

#include <cstddef>
#include <cstdint>
#include <memory>
#include <type_traits>
#include <utility>
#include <vector>

class CXFile;

namespace tev
{
inline constexpr unsigned kNoSchema = 0xFFFFFFFFu;

/// Never defined: whether a pointer is an object's.
void TakeObject(const volatile CXObject* object);

/// Whether the class has a record of its own, and not only that of its base.
template <class CLASS, class = void>
inline constexpr bool kDeclaresItsClass = false;
template <class CLASS>
inline constexpr bool kDeclaresItsClass<CLASS, std::void_t<decltype(&CLASS::GetRuntimeClassDescriptor)>> =
    std::is_same_v<decltype(&CLASS::GetRuntimeClassDescriptor), const CXRuntimeClass* (CLASS::*)() const>;

struct ArchiveReference;
struct ArchiveReferences;
struct ReleaseArchiveReferences
{
    TEVTOOLS_API void operator()(ArchiveReferences* references) const noexcept;
};
} // namespace tev

constexpr unsigned xArchiveStore = 0;
constexpr unsigned xArchiveLoad = 1;
constexpr unsigned xArchiveNoFlushOnDelete = 2; ///< the destructor does not flush
/// For loading untrusted input: every reference is checked for the kind of what it refers to, classes that are not
/// serializable are refused, and budgets hold.
constexpr unsigned xArchiveStrict = 4;

/// The library's binary stream: scalars, counts, text and whole objects with their classes, in the byte format that
/// docs/formats.md describes. An archive has one direction, and is used over a CXFile that it neither owns nor closes.
///
/// It throws CXArchiveException, CXInvalidArgException and CXMemoryException, and passes on what the file throws. Writing
/// to a loading archive is archiveReadOnly, reading from a storing one archiveWriteOnly, either after Close or Abort
/// archiveGeneric; input that ends too early is archiveEndOfFile. What was being read is then unspecified, but valid.
/// One thread at a time.
class TEVTOOLS_API CXArchive : public CXObject
{
public:
    X_DECLARE_LIBRARY_CLASS(CXArchive)

    /// `file` must be open and stay so until the archive is closed. Without `buffer` the archive has one of its own, of at
    /// least 128 bytes; a file that exposes its memory is read and written in place instead. `buffer` must hold
    /// `bufferSize` bytes and outlive the archive, and is passed over when that is below 128. A null file is an invalid
    /// argument.
    CXArchive(CXFile* file, unsigned int mode, unsigned int bufferSize = 4096, void* buffer = nullptr);
    /// Flushes, unless the archive is closed or xArchiveNoFlushOnDelete is set. Never throws: what cannot be written
    /// then is lost, so call Close first where that matters.
    ~CXArchive() override;

    bool IsLoading() const noexcept { return (m_mode & xArchiveLoad) != 0; }
    bool IsStoring() const noexcept { return !IsLoading(); }
    /// Null after Close and Abort.
    CXFile* GetFile() const noexcept { return m_file; }
    /// A pointer of the caller's, for the objects that are read and written; the archive never looks at it.
    void* GetData() const noexcept { return m_data; }
    void SetData(void* data) noexcept { m_data = data; }
    /// The schema number that the object being loaded was written with, 0xFFFFFFFF when there is none. After a nested
    /// object it stays that object's, so an object asks before it reads its parts.
    unsigned int GetObjectSchema() const noexcept { return m_objectSchema; }

    /// How deep objects may nest in each other, 10,000 when not set; deeper is archiveGeneric, while storing as while
    /// loading. Where the thread's stack is too small for so many calls of Serialize, the limit is where it is used up.
    void SetNestingLimit(unsigned int depth) noexcept { m_nestingLimit = depth; }
    /// For loading: how many bytes may be read from now on and how many objects created, and how deep these may nest; more
    /// is archiveGeneric, and loses nothing: a later, larger budget goes on there. Without it only the nesting is limited. Has
    /// no effect on storing.
    void SetBudget(unsigned __int64 bytes, unsigned __int64 objects, unsigned int depth) noexcept;
    /// The objects that loading has created so far, in that order, without those that a std::unique_ptr took. After a
    /// failure some of them may have no owner: this is how they are found and deleted.
    std::vector<CXObject*> GetCreatedObjects() const;

    /// Returns the number of bytes delivered: fewer only at the end of the file.
    unsigned __int64 Read(void* target, unsigned __int64 count);
    /// Reads all bytes or fails.
    void EnsureRead(void* target, unsigned __int64 count);
    void Write(const void* source, unsigned __int64 count);
    /// Storing: passes what is buffered to the file. Loading: moves the file's position to the archive's; where the file
    /// cannot seek, what is buffered stays to be read. `final` says that nothing is written after it.
    void Flush(bool final = false);
    /// Flushes and detaches the file. Loading, it never throws: where the file cannot seek, its position stays. A second
    /// call does nothing.
    void Close();
    /// Detaches the file without flushing.
    void Abort();

    // Scalars. A wide character above U+FFFF has no 16-bit form: an invalid argument, and nothing is written. A bool that
    // is read takes its byte and leaves the variable as it was; stored files rely on it.

    CXArchive& operator<<(bool value) { return Store(static_cast<unsigned char>(value)); }
    CXArchive& operator<<(char value) { return Store(value); }
    CXArchive& operator<<(unsigned char value) { return Store(value); }
    CXArchive& operator<<(short value) { return Store(value); }
    CXArchive& operator<<(unsigned short value) { return Store(value); }
    CXArchive& operator<<(wchar_t value);
    CXArchive& operator<<(int value) { return Store(value); }
    CXArchive& operator<<(unsigned int value) { return Store(value); }
    CXArchive& operator<<(__int64 value) { return Store(value); }
    CXArchive& operator<<(unsigned __int64 value) { return Store(value); }
    CXArchive& operator<<(float value) { return Store(value); }
    CXArchive& operator<<(double value) { return Store(value); }

    CXArchive& operator>>(bool& value);
    CXArchive& operator>>(char& value) { return Load(value); }
    CXArchive& operator>>(unsigned char& value) { return Load(value); }
    CXArchive& operator>>(short& value) { return Load(value); }
    CXArchive& operator>>(unsigned short& value) { return Load(value); }
    CXArchive& operator>>(wchar_t& value);
    CXArchive& operator>>(int& value) { return Load(value); }
    CXArchive& operator>>(unsigned int& value) { return Load(value); }
    CXArchive& operator>>(__int64& value) { return Load(value); }
    CXArchive& operator>>(unsigned __int64& value) { return Load(value); }
    CXArchive& operator>>(float& value) { return Load(value); }
    CXArchive& operator>>(double& value) { return Load(value); }

    // The width of a long differs from platform to platform: choose a 32-bit or a 64-bit type.
    CXArchive& operator<<(long) = delete;
    CXArchive& operator<<(unsigned long) = delete;
    CXArchive& operator>>(long&) = delete;
    CXArchive& operator>>(unsigned long&) = delete;
    // These would go as an int.
    CXArchive& operator<<(signed char) = delete;
    CXArchive& operator<<(char16_t) = delete;
    CXArchive& operator<<(char32_t) = delete;
    // A pointer that is no object's would go as a bool.
    CXArchive& operator<<(const void*) = delete;

    // Text goes up to its first NUL. A narrow reader takes narrow text as it stands, whatever its tag; a wide one converts
    // it. Big-endian UTF-16 stays in the stream, and a wide reader leaves its text unchanged; stored files rely on it.

    CXArchive& operator<<(const CXTString<char>& text);
    CXArchive& operator<<(const CXTString<wchar_t>& text);
    CXArchive& operator>>(CXTString<char>& text);
    CXArchive& operator>>(CXTString<wchar_t>& text);

    CXArchive& operator<<(const CXObject* object);
    CXArchive& operator>>(CXObject*& object);
    CXArchive& operator>>(const CXObject*& object);
    /// As ReadObject with the pointer's class: an object of another class is archiveBadClass, nothing of it is created, and
    /// the pointer stays as it was.
    template <class POINTER, class CLASS = std::remove_cv_t<std::remove_pointer_t<POINTER>>,
              class = std::enable_if_t<std::is_pointer_v<POINTER> && !std::is_const_v<POINTER> &&
                                       !std::is_same_v<CLASS, CXObject>>,
              class = decltype(tev::TakeObject(std::declval<POINTER&>()))>
    CXArchive& operator>>(POINTER& object)
    {
        static_assert(tev::kDeclaresItsClass<CLASS>,
                      "the archive cannot know the class: it lacks X_DECLARE_CLASS, or has it in a private part");
        object = static_cast<POINTER>(ReadObject(CLASS::GetThisRuntimeClassDescriptor()));
        return *this;
    }

    /// As with a plain pointer, but what is read belongs to the given one, which then deletes what it had. An object that
    /// occurred before has an owner already: archiveBadIndex. After a failure the pointer is as it was, and what was read of
    /// the object is deleted: where owners hold all that they read by std::unique_ptr, nothing is left.
    template <class CLASS, class = std::enable_if_t<std::is_base_of_v<CXObject, CLASS>>>
    CXArchive& operator>>(std::unique_ptr<CLASS>& object)
    {
        static_assert(tev::kDeclaresItsClass<std::remove_cv_t<CLASS>>,
                      "the archive cannot know the class: it lacks X_DECLARE_CLASS, or has it in a private part");
        object.reset(static_cast<CLASS*>(ReadOwnedObject(CLASS::GetThisRuntimeClassDescriptor())));
        return *this;
    }
    template <class CLASS, class = std::enable_if_t<std::is_base_of_v<CXObject, CLASS>>>
    CXArchive& operator<<(const std::unique_ptr<CLASS>& object)
    {
        return *this << static_cast<const CXObject*>(object.get());
    }

    /// The form in which containers write how many elements follow: 2, 6 or 14 bytes.
    void WriteCount(unsigned __int64 count);
    unsigned __int64 ReadCount();
    void WriteStringLength(unsigned __int64 length, xStringEncoding encoding);
    unsigned __int64 ReadStringLength(xStringEncoding& encoding);

    /// Writes an object with its class once and references from then on; null is a reference too. Objects are told apart by
    /// their address, so they must live until the archive is closed. Where it fails, reading that far is archiveEndOfFile.
    void WriteObject(const CXObject* object);
    /// Reads what WriteObject wrote. The object belongs to the caller, once, however many references lead to it. With a
    /// requested class, an object of another class is archiveBadClass.
    CXObject* ReadObject(const CXRuntimeClass* requested);
    void WriteClass(const CXRuntimeClass* type);
    /// Reads a class, its schema and its reference. Where an object reference stands instead: null, with the reference in
    /// `objectTag`, or archiveBadIndex when that is null.
    const CXRuntimeClass* ReadClass(const CXRuntimeClass* requested, unsigned int* schema, unsigned int* objectTag);
    /// Writes the class, or reads one and checks that it is the given one or derived from it.
    void SerializeClass(const CXRuntimeClass* type);

    CXArchive(const CXArchive&) = delete;
    CXArchive& operator=(const CXArchive&) = delete;

protected:
    /// Write the length with the tag of the encoding and the characters as they are, 1 or 2 bytes each, up to the NUL.
    void WriteString(const char* text, xStringEncoding encoding);
    void WriteString(const wchar_t* text, xStringEncoding encoding);

private:
    friend struct CXRuntimeClass;

    // Bytes may alias anything, the position too. It is written last and from a local, so that of several scalars in a
    // row only the first one has to look at it.
    template <class T>
    CXArchive& Store(T value)
    {
        const tev::ExclusiveUse use(m_use);
        unsigned char* target = m_current;
        if (reinterpret_cast<std::uintptr_t>(target) + sizeof(T) > m_storeLimit)
            target = MakeRoom(sizeof(T));
        tev::StoreLittleEndian(target, value);
        m_current = target + sizeof(T);
        return *this;
    }

    template <class T>
    CXArchive& Load(T& value)
    {
        const tev::ExclusiveUse use(m_use);
        unsigned char* source = m_current;
        if (reinterpret_cast<std::uintptr_t>(source) + sizeof(T) > m_loadLimit)
            source = Provide(sizeof(T));
        value = tev::LoadLittleEndian<T>(source);
        m_current = source + sizeof(T);
        return *this;
    }

    template <class T>
    T LoadValue()
    {
        T value;
        Load(value);
        return value;
    }

    CXFile& RequireStoring() const;
    CXFile& RequireLoading() const;
    [[noreturn]] void Fail(ArchiveExceptionType cause) const;
    unsigned char* MakeRoom(std::size_t count);
    unsigned char* Provide(std::size_t count);
    void FillBuffer(std::size_t needed);
    void Fetch(std::size_t wanted);
    void SetBuffer(unsigned char* start, unsigned char* current, unsigned char* end) noexcept;
    void RequestBlock();
    void ReturnUnread();
    void MoveToFront() noexcept;
    bool IsOverBudget();
    void Detach() noexcept;
    unsigned __int64 ReadPast(unsigned char* target, unsigned __int64 count);
    void WriteUnits(const wchar_t* text, std::size_t length, xStringEncoding encoding);
    std::size_t ReadTextLength(xStringEncoding& encoding);
    void ReadUnits(CXTString<wchar_t>& text, std::size_t length);
    void ReadBytes(CXTString<char>& bytes, std::size_t count);
    template <class Resize>
    void ReadInSteps(std::size_t count, Resize resize);

    void CheckNesting() const;
    void WriteReference(unsigned int index, unsigned int classBit);
    unsigned int NextIndex();
    tev::ArchiveReferences& GetReferences();
    void EnterStored(const void* objectOrClass);
    void EnterLoaded(const tev::ArchiveReference& reference);
    const CXRuntimeClass* ReadNewClass();
    const CXRuntimeClass* ReferredClass(unsigned int index);
    CXObject* ReadOwnedObject(const CXRuntimeClass* requested);
    CXObject* ReadNewObject(const CXRuntimeClass* type, unsigned int schema, bool isOwned);
    void ForgetOwned(std::size_t first) noexcept;
    CXObject* ReferredObject(unsigned int tag, const CXRuntimeClass* requested) const;

    CXTString<wchar_t> m_fileName;
    CXFile* m_file;
    unsigned int m_mode;
    bool m_userBuffer;   ///< the memory is the caller's or the file's
    bool m_directBuffer; ///< the file exposes its memory
    unsigned __int64 m_bufferSize;
    unsigned char* m_start;
    unsigned char* m_current; ///< storing: pending bytes are before it; loading: unread ones after it
    unsigned char* m_end;
    unsigned int m_objectSchema;
    unsigned int m_mapCount; ///< the next index for an object or a class; 0 is the null reference
    std::unique_ptr<tev::ArchiveReferences, tev::ReleaseArchiveReferences> m_references;
    void* m_data;

    // The end of the buffer in the one direction that the archive has, 0 in the other and when it is closed: one
    // comparison of a scalar finds a full buffer and a misuse alike.
    std::uintptr_t m_storeLimit;
    std::uintptr_t m_loadLimit;
    unsigned int m_nestingLimit;
    unsigned int m_nesting;
    unsigned __int64 m_bytesLeft; ///< of the budget, to be taken from the file
    unsigned __int64
        m_withheld; ///< bytes behind m_end that the file has delivered beyond the budget; none are left then
    unsigned __int64 m_objectsLeft;
    tev::ThreadUse m_use;
};
