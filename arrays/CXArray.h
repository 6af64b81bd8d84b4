#pragma once

#include "arrays/ArrayElements.h"
#include "arrays/ArrayGrowth.h"
#include "objects/CXObject.h"
#include "objects/ThreadUse.h"

#include <algorithm>
#include <cstddef>
#include <initializer_list>
#include <memory>
#include <new>
#include <type_traits>
#include <utility>

namespace tev
{
/// The record that all arrays share. Arrays are not made by name and do not go through an archive as objects; classes that
/// hold them pass them the archive.
TEVTOOLS_API const CXRuntimeClass* GetArrayClass() noexcept;
} // namespace tev

/// A dynamic array. TYPE is stored, ARG_TYPE is how values are passed (`int`, `const CXTString<wchar_t>&`). Values that are
/// passed may lie in the array itself. One thread at a time.
///
/// Compared with std::vector, which it follows in lists of elements, ==, and values that are moved in: sizes and indices are
/// `int`; an index outside the array and any other impossible argument
/// throw CXInvalidArgException and change nothing; new elements are zero, or made by TYPE() where that is a class. What
/// makes the array larger invalidates addresses of elements when the capacity does not suffice; insertions and removals
/// invalidate those from their place on. Appending costs constant time on average, whatever the growth setting.
///
/// The growth setting decides the capacity that a full array gets: 0 (automatic) adds an eighth of the size, at least 4, at
/// most 1024; -2 doubles; a positive one adds that many elements. The first capacity is the size, or the growth setting
/// where that is larger. Functions take one as `growBy` and keep the present one for -1, below -2 it is an invalid
/// argument.
///
/// Elements are destroyed when they are removed. Where memory is lacking, std::bad_alloc is thrown; that, and an exception
/// of an element's own while elements are added, leaves the array as it was. When an element throws as it is moved within
/// the array or assigned to, the array stays valid, with unspecified values.
///
/// In an array without plain data, growing moves elements by construction and not by assignment: the new memory holds no
/// elements to assign to. Elements whose move constructor may throw are copied.
template <class TYPE, class ARG_TYPE = const TYPE&>
class TEVTOOLS_TEMPLATE_API CXArray : public CXObject
{
    using Elements = tev::ArrayElements<TYPE>;
    static constexpr bool kHoldsBools = std::is_same_v<TYPE, bool>;

    /// Cannot be made: where values are not passed by reference, Add has one form.
    class NoValue
    {
        NoValue(const NoValue&, int);
    };
    using MovedValue = std::conditional_t<std::is_lvalue_reference_v<ARG_TYPE>, TYPE, NoValue>;

public:
    static const CXRuntimeClass* GetThisRuntimeClassDescriptor() noexcept { return tev::GetArrayClass(); }
    const CXRuntimeClass* GetRuntimeClassDescriptor() const override { return GetThisRuntimeClassDescriptor(); }

