#pragma once

#include "arrays/ArrayGrowth.h"
#include "files/CXArchive.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

// What an array does with runs of its elements, for each kind of element.

namespace tev
{
/// For elements that cannot go through an archive: archiveGeneric.
[[noreturn]] TEVTOOLS_API void RefuseElements(const CXArchive& archive);

/// The size of an array whose count an archive gave. One that no array can have is archiveEndOfFile.
TEVTOOLS_API int ArrayCount(unsigned __int64 count);

// Wide characters as UTF-16, with the number of units as their count.

TEVTOOLS_API void StoreWideUnits(CXArchive& archive, const wchar_t* characters, int count);
TEVTOOLS_API void LoadWideUnits(CXArchive& archive, CXTString<wchar_t>& characters);

template <class TYPE, class = void>
struct HasArchiveOperators : std::false_type
{
};

template <class TYPE>
struct HasArchiveOperators<TYPE, std::void_t<decltype(std::declval<CXArchive&>() << std::declval<const TYPE&>()),
                                             decltype(std::declval<CXArchive&>() >> std::declval<TYPE&>())>>
    : std::true_type
{
};

template <class TYPE>
struct ArrayElements
{
    static constexpr bool kIsMovable = std::is_move_constructible_v<TYPE> || std::is_copy_constructible_v<TYPE>;
    static constexpr bool kIsPlain = std::is_trivially_copyable_v<TYPE> && kIsMovable; // a mutex may be the former
    /// TYPE() is all zero bytes.
    static constexpr bool kZeroIsValue = kIsPlain && std::is_trivially_default_constructible_v<TYPE>;
    /// Wide characters that are no UTF-16 units.
    static constexpr bool kIsText = std::is_same_v<TYPE, wchar_t> && sizeof(wchar_t) != 2;
    /// What is plain is not looked into: a pointer's class may be unknown here.
    static constexpr bool kIsStorable =
        std::disjunction_v<std::bool_constant<kIsPlain>, HasArchiveOperators<TYPE>, std::is_base_of<CXObject, TYPE>>;
    /// Elements are made one by one as they are read, and moved when the array grows.
    static constexpr bool kIsLoadable =
        kIsPlain || (kIsStorable && kIsMovable && std::is_default_constructible_v<TYPE>);
    /// Elements can be moved within the array without a failure half-way.
    static constexpr bool kMovesSafely =
        std::is_nothrow_move_constructible_v<TYPE> && std::is_nothrow_move_assignable_v<TYPE>;

    /// Moves those that do not equal the value over the ones that do, of which `found` is the first; returns their end.
    static TYPE* RemoveEqual(TYPE* found, TYPE* end, const TYPE& value)
    {
        TYPE* kept = found;
        // Not std::remove, which hands out the value's address: the compiler would load the value for each element.
        for (TYPE* at = found + 1; at != end; ++at)
        {
            if (!(*at == value))
                *kept++ = std::move(*at);
        }
        return kept;
    }

    /// Makes elements in slots without elements.
    static void MakeZero(TYPE* slots, int count)
    {
        if constexpr (!kZeroIsValue)
            std::uninitialized_value_construct_n(slots, count);
        else if (count > 0)
            std::memset(static_cast<void*>(slots), 0, Bytes(count));
    }

