#include "values/CRGBColor.h"

#include "files/CXArchive.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace
{
constexpr unsigned kTextOfRGBA = 5311;
constexpr unsigned kTextOfRGB = 5312;

constexpr float kFullChannel = 255.0F;

// Each channel as 0 to 1: one look instead of a division.
struct UnitValues
{
    constexpr UnitValues() noexcept
    {
        for (int i = 0; i < 256; ++i)
            m_values[i] = static_cast<float>(i) / kFullChannel;
    }
    float m_values[256] = {};
};
constexpr UnitValues kUnit;

// What is no number fails every comparison and becomes 0. Written so that the compiler needs no branch.
float Limited(float value, float limit) noexcept
{
    return std::min(value > 0 ? value : 0.0F, limit);
}

unsigned char Channel(float value) noexcept
{
    return static_cast<unsigned char>(static_cast<int>(Limited(value, kFullChannel)));
}

constexpr unsigned int kExactFloats = 1U << 24; // integers up to here are floats without loss

unsigned int Sum(double value) noexcept
{
    return static_cast<unsigned int>(std::min(value > 0 ? value : 0.0, 4294967295.0));
}

/// Of the integer part. What no integer can be is the nearest one that a channel can.
unsigned char LowByte(double value) noexcept
{
    if (value >= 0 && value < 4294967296.0)
        return static_cast<unsigned char>(static_cast<unsigned int>(value));
    if (!std::isfinite(value))
        return value > 0 ? 255 : 0;
    return static_cast<unsigned char>(static_cast<int>(std::fmod(value, 256.0)));
}

// Both conversions use tables: branches that depend on the pixels of an image cannot be predicted.

// Sixths of the circle: the base, and how far the channel is from the largest, as a part of the range.
struct HueRule
{
    float m_base;
    float m_sign;
    int m_channel;
};

// By the largest channel, and whether the next one is the smallest.
constexpr HueRule kHueRules[3][2] = {
    {{1, -1, 1}, {5, 1, 2}},
    {{3, -1, 2}, {1, 1, 0}},
    {{5, -1, 0}, {3, 1, 1}},
};
constexpr int kNextChannel[] = {1, 2, 0};

// By the sixth of the circle: for red, green and blue the level that they have. The hue 1 is the hue 0.
enum Level
{
    kLargest,
    kSmallest,
    kRising,
    kFalling
};
constexpr unsigned char kSectors[7][3] = {
    {kLargest, kRising, kSmallest},  {kFalling, kLargest, kSmallest}, {kSmallest, kLargest, kRising},
    {kSmallest, kFalling, kLargest}, {kRising, kSmallest, kLargest},  {kLargest, kSmallest, kFalling},
    {kLargest, kRising, kSmallest},
};

} // namespace

void ConvertRGBToHSL(float red, float green, float blue, float& hue, float& saturation, float& luminance) noexcept
{
    const float max = std::max(red, std::max(green, blue));
    const float min = std::min(red, std::min(green, blue));
    luminance = max;
    hue = 0;
    saturation = 0;
    if (max == 0 || max == min)
        return;

    saturation = 1 - min / max;
    const float range = max - min;
    const float channels[] = {red, green, blue};
    const int isNotRed = red != max;
    const int largest = isNotRed + (isNotRed & static_cast<int>(green != max));
    const HueRule& rule = kHueRules[largest][channels[kNextChannel[largest]] == min];
    hue = rule.m_base + rule.m_sign * ((max - channels[rule.m_channel]) / range);
    hue /= 6;
    if (hue >= 1)
        hue -= 1;
}

void ConvertHSLToRGB(float hue, float saturation, float luminance, float& red, float& green, float& blue) noexcept
{
    const float v = Limited(luminance, 1);
    if (v == 0)
    {
        red = green = blue = 0;
        return;
    }
    const float sector = Limited(hue, 1) * 6;
    const int i = static_cast<int>(sector);
    const float f = sector - static_cast<float>(i);
    const float m = (1 - Limited(saturation, 1)) * v;
    const float n = (v - m) / v * v * f;
    const float levels[] = {v, m, m + n, v - n};
    red = levels[kSectors[i][0]];
    green = levels[kSectors[i][1]];
    blue = levels[kSectors[i][2]];
}

CRGBColor::CRGBColor(const unsigned char* channels, int count) noexcept
{
    std::copy_n(channels, std::clamp(count, 0, 4), m_channels);
}

CRGBColor::CRGBColor(double red, double green, double blue, float scale) noexcept
{
    SetColor(static_cast<float>(red), static_cast<float>(green), static_cast<float>(blue), scale);
}