    /// `plainData` says that elements may be moved within the array as bytes, without a call of their own, which is faster.
    /// That is always so for what the compiler knows to be plain, and true for classes whose objects do not hold their own
    /// address and are not pointed to from elsewhere: CXTString is one, std::string is not. Elements are always copied and
    /// destroyed by TYPE's own functions.
    explicit CXArray(bool plainData = std::is_trivially_copyable_v<TYPE>) noexcept : m_plainData(plainData) {}
    /// Not a size: SetSize takes that.
    template <class NUMBER, class = std::enable_if_t<std::is_scalar_v<NUMBER> && !std::is_same_v<NUMBER, bool>>>
    explicit CXArray(NUMBER) = delete;
    /// The elements of a list. A single bool in braces is the plain-data flag, as it is in parentheses.
    CXArray(std::initializer_list<std::conditional_t<kHoldsBools, NoValue, TYPE>> elements) : CXArray()
    {
        Copy(elements.begin(), static_cast<unsigned>(elements.size()));
    }
    template <class BOOL, class = std::enable_if_t<std::is_same_v<BOOL, bool> && std::is_convertible_v<bool, TYPE>>>
    explicit CXArray(std::initializer_list<BOOL> bools)
        : CXArray(bools.size() == 1 ? *bools.begin() : std::is_trivially_copyable_v<TYPE>)
    {
        for (const bool* at = bools.begin(); bools.size() != 1 && at != bools.end(); ++at)
            Add(*at);
    }
    CXArray(const CXArray& other) : CXArray(other.m_plainData)
    {
        m_growBy = other.m_growBy;
        Assign(other.m_data, other.m_size);
    }
    /// The other array is empty afterwards.
    CXArray(CXArray&& other) noexcept : CXArray(other.m_plainData) { Swap(other); }
    /// As Copy: the growth setting stays.
    CXArray& operator=(const CXArray& other)
    {
        if (this != &other)
            Copy(other);
        return *this;
    }
    /// Takes over elements, growth setting and all; the other array is empty afterwards.
    CXArray& operator=(CXArray&& other) noexcept
    {
        const tev::ExclusiveUse use(m_use);
        CXArray taken(std::move(other));
        Swap(taken);
        return *this;
    }
    /// As Copy: the growth setting stays.
    CXArray& operator=(std::initializer_list<TYPE> elements)
    {
        Copy(elements.begin(), static_cast<unsigned>(elements.size()));
        return *this;
    }
    /// Whether it is the flag or an element could not be seen.
    template <class BOOL, class = std::enable_if_t<std::is_same_v<BOOL, bool> && !kHoldsBools>>
    CXArray& operator=(std::initializer_list<BOOL>) = delete;
    ~CXArray() override { Release(); }

    int GetSize() const noexcept { return m_size; }
    /// How many elements the array holds before it grows.
    int GetCapacity() const noexcept { return m_capacity; }
    [[nodiscard]] bool IsEmpty() const noexcept { return m_size == 0; }
    /// The first of GetSize() elements in a row; null when the capacity is 0.
    TYPE* GetData() noexcept { return m_data; }
    const TYPE* GetData() const noexcept { return m_data; }
    /// In bytes.
    static constexpr unsigned int GetSizeOfElement() noexcept { return sizeof(TYPE); }

    TYPE& operator[](int index) { return m_data[Checked(index)]; }
    const TYPE& operator[](int index) const { return m_data[Checked(index)]; }

    TYPE* begin() noexcept { return const_cast<TYPE*>(std::as_const(*this).begin()); }
    TYPE* end() noexcept { return m_data + m_size; }
    const TYPE* begin() const noexcept
    {
        const tev::SharedUse use(m_use);
        return m_data;
    }
    const TYPE* end() const noexcept { return m_data + m_size; }

    /// New elements are zero. A size of 0 keeps the buffer, unless `growBy` is 0: then it is freed.
    void SetSize(int newSize, int growBy = tev::kKeepGrowth)
    {
        const tev::ExclusiveUse use(m_use);
        Require(newSize >= 0);
        const int growth = tev::ChosenGrowth(m_growBy, growBy);
        if (newSize > m_size)
            return Extend(growth, [&] { AddZeros(newSize); });
        m_growBy = growth;
        if (newSize == 0 && growBy == tev::kGrowAutomatically)
            Release();
        else
            Truncate(newSize);
    }
    /// Removes every element and makes exactly that capacity, unless the array is empty and has it already. Without memory
    /// the array is left empty.
    void PreAllocate(int capacity, int growBy = tev::kKeepGrowth)
    {
        const tev::ExclusiveUse use(m_use);
        Require(capacity >= 0);
        m_growBy = tev::ChosenGrowth(m_growBy, growBy);
        if (capacity == m_capacity && m_size == 0)
            return;
        Release();
        if (capacity != 0)
            AllocateFirst(capacity, Elements::kZeroIsValue);
    }
    /// Frees the memory after the last element.
    void FreeExtra()
    {
        const tev::ExclusiveUse use(m_use);
        if (m_size == 0)
            Release();
        else if (m_slots != m_size)
            Reallocate(m_size);
        m_capacity = m_size;
    }
    /// The growth setting stays.
    void RemoveAll(bool keepMemory = false) noexcept
    {
        const tev::ExclusiveUse use(m_use);
        if (keepMemory)
            Truncate(0);
        else
            Release();
    }

