#pragma once

#include "arrays/CElementMethods.h"
#include "objects/CXObject.h"
#include "objects/ThreadUse.h"

#include <cstddef>

/// An array whose elements are described at run time by a CElementMethods object, which an archive records by its class.
/// Take CXArray or std::vector where the type is known when the program is compiled. One thread at a time.
///
/// Compared with std::vector: elements are reached by address and null past the end; they are moved as bytes; the
/// growth step can be seen and set. Whatever makes the array grow, SetMethods, FreeExtra, PreAllocate and a size of 0
/// invalidate addresses; insertion and removal those of the elements behind. Sizes and positions that are negative or
/// too large throw CXInvalidArgException, and no memory std::bad_alloc, as does an array without methods that is to
/// grow. The array is as before then, and also where a kind throws, unless an operation says otherwise.
///
/// Arguments may be elements of the array itself, or the array. XLastFailure() says why false or -1 was returned.
class TEVTOOLS_API CElementArray : public CXObject
{
public:
    X_DECLARE_LIBRARY_CLASS(CElementArray)

    /// Takes over one reference to the methods. Without methods the array stays empty until SetMethods or Serialize.
    explicit CElementArray(CElementMethods* methods = nullptr);
    CElementArray(const CElementArray&) = delete;
    CElementArray& operator=(const CElementArray&) = delete;
    ~CElementArray() override;

    /// Reads or writes the array with the class of its methods. Reading replaces the methods, and sets the growth and
    /// construct mode as SetMethods does. A class that makes no methods is archiveBadClass, a count that no array can have
    /// archiveEndOfFile. After a failed reading the elements are unspecified, but valid.
    void Serialize(CXArchive& archive) override;
    /// New elements are constructed. With `keepMemory`, removed elements and the memory are kept for later ones, else
    /// elements are destructed, and at size 0 the memory is freed. `growFactor` is how many elements the array gains when
    /// it must grow: 0 for an eighth, at least 4 and at most 1024; -2 to double; -1 leaves it as it is; others below
    /// are invalid arguments.
    virtual void SetSize(int newSize, bool keepMemory = false, int growFactor = -1);
    /// Destructs the elements and frees the memory.
    virtual void RemoveAll();
    /// A new array, for the caller to delete, that shares the methods and holds copies of the elements.
    [[nodiscard]] virtual CElementArray* Duplicate(bool keepMemory = false) const;

    int GetSize() const noexcept { return m_size; }
    int GetUpperBound() const noexcept { return m_size - 1; }
    unsigned __int64 GetSizeOfElement() const noexcept { return m_elementSize; }
    /// 0 without methods.
    unsigned int GetTypeOfElement() const;
    unsigned int GetBaseTypeOfElement() const;
    /// The address of an element; null where none is.
    void* ElementAt(int index) noexcept { return AddressOrNull(index); }
    const void* ElementAt(int index) const noexcept { return AddressOrNull(index); }
    void* operator[](int index) noexcept { return ElementAt(index); }
    const void* operator[](int index) const noexcept { return ElementAt(index); }
    void* GetFirst() noexcept { return ElementAt(0); }
    const void* GetFirst() const noexcept { return ElementAt(0); }
    /// The element behind the given one; null at the end, and where the given one is none of the array.
    void* GetNext(const void* element) noexcept { return ElementAt(IndexBehind(element)); }
    const void* GetNext(const void* element) const noexcept { return ElementAt(IndexBehind(element)); }
    /// Of the elements' bytes, with those between their members: from the last to the first, sign-extended, FNV-1a.
    unsigned int GetChecksum() const noexcept;

    /// Empties the array, takes over one reference to other methods, and resets growth to 0 and construct mode to off.
    void SetMethods(CElementMethods* methods);
    /// Returns the setting before. A negative one changes nothing.
    int SetGrowFactor(int growFactor) noexcept;
    /// In construct mode the elements of the reserve are constructed too, and growing into it leaves them as they are. Where
    /// those of removed elements cannot be constructed again, the elements are removed all the same.
    void ConstructMode(bool construct);
    /// Empties the array and makes room for so many elements; nothing happens when it is empty and has that room. Without
    /// memory the array is left empty.
    void PreAllocate(int capacity);
    /// Frees the memory of the reserve.
    void FreeExtra();

