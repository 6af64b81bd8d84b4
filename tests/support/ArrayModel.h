#pragma once

#include "arrays/CXArray.h"

#include <algorithm>
#include <vector>

/// Elements of each type for a number; 0 stands for the element that fills gaps.
template <class TYPE>
TYPE ElementOf(int number)
{
    return TYPE(number);
}
template <>
inline CXTString<wchar_t> ElementOf(int number)
{
    CXTString<wchar_t> text;
    if (number != 0)
        text.Format(L"a text too long for any inner buffer %d", number);
    return text;
}

/// An array compared with a plain vector of numbers and the documented rules of growth. Each operation is done
/// to both; arguments that name a number are made of it, those that name an index refer to the array's own element.
template <class TYPE>
class ArrayModel
{
public:
    explicit ArrayModel(bool plainData) : m_array(plainData) {}

    CXArray<TYPE>& Array() { return m_array; }
    int Size() const { return static_cast<int>(m_numbers.size()); }
    bool IsWhole() const
    {
        if (m_array.GetSize() != Size() || m_array.GetCapacity() != m_capacity)
            return false;
        for (int i = 0; i < Size(); ++i)
        {
            if (!(m_array[i] == ElementOf<TYPE>(m_numbers[i])))
                return false;
        }
        return true;
    }

    void SetSize(int size, int growBy)
    {
        m_array.SetSize(size, growBy);
        Resize(size, growBy);
        if (size == 0 && growBy == 0)
            m_capacity = 0;
    }
    void PreAllocate(int capacity, int growBy)
    {
        m_array.PreAllocate(capacity, growBy);
        m_growBy = growBy == -1 ? m_growBy : growBy;
        m_numbers.clear();
        m_capacity = capacity;
    }
    void FreeExtra()
    {
        m_array.FreeExtra();
        m_capacity = Size();
    }
    void RemoveAll(bool keepMemory)
    {
        m_array.RemoveAll(keepMemory);
        m_numbers.clear();
        m_capacity = keepMemory ? m_capacity : 0;
    }
    bool Add(int number, int growBy)
    {
        return m_array.Add(ElementOf<TYPE>(number), growBy) == Put(Size(), number, growBy);
    }
    bool AddOwn(int index) { return m_array.Add(m_array[index]) == Put(Size(), m_numbers[index], -1); }
    void SetAtGrow(int index, int number, int growBy)
    {
        m_array.SetAtGrow(index, ElementOf<TYPE>(number), growBy);
        Put(index, number, growBy);
    }
    void SetOwnAtGrow(int index, int own)
    {
        m_array.SetAtGrow(index, m_array[own], -1);
        Put(index, m_numbers[own], -1);
    }
    void InsertAt(int index, int number, int count)
    {
        m_array.InsertAt(index, ElementOf<TYPE>(number), count);
        Insert(index, number, count);
    }
    void InsertOwnAt(int index, int own, int count)
    {
        m_array.InsertAt(index, m_array[own], count);
        Insert(index, m_numbers[own], count);
    }
    void RemoveAt(int index, int count)
    {
        m_array.RemoveAt(index, count);
        m_numbers.erase(m_numbers.begin() + index, m_numbers.begin() + index + count);
    }
    bool Remove(int number, bool firstOnly)
    {
        return m_array.Remove(ElementOf<TYPE>(number), firstOnly) == Erase(number, firstOnly);
    }
    bool RemoveOwn(int index, bool firstOnly)
    {
        return m_array.Remove(m_array[index], firstOnly) == Erase(m_numbers[index], firstOnly);
    }
    bool AddItself()
    {
        const std::vector<int> numbers = m_numbers;
        const int size = m_array.AddArray(m_array);
        Resize(2 * Size(), -1);
        std::copy(numbers.begin(), numbers.end(), m_numbers.end() - static_cast<int>(numbers.size()));
        return size == Size();
    }
    /// Keeps a run of the elements only.
    void CopyOwn(int first, int count)
    {
        m_array.Copy(count == 0 ? nullptr : m_array.GetData() + first, static_cast<unsigned>(count));
        m_numbers = std::vector<int>(m_numbers.begin() + first, m_numbers.begin() + first + count);
        m_capacity = count == 0 ? 0 : m_capacity;
    }
    /// Goes on with a copy of the array.
    void Clone()
    {
        CXArray<TYPE> copy(m_array);
        m_array = std::move(copy);
        m_capacity = m_numbers.empty() ? 0 : std::max(Size(), m_growBy);
    }
    /// Takes the contents of another model.
    void CopyFrom(const ArrayModel& other)
    {
        m_array.Copy(other.m_array);
        Resize(other.Size(), -1);
        m_numbers = other.m_numbers;
    }

private:
    void Resize(int size, int growBy)
    {
        m_growBy = growBy == -1 ? m_growBy : growBy;
        if (size > m_capacity)
        {
            if (m_capacity == 0)
                m_capacity = std::max(size, m_growBy);
            else
            {
                const int automatic = std::min(std::max(Size() / 8, 4), 1024);
                const int step = m_growBy == -2 ? m_capacity : m_growBy == 0 ? automatic : m_growBy;
                m_capacity = std::max(m_capacity + step, size);
            }
        }
        m_numbers.resize(size);
    }
    int Put(int index, int number, int growBy)
    {
        if (index >= Size())
            Resize(index + 1, growBy);
        m_numbers[index] = number;
        return index;
    }
    void Insert(int index, int number, int count)
    {
        const int before = Size();
        Resize(std::max(index, before) + count, -1);
        if (index < before)
            std::copy_backward(m_numbers.begin() + index, m_numbers.begin() + before, m_numbers.end());
        std::fill_n(m_numbers.begin() + index, count, number);
    }
    bool Erase(int number, bool firstOnly)
    {
        bool removed = false;
        for (auto at = m_numbers.begin(); at != m_numbers.end() && !(removed && firstOnly);)
        {
            const bool equal = *at == number;
            removed = removed || equal;
            at = equal ? m_numbers.erase(at) : at + 1;
        }
        return removed;
    }