    /// Stores the value; an index behind the last element first makes the array so long.
    void SetAtGrow(int index, ARG_TYPE value, int growBy = tev::kKeepGrowth)
    {
        const tev::ExclusiveUse use(m_use);
        Require(index >= 0);
        if (index < m_size)
            m_data[index] = value;
        else
            Append(index, value, growBy);
    }
    /// Returns the new element's index.
    int Add(ARG_TYPE value, int growBy = tev::kKeepGrowth)
    {
        const tev::ExclusiveUse use(m_use);
        const int index = m_size;
        if (index < m_capacity)
        {
            const int growth = tev::ChosenGrowth(m_growBy, growBy);
            ::new (static_cast<void*>(m_data + index)) TYPE(value);
            if (growBy != tev::kKeepGrowth) // else a loop of calls would write it, and wait for it, each time
                m_growBy = growth;
            m_size = index + 1;
        }
        else
            Append(index, value, growBy);
        return index;
    }
    /// As above; the value is moved in, and stays as it is when there is no memory. Where ARG_TYPE is no reference, values
    /// are passed by value.
    int Add(MovedValue&& value, int growBy = tev::kKeepGrowth)
    {
        const tev::ExclusiveUse use(m_use);
        const int index = m_size;
        if constexpr (std::is_same_v<MovedValue, TYPE>)
        {
            if (index < m_capacity)
            {
                const int growth = tev::ChosenGrowth(m_growBy, growBy);
                ::new (static_cast<void*>(m_data + index)) TYPE(Elements::Moved(value));
                if (growBy != tev::kKeepGrowth) // else a loop of calls would write it, and wait for it, each time
                    m_growBy = growth;
                m_size = index + 1;
            }
            else
                AppendMoved(value, growBy);
        }
        return index;
    }
    /// Appends the elements of the other array, which may be this one. Returns the new size.
    int AddArray(const CXArray& other)
    {
        const tev::ExclusiveUse use(m_use);
        const int newSize = Sum(m_size, other.m_size);
        Extend(m_growBy, [&] {
            Reserve(newSize);
            AppendCopies(other.m_data, newSize - m_size);
        });
        return m_size;
    }

    /// Replaces the contents. A null pointer or a count of 0 also frees the buffer. The growth setting stays.
    void Copy(const TYPE* values, unsigned int count)
    {
        const tev::ExclusiveUse use(m_use);
        if (values == nullptr || count == 0)
            return Release();
        Require(count <= unsigned(tev::kMostElements));
        Assign(values, static_cast<int>(count));
    }
    void Copy(const CXArray* other)
    {
        if (other == nullptr)
            Release();
        else
            Copy(*other);
    }
    /// Replaces the contents and takes over the plain-data flag. The growth setting stays.
    void Copy(const CXArray& other)
    {
        const tev::ExclusiveUse use(m_use);
        m_plainData = other.m_plainData;
        Assign(other.m_data, other.m_size);
    }

