#pragma once

#include <cstdint>
#include <string>

struct xcb_connection_t;

namespace tev::test
{
/// The windows of other programs on the display, and what a person or the window manager does with them.
class OtherPrograms
{
public:
    OtherPrograms();
    ~OtherPrograms();
    OtherPrograms(const OtherPrograms&) = delete;
    OtherPrograms& operator=(const OtherPrograms&) = delete;

    /// A window that can be seen and has these words in its title; 0 for none.
    std::uint32_t Find(const std::string& title) const;
    void PressEscape(std::uint32_t window) const;
    void AskToClose(std::uint32_t window) const;
    /// Cuts the program off the display.
    void Kill(std::uint32_t window) const;

private:
    std::string TextOf(std::uint32_t window, const char* property) const;
    std::uint32_t Atom(const char* name) const;
    std::uint32_t Root() const;

    xcb_connection_t* const m_display;
};
} // namespace tev::test
