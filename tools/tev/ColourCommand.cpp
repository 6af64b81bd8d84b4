#include "tools/tev/ColourCommand.h"

#include "tools/tev/CommandLine.h"
#include "tools/tev/Json.h"
#include "tools/tev/Listing.h"
#include "tools/tev/System.h"
#include "tools/tev/Tool.h"
#include "values/CRGBColor.h"

#include <charconv>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

namespace tev::tool
{
namespace
{
struct ColourOptions
{
    std::string m_colour;
    std::optional<float> m_hue;
    std::optional<float> m_darken;
    std::optional<float> m_lighten;
    bool m_isJson = false;
};

/// The text as a number; nothing when it is none.
std::optional<unsigned> WholeNumber(std::string_view text, int base)
{
    unsigned number = 0;
    const char* const end = text.data() + text.size();
    const auto [stop, error] = std::from_chars(text.data(), end, number, base);
    if (error != std::errc() || stop != end)
        return std::nullopt;
    return number;
}

/// "#RRGGBB" or "RRGGBB".
std::optional<CRGBColor> FromHexadecimal(std::string_view text)
{
    if (!text.empty() && text.front() == '#')
        text.remove_prefix(1);
    const std::optional<unsigned> number = WholeNumber(text, 16);
    if (text.size() != 6 || !number)
        return std::nullopt;
    return CRGBColor(static_cast<int>(*number >> 16), static_cast<int>(*number >> 8 & 255),
                     static_cast<int>(*number & 255));
}

/// "R,G,B"
std::optional<CRGBColor> FromChannels(std::string_view text)
{
    CRGBColor color;
    for (int channel = 0; channel < 3; ++channel)
    {
        const std::size_t comma = channel < 2 ? text.find(',') : text.size();
        const std::optional<unsigned> number = WholeNumber(text.substr(0, comma), 10);
        if (comma == text.npos || !number || *number > 255)
            return std::nullopt;
        color[channel] = static_cast<unsigned char>(*number);
        text.remove_prefix(channel < 2 ? comma + 1 : 0);
    }
    return color;
}

std::string Sample(const CRGBColor& color)
{
    if (!HasColours(kStandardOutput))
        return {};
    CXTString<char> sample;
    sample.Format("\033[48;2;%d;%d;%dm      \033[0m  ", color[0], color[1], color[2]);
    return static_cast<const char*>(sample);
}

void Show(Session& session, const ColourOptions& options)
{
    std::optional<CRGBColor> color = FromHexadecimal(options.m_colour);
    if (!color)
        color = FromChannels(options.m_colour);
    if (!color)
        throw UsageError("a colour is #RRGGBB or R,G,B with channels of 0 to 255: " + options.m_colour);

    if (options.m_hue)
        color->SetHue(*options.m_hue);
    if (options.m_darken)
        color->Darken(*options.m_darken);
    if (options.m_lighten)
        color->Lighten(*options.m_lighten);
    float hue, saturation, luminance;
    color->ConvertToHSL(hue, saturation, luminance);
    CXTString<char> code;
    code.Format("#%02X%02X%02X", (*color)[0], (*color)[1], (*color)[2]);
    if (options.m_isJson)
    {
        const auto number = [](float value) {
            char digits[32];
            return Json::Number(std::string(digits, std::to_chars(digits, digits + sizeof digits, value).ptr));
        };
        const Json json = Json::Object({{"rgb", code.GetConstBuffer()},
                                        {"hue", number(hue)},
                                        {"saturation", number(saturation)},
                                        {"luminance", number(luminance)}});
        session.m_output.Write(json.Line());
        return;
    }
    CXTString<char> line;
    line.Format("%s  %s  hue %.4f, saturation %.4f, luminance %.4f\n", code.GetConstBuffer(),
                Narrow(color->GetRGBString()).c_str(), static_cast<double>(hue), static_cast<double>(saturation),
                static_cast<double>(luminance));
    session.m_output.WriteBytes(Sample(*color) + static_cast<const char*>(line));
}
} // namespace

void AddColourCommand(const ToolCommand& tool, Session& session)
{
    const auto options = std::make_shared<ColourOptions>();
    const ToolCommand command = tool.AddCommand("colour", "Show a colour, changed if asked for, and its coordinates");
    command.AddArgument("COLOUR", options->m_colour, "\"#RRGGBB\", or R,G,B with channels of 0 to 255").Required();
    command.AddOption("--hue", options->m_hue, "Give it this hue; 0 and 1 are red, 1/3 green, 2/3 blue")
        .ValueName("NUMBER");
    command.AddOption("--darken", options->m_darken, "Take this from its luminance, which is 0 to 1")
        .ValueName("NUMBER");
    command.AddOption("--lighten", options->m_lighten, "Add this to its luminance").ValueName("NUMBER");
    AddJsonFlag(command, options->m_isJson);
    command.Footer("The changes are made in the order hue, darken, lighten.");
    command.OnRun([&session, options] { Show(session, *options); });
}

} // namespace tev::tool