    /// Inserts `count` elements of that value. Behind the end, the elements in between are zero.
    void InsertAt(int index, ARG_TYPE value, int count = 1)
    {
        const tev::ExclusiveUse use(m_use);
        Require(index >= 0 && count >= 1);
        const int newSize = Sum(std::max<int>(index, m_size), count);
        TYPE copy(value);
        Extend(m_growBy, [&] {
            if (index < m_size)
                return InsertBefore(index, count, newSize, copy);
            Reserve(newSize);
            Elements::MakeBehind(m_data, m_size, index, count,
                                 [&](TYPE* at) { std::uninitialized_fill_n(at, count, copy); });
        });
    }
    /// In an array of narrow integers, NULL (a long) is mistaken for an address as in CElementArray, or the value does not fit.
    template <class NUMBER, class = std::enable_if_t<std::is_same_v<NUMBER, long> && std::is_integral_v<TYPE> &&
                                                     (sizeof(TYPE) < sizeof(NUMBER))>>
    void InsertAt(int, NUMBER, int = 1) = delete;
    /// Removes a run of elements, which must lie in the array. The capacity stays.
    void RemoveAt(int index, int count = 1)
    {
        const tev::ExclusiveUse use(m_use);
        Require(index >= 0 && count >= 0 && index <= m_size && count <= m_size - index);
        if (count == 0)
            return;
        TYPE* first = m_data + index;
        if (MovesAsBytes())
        {
            std::destroy_n(first, count);
            Elements::MoveBytes(first, first + count, m_size - index - count);
            m_size -= count;
        }
        else
        {
            std::move(first + count, end(), first);
            Truncate(m_size - count);
        }
    }
    /// Removes the elements that equal the value, or only the first one. True when there was one.
    bool Remove(ARG_TYPE value, bool firstOnly = false)
    {
        const tev::ExclusiveUse use(m_use);
        TYPE* found = std::find(begin(), end(), value);
        if (found == end())
            return false;
        if (firstOnly)
            RemoveAt(static_cast<int>(found - m_data));
        else
        {
            const TYPE copy(value);
            Truncate(static_cast<int>(Elements::RemoveEqual(found, end(), copy) - m_data));
        }
        return true;
    }

    /// Plain elements are written as their bytes, others through their archive operators or, objects, their own Serialize.
    /// Elements with none of these are archiveGeneric, and so are, while loading, those without a default constructor or
    /// that cannot be moved. When loading fails, the array holds some of the elements that could be read.
    void Serialize(CXArchive& archive) override
    {
        const tev::ExclusiveUse use(m_use);
        if (archive.IsStoring())
        {
            if constexpr (Elements::kIsStorable)
                return Elements::Store(archive, m_data, m_size);
        }
        else if constexpr (Elements::kIsLoadable)
            return Load(archive);
        tev::RefuseElements(archive);
    }

private:
    static constexpr tev::ArrayBlockShape kShape = {sizeof(TYPE), alignof(TYPE)};

    static void Require(bool holds)
    {
        if (!holds)
            tev::ThrowInvalidArgument();
    }
    static int Sum(int a, int b)
    {
        Require(a <= tev::kMostElements - b);
        return a + b;
    }
    int Checked(int index) const
    {
        const tev::SharedUse use(m_use);
        Require(index >= 0 && index < m_size);
        return index;
    }
    bool MovesAsBytes() const noexcept { return Elements::kIsPlain || m_plainData; }

    /// Makes the capacity reach a size.
    void Reserve(int newSize)
    {
        if (newSize > m_capacity)
            GrowTo(tev::GrownCapacity(m_size, m_capacity, m_growBy, newSize));
    }
    void GrowTo(int capacity)
    {
        if (m_data == nullptr)
            return AllocateFirst(capacity, false);
        if (capacity > m_slots)
            Reallocate(tev::SlotsForGrowth(m_slots, capacity));
        m_capacity = capacity;
    }
    void AllocateFirst(int capacity, bool zeroed)
    {
        m_data = static_cast<TYPE*>(tev::AllocateArrayBlock(capacity, kShape, zeroed));
        m_slots = capacity;
        m_capacity = capacity;
    }
    void Reallocate(int slots)
    {
        if (MovesAsBytes())
            m_data = static_cast<TYPE*>(tev::ResizeArrayBlock(m_data, m_size, m_slots, slots, kShape));
        else
        {
            CXArray fresh(m_plainData);
            fresh.AllocateFirst(slots, false);
            Elements::MoveInto(fresh.m_data, m_data, m_size);
            std::swap(m_data, fresh.m_data);
            fresh.m_slots = m_slots;
            fresh.m_size = m_size;
        }
        m_slots = slots;
    }
    void Release() noexcept
    {
        Truncate(0);
        tev::FreeArrayBlock(m_data, m_slots, kShape);
        m_data = nullptr;
        m_slots = 0;
        m_capacity = 0;
    }
    void Truncate(int size) noexcept
    {
        std::destroy(m_data + size, m_data + m_size);
        m_size = size;
    }

