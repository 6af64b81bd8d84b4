#pragma once

/// Raises a counter by one while it lives: the depth of nested calls. The counter must outlive it. One thread at a time.
class CPopValue
{
public:
    explicit CPopValue(int& counter) noexcept : CPopValue(reinterpret_cast<unsigned int&>(counter)) {}
    explicit CPopValue(unsigned int& counter) noexcept : m_counter(&counter) { ++*m_counter; }
    /// Copies do not raise the counter, yet each lowers it once more when it is destroyed. An assigned one leaves the
    /// counter that it had raised.
    CPopValue(const CPopValue&) = default;
    CPopValue& operator=(const CPopValue&) = default;
    virtual ~CPopValue() { --*m_counter; }

private:
    unsigned int* m_counter;
};