CRGBColor::CRGBColor(double red, double green, double blue, double alpha, float scale) noexcept
{
    SetColor(static_cast<float>(red), static_cast<float>(green), static_cast<float>(blue), static_cast<float>(alpha),
             scale);
}

unsigned int CRGBColor::GetRGBA() const noexcept
{
    return m_channels[0] | static_cast<unsigned>(m_channels[1]) << 8 | static_cast<unsigned>(m_channels[2]) << 16 |
           static_cast<unsigned>(m_channels[3]) << 24;
}

void CRGBColor::GetColor4(int* channels) const noexcept
{
    std::copy_n(m_channels, 4, channels);
}

void CRGBColor::GetColor4(unsigned char* channels) const noexcept
{
    std::copy_n(m_channels, 4, channels);
}

void CRGBColor::GetColor4f(float* channels, float scale) const noexcept
{
    std::transform(m_channels, m_channels + 4, channels, [scale](unsigned char channel) { return channel / scale; });
}

void CRGBColor::GetColor4d(double* channels, float scale) const noexcept
{
    const double divisor = scale;
    std::transform(m_channels, m_channels + 4, channels, [=](unsigned char channel) { return channel / divisor; });
}

void CRGBColor::Normalize(float& red, float& green, float& blue) const noexcept
{
    red = kUnit.m_values[m_channels[0]];
    green = kUnit.m_values[m_channels[1]];
    blue = kUnit.m_values[m_channels[2]];
}

void CRGBColor::Normalize(float& red, float& green, float& blue, float& alpha) const noexcept
{
    Normalize(red, green, blue);
    alpha = kUnit.m_values[m_channels[3]];
}

void CRGBColor::ConvertToHSL(float& hue, float& saturation, float& luminance) const noexcept
{
    float red, green, blue;
    Normalize(red, green, blue);
    ConvertRGBToHSL(red, green, blue, hue, saturation, luminance);
}

float CRGBColor::GetHue() const noexcept
{
    float hue, saturation, luminance;
    ConvertToHSL(hue, saturation, luminance);
    return hue;
}

float CRGBColor::GetSaturation() const noexcept
{
    float hue, saturation, luminance;
    ConvertToHSL(hue, saturation, luminance);
    return saturation;
}

float CRGBColor::GetLuminance() const noexcept
{
    float hue, saturation, luminance;
    ConvertToHSL(hue, saturation, luminance);
    return luminance;
}

CXTString<wchar_t> CRGBColor::GetRGBString() const
{
    CXTString<wchar_t> text;
    GetRGBString(text);
    return text;
}

void CRGBColor::GetRGBString(CXTString<wchar_t>& text) const
{
    text.Format(kTextOfRGB, m_channels[0], m_channels[1], m_channels[2]);
}

CXTString<wchar_t> CRGBColor::GetRGBAString() const
{
    CXTString<wchar_t> text;
    GetRGBAString(text);
    return text;
}

void CRGBColor::GetRGBAString(CXTString<wchar_t>& text) const
{
    text.Format(kTextOfRGBA, m_channels[0], m_channels[1], m_channels[2], m_channels[3]);
}

void CRGBColor::SetColor(float red, float green, float blue, float scale) noexcept
{
    SetColor(Channel(red * scale), Channel(green * scale), Channel(blue * scale));
}

void CRGBColor::SetColor(float red, float green, float blue, float alpha, float scale) noexcept
{
    SetColor(Channel(red * scale), Channel(green * scale), Channel(blue * scale), Channel(alpha * scale));
}

void CRGBColor::SetColor3(const float* values, float scale) noexcept
{
    SetColor(values[0], values[1], values[2], scale);
}

void CRGBColor::SetColor3(const double* values, float scale) noexcept
{
    *this = CRGBColor(values[0], values[1], values[2], scale);
}

void CRGBColor::SetColor4(const float* values, float scale) noexcept
{
    SetColor(values[0], values[1], values[2], values[3], scale);
}

void CRGBColor::SetColor4(const double* values, float scale) noexcept
{
    *this = CRGBColor(values[0], values[1], values[2], values[3], scale);
}

void CRGBColor::InitFromHSL(float hue, float saturation, float luminance) noexcept
{
    float red, green, blue;
    ConvertHSLToRGB(hue, saturation, luminance, red, green, blue);
    SetColor(Channel(red * kFullChannel), Channel(green * kFullChannel), Channel(blue * kFullChannel), m_channels[3]);
}