    CXArray<TYPE> m_array;
    std::vector<int> m_numbers;
    int m_capacity = 0;
    int m_growBy = 0;
};

/// Does one operation, chosen by four numbers of any value, to the model. False when the array answered wrongly.
template <class TYPE>
bool DoArrayOperation(ArrayModel<TYPE>& model, unsigned operation, unsigned a, unsigned b, unsigned c)
{
    constexpr int kGrowths[] = {-1, 0, -2, 1, 7, -1, -1, -1};
    const int size = model.Size();
    const int growBy = kGrowths[c % 8];
    const int number = static_cast<int>(b % 6);
    const int index = size == 0 ? 0 : static_cast<int>(a % unsigned(size));
    const int other = size == 0 ? 0 : static_cast<int>(b % unsigned(size));
    const int near = static_cast<int>(a % unsigned(size + 9));
    const int few = static_cast<int>(c % 5) + 1;
    switch (operation % 20)
    {
    default:
        return model.Add(number, growBy);
    case 1:
        return size == 0 || model.AddOwn(index);
    case 2:
        model.SetAtGrow(near, number, growBy);
        break;
    case 3:
        if (size != 0)
            model.SetOwnAtGrow(near, other);
        break;
    case 4:
        model.InsertAt(near, number, few);
        break;
    case 5:
        if (size != 0)
            model.InsertOwnAt(near, other, few);
        break;
    case 6:
        model.RemoveAt(index, std::min(size - index, few - 1));
        break;
    case 7:
        return model.Remove(number, c % 2 == 0);
    case 8:
        return size == 0 || model.RemoveOwn(index, c % 4 != 0);
    case 9:
        model.SetSize(near, growBy);
        break;
    case 10:
        model.SetSize(static_cast<int>(a % 3), growBy);
        break;
    case 11:
        model.PreAllocate(static_cast<int>(a % 20), growBy);
        break;
    case 12:
        model.FreeExtra();
        break;
    case 13:
        model.RemoveAll(c % 2 == 0);
        break;
    case 14:
        return size > 300 || model.AddItself();
    case 15:
        model.CopyOwn(index, std::min(size - index, few * few - 1));
        break;
    case 16:
        model.Clone();
        break;
    }
    return true;
}