    /// Makes elements out of others in new memory: moves where that cannot fail, else copies.
    static void MoveInto(TYPE* target, TYPE* source, int count)
    {
        if constexpr (std::is_nothrow_move_constructible_v<TYPE> || !std::is_copy_constructible_v<TYPE>)
            std::uninitialized_move_n(source, count, target);
        else
            std::uninitialized_copy_n(source, count, target);
    }
    /// What a constructor takes to move the value, or to copy it where it cannot be moved.
    static decltype(auto) Moved(TYPE& value) noexcept
    {
        if constexpr (std::is_move_constructible_v<TYPE>)
            return std::move(value);
        else
            return std::as_const(value);
    }
    /// Where a value lies among the elements, -1 where it does not.
    static int IndexOf(const TYPE* data, int size, const TYPE& value) noexcept
    {
        const std::less<const TYPE*> isBefore;
        const TYPE* const address = std::addressof(value);
        const bool isElement = !isBefore(address, data) && isBefore(address, data + size);
        return isElement ? static_cast<int>(address - data) : -1;
    }
    /// In memory that suffices, makes the elements behind the last one up to the index, then those that `make` makes there;
    /// or none. Elements without a default constructor cannot fill a gap.
    template <class MAKE>
    static void MakeBehind(TYPE* data, ArrayInt& size, int index, int count, MAKE make)
    {
        const int before = size;
        if constexpr (std::is_default_constructible_v<TYPE>)
            MakeZero(data + before, index - before);
        else if (index != before)
            ThrowInvalidArgument();
        try
        {
            make(data + index);
        }
        catch (...)
        {
            std::destroy(data + before, data + index);
            throw;
        }
        size = index + count;
    }
    /// Moves values before an element of an array whose memory suffices; for elements whose moves do not throw.
    static void InsertMoved(TYPE* data, ArrayInt& size, int index, TYPE* values, int count) noexcept
    {
        TYPE* const gap = data + index;
        TYPE* const last = data + size;
        const int behind = size - index;
        if (behind > count)
        {
            std::uninitialized_move(last - count, last, last);
            std::move_backward(gap, last - count, last);
            std::move(values, values + count, gap);
        }
        else
        {
            std::uninitialized_move_n(values + behind, count - behind, last);
            std::uninitialized_move(gap, last, gap + count);
            std::move(values, values + behind, gap);
        }
        size += count;
    }
    /// Both runs may overlap. The slots that are left hold no elements.
    static void MoveBytes(TYPE* target, const TYPE* source, int count) noexcept
    {
        if (count != 0)
            std::memmove(static_cast<void*>(target), static_cast<const void*>(source), Bytes(count));
    }
    /// Makes copies of the value in slots without elements, or closes the gap again when that fails.
    static void FillGap(TYPE* gap, int count, const TYPE& value, int behind)
    {
        if constexpr (kIsPlain)
            std::uninitialized_fill_n(gap, count, value);
        else
        {
            try
            {
                std::uninitialized_fill_n(gap, count, value);
            }
            catch (...)
            {
                MoveBytes(gap, gap + count, behind);
                throw;
            }
        }
    }

    static void Store(CXArchive& archive, const TYPE* data, int count)
    {
        if constexpr (kIsText)
            StoreWideUnits(archive, data, count);
        else
        {
            archive.WriteCount(static_cast<unsigned>(count));
            StoreRun(archive, data, count);
        }
    }
    /// How many elements may be read when `done` are there, so that memory is only taken for what the input holds.
    static int ReadStep(int done) noexcept
    {
        constexpr int kFirst = static_cast<int>(std::max<std::size_t>(kFirstStepBytes / sizeof(TYPE), 1));
        return std::min(std::max(done, kFirst), kLargestRun);
    }
    /// Makes elements behind the last one out of what is read.
    static void Load(CXArchive& archive, TYPE* data, ArrayInt& size, int count)
    {
        if constexpr (kIsPlain)
        {
            archive.EnsureRead(static_cast<void*>(data + size), Bytes(count));
            size += count;
        }
        else
        {
            for (const int end = size + count; size < end; size += 1)
                LoadInto(archive, data + size);
        }
    }

private:
    static constexpr int kLargestRun = 0x0FFFFFFF;
    static constexpr std::size_t kFirstStepBytes = 0x10000;

    static constexpr std::size_t Bytes(int count) noexcept { return static_cast<std::size_t>(count) * sizeof(TYPE); }

    /// Makes an element, which is destroyed when it cannot be read.
    static void LoadInto(CXArchive& archive, TYPE* slot)
    {
        TYPE* element = ::new (static_cast<void*>(slot)) TYPE();
        try
        {
            if constexpr (HasArchiveOperators<TYPE>::value)
                archive >> *element;
            else
                element->Serialize(archive);
        }
        catch (...)
        {
            std::destroy_at(element);
            throw;
        }
    }

    static void StoreRun(CXArchive& archive, const TYPE* data, int count)
    {
        if constexpr (kIsPlain)
        {
            for (int done = 0; done < count;)
            {
                const int run = std::min(count - done, kLargestRun);
                archive.Write(static_cast<const void*>(data + done), Bytes(run));
                done += run;
            }
        }
        else
        {
            for (int i = 0; i < count; ++i)
            {
                if constexpr (HasArchiveOperators<TYPE>::value)
                    archive << data[i];
                else
                    const_cast<TYPE&>(data[i]).Serialize(archive); // which stores and changes nothing
            }
        }
    }
};
} // namespace tev
