#pragma once

#include "tests/support/Testing.h"

/// An element that owns memory, counts how many of its kind live, and throws at the copy or creation that s_throwIn counts
/// down to. NOTHROW_MOVE chooses whether containers may move it.
template <bool NOTHROW_MOVE>
class Tracked
{
public:
    Tracked(int value = 0) : m_value(std::make_unique<int>(value)) { Count(); }
    Tracked(const Tracked& other) : Tracked(*other.m_value) {}
    Tracked(Tracked&& other) noexcept(NOTHROW_MOVE) : Tracked(other, std::bool_constant<NOTHROW_MOVE>()) {}
    Tracked& operator=(const Tracked& other)
    {
        Tracked copy(other);
        m_value.swap(copy.m_value);
        return *this;
    }
    ~Tracked() { --s_live; }

    int Value() const { return m_value == nullptr ? -1 : *m_value; }
    friend bool operator==(const Tracked& a, const Tracked& b) { return a.Value() == b.Value(); }

    static inline int s_live = 0;
    static inline int s_throwIn = 0; // 0 for never

private:
    Tracked(Tracked& other, std::true_type) noexcept : m_value(std::move(other.m_value)) { ++s_live; }
    Tracked(Tracked& other, std::false_type) : Tracked(*other.m_value) {}

    static void Count()
    {
        if (s_throwIn != 0 && --s_throwIn == 0)
            throw std::runtime_error("thrown by an element");
        ++s_live;
    }

    std::unique_ptr<int> m_value;
};