void CRGBColor::SetHue(float hue) noexcept
{
    float whole;
    if (hue > 1)
    {
        hue = std::modf(hue, &whole);
    }
    else if (hue < 0)
    {
        const float rest = std::modf(hue, &whole);
        hue = whole + 1 + rest;
    }
    float ignored, saturation, luminance;
    ConvertToHSL(ignored, saturation, luminance);
    InitFromHSL(hue, saturation, luminance);
}

void CRGBColor::SetSaturation(float saturation) noexcept
{
    float hue, ignored, luminance;
    ConvertToHSL(hue, ignored, luminance);
    InitFromHSL(hue, saturation, luminance);
}

void CRGBColor::SetLuminance(float luminance) noexcept
{
    float hue, saturation, ignored;
    ConvertToHSL(hue, saturation, ignored);
    InitFromHSL(hue, saturation, luminance);
}

void CRGBColor::Darken(float amount) noexcept
{
    Lighten(-amount);
}

void CRGBColor::Lighten(float amount) noexcept
{
    float hue, saturation, luminance;
    ConvertToHSL(hue, saturation, luminance);
    InitFromHSL(hue, saturation, luminance + amount);
}

CRGBColor CRGBColor::CreateDarken(float amount) const noexcept
{
    return CreateLighten(-amount);
}

CRGBColor CRGBColor::CreateLighten(float amount) const noexcept
{
    CRGBColor result = *this;
    result.Lighten(amount);
    return result;
}

CRGBColor& CRGBColor::operator*=(float factor) noexcept
{
    for (unsigned char& channel : m_channels)
        channel = Channel(channel * factor);
    return *this;
}

CRGBColor CRGBColor::operator*(float factor) const noexcept
{
    return {Channel(m_channels[0] * factor), Channel(m_channels[1] * factor), Channel(m_channels[2] * factor)};
}

CRGBColor CRGBColor::operator*(double factor) const noexcept
{
    const auto scaled = [factor](unsigned char channel) {
        return static_cast<int>(std::min(channel * factor > 0 ? channel * factor : 0.0, 255.0));
    };
    return {scaled(m_channels[0]), scaled(m_channels[1]), scaled(m_channels[2])};
}

CRGBColor CRGBColor::operator+(const CRGBColor& other) const noexcept
{
    return {m_channels[0] + other.m_channels[0], m_channels[1] + other.m_channels[1],
            m_channels[2] + other.m_channels[2]};
}

CRGBColor CRGBColor::operator-(const CRGBColor& other) const noexcept
{
    return {m_channels[0] - other.m_channels[0], m_channels[1] - other.m_channels[1],
            m_channels[2] - other.m_channels[2]};
}

CRGBColor CRGBColor::Interpolate(float t, const CRGBColor& a, const CRGBColor& b, bool withAlpha) noexcept
{
    CRGBColor result;
    for (int i = 0; i < (withAlpha ? 4 : 3); ++i)
        result[i] = Channel(b[i] * (1 - t) + a[i] * t);
    return result;
}

void CRGBColor::Serialize(CXArchive& archive)
{
    if (archive.IsStoring())
        archive << *this;
    else
        archive >> *this;
}

CXArchive& operator<<(CXArchive& archive, const CRGBColor& color)
{
    return archive << color[0] << color[1] << color[2] << color[3];
}

CXArchive& operator>>(CXArchive& archive, CRGBColor& color)
{
    return archive >> color[0] >> color[1] >> color[2] >> color[3];
}

CRGB32Color& CRGB32Color::operator=(const CRGBColor& color) noexcept
{
    std::copy_n(color.ValPtr(), 4, m_channels);
    return *this;
}

CRGB32Color& CRGB32Color::operator+=(const CRGBColor& color) noexcept
{
    for (int i = 0; i < 4; ++i)
        m_channels[i] += color[i];
    return *this;
}

CRGB32Color& CRGB32Color::operator-=(const CRGBColor& color) noexcept
{
    for (int i = 0; i < 4; ++i)
        m_channels[i] -= color[i];
    return *this;
}

CRGB32Color& CRGB32Color::operator*=(float factor) noexcept
{
    for (unsigned int& channel : m_channels)
        channel =
            Sum(channel < kExactFloats ? static_cast<float>(channel) * factor : static_cast<double>(channel) * factor);
    return *this;
}

CRGBColor CRGB32Color::ConvertToRGBColor(float divisor) const noexcept
{
    CRGBColor result;
    for (int i = 0; i < 4; ++i)
        result[i] = LowByte(static_cast<double>(m_channels[i]) / divisor);
    return result;
}