    /// Makes a change that only adds elements. When it throws, growth setting and capacity are as before too.
    template <class CHANGE>
    void Extend(int growth, CHANGE change)
    {
        const int growthBefore = m_growBy;
        const int capacityBefore = m_capacity;
        m_growBy = growth;
        try
        {
            change();
        }
        catch (...)
        {
            m_growBy = growthBefore;
            if (capacityBefore == 0)
                Release();
            m_capacity = capacityBefore; // a larger block is kept for later growth
            throw;
        }
    }

    void AddZeros(int newSize)
    {
        const bool fresh = m_data == nullptr;
        if (fresh)
            AllocateFirst(tev::GrownCapacity(0, 0, m_growBy, newSize), Elements::kZeroIsValue);
        else
            Reserve(newSize);
        if (!fresh || !Elements::kZeroIsValue)
            Elements::MakeZero(m_data + m_size, newSize - m_size);
        m_size = newSize;
    }

    /// In memory that suffices.
    void AppendCopies(const TYPE* values, int count)
    {
        std::uninitialized_copy_n(values, count, m_data + m_size);
        m_size += count;
    }

    /// At the end or behind it. The value may lie in the memory that is grown.
    void Append(int index, ARG_TYPE value, int growBy)
    {
        const int newSize = Sum(index, 1);
        const int growth = tev::ChosenGrowth(m_growBy, growBy);
        TYPE copy(value);
        Extend(growth, [&] {
            Reserve(newSize);
            Elements::MakeBehind(m_data, m_size, index, 1,
                                 [&](TYPE* at) { ::new (static_cast<void*>(at)) TYPE(std::move_if_noexcept(copy)); });
        });
    }

    /// The value may be an element of the memory that is grown.
    void AppendMoved(TYPE& value, int growBy)
    {
        const int newSize = Sum(m_size, 1);
        const int growth = tev::ChosenGrowth(m_growBy, growBy);
        const int at = Elements::IndexOf(m_data, m_size, value);
        Extend(growth, [&] {
            Reserve(newSize);
            TYPE& source = at >= 0 ? m_data[at] : value;
            Elements::MakeBehind(m_data, m_size, m_size, 1,
                                 [&](TYPE* slot) { ::new (static_cast<void*>(slot)) TYPE(Elements::Moved(source)); });
        });
    }

    /// Fills the array with values that, where they lie in the array itself, are never more than it holds.
    void Assign(const TYPE* values, int count)
    {
        if (count > m_capacity)
        {
            CXArray fresh(m_plainData);
            fresh.m_growBy = m_growBy;
            fresh.AllocateFirst(tev::GrownCapacity(m_size, m_capacity, m_growBy, count), false);
            fresh.AppendCopies(values, count);
            return Swap(fresh);
        }
        const int common = std::min<int>(count, m_size);
        if (values != m_data)
            std::copy(values, values + common, m_data);
        Truncate(common);
        AppendCopies(values + common, count - common);
    }

