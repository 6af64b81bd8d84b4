#pragma once

#include <new>

namespace tev
{
/// Holds a process-wide object that is created on first use and never destroyed, so that static destructors can use it.
/// Use as a static local variable.
template <class T>
class NeverDestroyed
{
public:
    NeverDestroyed() { new (m_storage) T; }
    NeverDestroyed(const NeverDestroyed&) = delete;
    NeverDestroyed& operator=(const NeverDestroyed&) = delete;

    T& Get() noexcept { return *std::launder(reinterpret_cast<T*>(m_storage)); }

private:
    alignas(T) unsigned char m_storage[sizeof(T)];
};
} // namespace tev
