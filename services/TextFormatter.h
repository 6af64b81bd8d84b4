#pragma once

#include <cstddef>

namespace tev
{
/// What the formatters for std::format and for {fmt} have in common: a text is formatted as a view of it is.
template <class FormatterOfView, class View>
struct TextFormatter : FormatterOfView
{
    template <class Text, class Context>
    auto format(const Text& text, Context& context) const
    {
        const View view(text.GetConstBuffer(), static_cast<std::size_t>(text.GetLength64()));
        return FormatterOfView::format(view, context);
    }
};
} // namespace tev