    /// Before an element. Copies of the value are made first, since that may fail.
    void InsertBefore(int index, int count, int newSize, TYPE& value)
    {
        if (MovesAsBytes())
        {
            Reserve(newSize);
            TYPE* gap = m_data + index;
            const int behind = m_size - index;
            Elements::MoveBytes(gap + count, gap, behind);
            Elements::FillGap(gap, count, value, behind);
            m_size = newSize;
        }
        else if constexpr (!Elements::kMovesSafely)
            InsertInCopy(index, count, newSize, value);
        else if (count == 1)
        {
            Reserve(newSize);
            Elements::InsertMoved(m_data, m_size, index, &value, 1);
        }
        else
        {
            CXArray values(m_plainData);
            values.AllocateFirst(count, false);
            std::uninitialized_fill_n(values.m_data, count, value);
            values.m_size = count;
            Reserve(newSize);
            Elements::InsertMoved(m_data, m_size, index, values.m_data, count);
        }
    }
    /// For elements whose moves may throw: a copy of the array with the values takes its place.
    void InsertInCopy(int index, int count, int newSize, const TYPE& value)
    {
        const int capacity =
            newSize > m_capacity ? tev::GrownCapacity(m_size, m_capacity, m_growBy, newSize) : int(m_capacity);
        CXArray fresh(m_plainData);
        fresh.AllocateFirst(capacity > m_slots ? tev::SlotsForGrowth(m_slots, capacity) : int(m_slots), false);
        fresh.AppendCopies(m_data, index);
        std::uninitialized_fill_n(fresh.end(), count, value);
        fresh.m_size += count;
        fresh.AppendCopies(m_data + index, m_size - index);
        fresh.m_capacity = capacity;
        fresh.m_growBy = m_growBy;
        Swap(fresh);
    }

    /// How many elements follow is what the archive says, so memory is taken in steps, as they are read.
    void Load(CXArchive& archive)
    {
        if constexpr (Elements::kIsText)
        {
            CXTString<wchar_t> text;
            tev::LoadWideUnits(archive, text);
            Assign(text.GetConstBuffer(), tev::ArrayCount(text.GetLength64()));
        }
        else
        {
            const int count = tev::ArrayCount(archive.ReadCount());
            int capacity = m_capacity;
            if (count > capacity)
                capacity = tev::GrownCapacity(m_size, m_capacity, m_growBy, count);
            Truncate(0);
            while (m_size < count)
            {
                const int step = std::min(count - m_size, Elements::ReadStep(m_size));
                if (m_size + step > m_slots)
                    Reallocate(m_size + step == count ? capacity : m_size + step);
                m_capacity = std::max<int>(m_capacity, m_size + step);
                Elements::Load(archive, m_data, m_size, step);
            }
            if (capacity > m_slots)
                Reallocate(capacity);
            m_capacity = capacity;
        }
    }

    void Swap(CXArray& other) noexcept
    {
        std::swap(m_data, other.m_data);
        std::swap(m_size, other.m_size);
        std::swap(m_capacity, other.m_capacity);
        std::swap(m_growBy, other.m_growBy);
        std::swap(m_plainData, other.m_plainData);
        std::swap(m_slots, other.m_slots);
    }

    TYPE* m_data = nullptr;
    tev::ArrayInt m_size = 0;
    tev::ArrayInt m_capacity = 0;
    tev::ArrayInt m_growBy = tev::kGrowAutomatically;
    bool m_plainData;
    tev::ArrayInt m_slots = 0; ///< of the block; those beyond the capacity are there for growth
    tev::ThreadUse m_use;
};

/// Element by element, whatever the capacities, the growth settings and the way in which values are passed.
template <class TYPE, class ARG_A, class ARG_B>
auto operator==(const CXArray<TYPE, ARG_A>& a, const CXArray<TYPE, ARG_B>& b)
    -> decltype(static_cast<bool>(std::declval<const TYPE&>() == std::declval<const TYPE&>()))
{
    return a.GetSize() == b.GetSize() && std::equal(a.begin(), a.end(), b.begin());
}
template <class TYPE, class ARG_A, class ARG_B>
auto operator!=(const CXArray<TYPE, ARG_A>& a, const CXArray<TYPE, ARG_B>& b) -> decltype(a == b)
{
    return !(a == b);
}
