#pragma once

namespace tev
{
/// Calls the function whenever the application's name has been chosen, on the thread that did so; null for none.
void SetApplicationNameObserver(void (*observer)()) noexcept;
} // namespace tev