    /// Copies a value into an element; where a kind is plain bytes, null means zeros.
    void SetAt(int index, const void* source);
    /// As SetAt; past the end the array grows to it.
    void SetAtGrow(int index, const void* source, int growFactor = -1);
    /// Returns the index of the new element.
    int Add(const void* source, int growFactor = -1);
    /// Returns the index of the first of the copies; -1 when neither kind can copy the other.
    int Append(const CElementArray& other, bool keepMemory = false);
    /// Makes this array a copy, with the growth of the other but with its own methods. False, and nothing changed, when
    /// neither kind can copy the other. Elements are unspecified, but valid, where a kind throws.
    bool Copy(const CElementArray& other, bool keepMemory = false);
    /// Copies the elements of the other array from one to its last, growing this one. False, and a throwing kind, as above.
    bool Copy(int targetIndex, int sourceIndex, const CElementArray& other);
    /// Makes room for `count` elements, constructed behind the end where the index lies past it, and copies the value into
    /// each; null leaves them as constructed.
    void InsertAt(int index, const void* source, int count = 1);
    void InsertAt(int index, std::nullptr_t) { InsertAt(index, static_cast<const void*>(nullptr)); }
    /// Inserts copies of all elements. False as above; a null array is an invalid argument.
    bool InsertAt(int index, const CElementArray* other);
    /// Keeps the memory.
    void RemoveAt(int index, int count = 1);
    /// Puts element order[i] at i; with `inverse`, element i at order[i]. False, and nothing changed, when the order is no
    /// permutation of the elements, or there are none. Elements are unspecified, but valid, where a kind throws.
    bool Reorder(const unsigned int* order, unsigned int count, bool inverse);

private:
    bool IsElement(int index) const noexcept { return index >= 0 && index < m_size; }
    unsigned char* Address(int index) const noexcept
    {
        return m_data + static_cast<std::size_t>(index) * static_cast<std::size_t>(m_elementSize);
    }
    void* AddressOrNull(int index) const noexcept
    {
        const tev::SharedUse use(m_use);
        return IsElement(index) ? Address(index) : nullptr;
    }
    std::size_t Bytes(int count) const noexcept
    {
        return static_cast<std::size_t>(count) * static_cast<std::size_t>(m_elementSize);
    }
    int IndexBehind(const void* element) const noexcept;
    bool Owns(const void* element) const noexcept;
    bool HasSameElements(const CElementArray& other) const;
    bool IsEitherKindOf(const CElementArray& other) const;
    bool CanCopy(const CElementArray& other) const;

    void Install(CElementMethods* methods);
    void Release() noexcept;
    void Resize(int newSize, bool keepMemory, int growFactor);
    void SetCapacity(int capacity) noexcept;
    void GrowTo(int capacity);
    void Reallocate(int slots);
    void ConstructUpTo(int end);
    void Destroy(int first, int last) noexcept;
    void DestroyReserve() noexcept;
    void RestoreReserve(int first, int last);
    void ChangeSize(int newSize, bool keepMemory);
    template <class FILL>
    void InsertGap(int index, int count, FILL fill);
    void CopyValue(void* target, const void* source);
    void CopyRun(int targetIndex, const CElementArray& other, int sourceIndex, int count);
    void Store(CXArchive& archive);
    void Load(CXArchive& archive);
    void LoadBytes(CXArchive& archive, int count);
    void LoadObjects(CXArchive& archive, int count);

    CElementMethods* m_methods = nullptr;
    unsigned char* m_data = nullptr;
    unsigned __int64 m_elementSize = 0;
    int m_size = 0;
    int m_capacity = 0;
    int m_growFactor = 0;
    bool m_constructMode = false;
    bool m_isObject = false;
    int m_slots = 0;       ///< of the memory; those beyond the capacity are there for growth
    int m_constructed = 0; ///< slots with elements: those in use, what keepMemory left, the reserve of construct mode
    /// Up to here plain bytes are added without SetSize: the capacity, but 0 where that would be noticed, by a class that
    /// overrides it or by a kind.
    int m_directEnd = 0;
    tev::ThreadUse m_use;
};
