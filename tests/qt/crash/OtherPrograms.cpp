#include "tests/qt/crash/OtherPrograms.h"

#include <cstdlib>
#include <cstring>
#include <memory>
#include <xcb/xcb.h>

namespace tev::test
{
namespace
{
constexpr xcb_keycode_t kEscapeKey = 9;

template <class REPLY>
std::unique_ptr<REPLY, decltype(&std::free)> Owned(REPLY* reply)
{
    return {reply, &std::free};
}
} // namespace

OtherPrograms::OtherPrograms() : m_display(xcb_connect(nullptr, nullptr)) {}

OtherPrograms::~OtherPrograms()
{
    xcb_disconnect(m_display);
}

std::uint32_t OtherPrograms::Root() const
{
    return xcb_setup_roots_iterator(xcb_get_setup(m_display)).data->root;
}

std::uint32_t OtherPrograms::Atom(const char* name) const
{
    const auto cookie = xcb_intern_atom(m_display, 0, static_cast<std::uint16_t>(std::strlen(name)), name);
    return Owned(xcb_intern_atom_reply(m_display, cookie, nullptr))->atom;
}

std::string OtherPrograms::TextOf(std::uint32_t window, const char* property) const
{
    const auto cookie = xcb_get_property(m_display, 0, window, Atom(property), XCB_ATOM_ANY, 0, 1024);
    const auto reply = Owned(xcb_get_property_reply(m_display, cookie, nullptr));
    if (reply == nullptr)
        return {};
    return std::string(static_cast<const char*>(xcb_get_property_value(reply.get())),
                       static_cast<std::size_t>(xcb_get_property_value_length(reply.get())));
}

std::uint32_t OtherPrograms::Find(const std::string& title) const
{
    const auto tree = Owned(xcb_query_tree_reply(m_display, xcb_query_tree(m_display, Root()), nullptr));
    for (int i = 0; tree != nullptr && i < xcb_query_tree_children_length(tree.get()); ++i)
    {
        const xcb_window_t window = xcb_query_tree_children(tree.get())[i];
        const auto cookie = xcb_get_window_attributes(m_display, window);
        const auto attributes = Owned(xcb_get_window_attributes_reply(m_display, cookie, nullptr));
        if (attributes != nullptr && attributes->map_state == XCB_MAP_STATE_VIEWABLE &&
            TextOf(window, "_NET_WM_NAME").find(title) != std::string::npos)
            return window;
    }
    return 0;
}

void OtherPrograms::PressEscape(std::uint32_t window) const
{
    for (const unsigned type : {XCB_KEY_PRESS, XCB_KEY_RELEASE})
    {
        xcb_key_press_event_t event{};
        event.response_type = static_cast<std::uint8_t>(type);
        event.detail = kEscapeKey;
        event.root = Root();
        event.event = window;
        event.same_screen = 1;
        xcb_send_event(m_display, 0, window, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char*>(&event));
    }
    xcb_flush(m_display);
}

void OtherPrograms::AskToClose(std::uint32_t window) const
{
    xcb_client_message_event_t event{};
    event.response_type = XCB_CLIENT_MESSAGE;
    event.format = 32;
    event.window = window;
    event.type = Atom("WM_PROTOCOLS");
    event.data.data32[0] = Atom("WM_DELETE_WINDOW");
    xcb_send_event(m_display, 0, window, XCB_EVENT_MASK_NO_EVENT, reinterpret_cast<const char*>(&event));
    xcb_flush(m_display);
}

void OtherPrograms::Kill(std::uint32_t window) const
{
    xcb_kill_client(m_display, window);
    xcb_flush(m_display);
}
} // namespace tev::test
