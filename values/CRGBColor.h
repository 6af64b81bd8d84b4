#pragma once

#include "text/CXTString.h"

#include <cstddef>
#include <type_traits>

class CXArchive;

// Colours of four channels, and the sum of many of them. Numbers become channels by cutting off the digits behind the
// point, never by rounding; those beyond a channel end at its limits, and what is no number becomes 0. Both classes are
// values: one thread at a time.

/// Hue, saturation and luminance of a colour whose channels lie in 0 to 1; all three results do too. The luminance is the
/// largest channel, what other models call value or brightness. A grey has hue and saturation 0.
TEVTOOLS_API void ConvertRGBToHSL(float red, float green, float blue, float& hue, float& saturation,
                                  float& luminance) noexcept;

/// The way back. Coordinates beyond 0 to 1 are taken as the nearer limit.
TEVTOOLS_API void ConvertHSLToRGB(float hue, float saturation, float luminance, float& red, float& green,
                                  float& blue) noexcept;

namespace tev
{
/// For channels given as integers, of whatever types.
template <class... CHANNELS>
using IfIntegers = std::enable_if_t<((std::is_integral_v<CHANNELS> || std::is_enum_v<CHANNELS>)&&...) &&
                                    (std::is_convertible_v<CHANNELS, long long> && ...)>;

// Stands before the class, because clang evaluates no template of a member that is defined later in it.
template <class INTEGER>
constexpr unsigned char ClampedChannel(INTEGER value) noexcept
{
    const unsigned long long atLeastZero = value < INTEGER() ? 0 : static_cast<unsigned long long>(value);
    return static_cast<unsigned char>(atLeastZero > 255 ? 255 : atLeastZero);
}
} // namespace tev

/// Red, green, blue and alpha, each 0 to 255. Opaque black if nothing is given; where alpha is not given it is 255.
class TEVTOOLS_API CRGBColor
{
public:
    constexpr CRGBColor() noexcept = default;
    /// Channels in their order. Those that `count` leaves out are 0, an alpha 255.
    CRGBColor(const unsigned char* channels, int count) noexcept;
    constexpr CRGBColor(unsigned char red, unsigned char green, unsigned char blue, unsigned char alpha = 255) noexcept
        : m_channels{red, green, blue, alpha}
    {
    }
    constexpr CRGBColor(int red, int green, int blue, int alpha = 255) noexcept
        : m_channels{tev::ClampedChannel(red), tev::ClampedChannel(green), tev::ClampedChannel(blue),
                     tev::ClampedChannel(alpha)}
    {
    }
    template <class RED, class GREEN, class BLUE, class ALPHA = int, class = tev::IfIntegers<RED, GREEN, BLUE, ALPHA>>
    constexpr CRGBColor(RED red, GREEN green, BLUE blue, ALPHA alpha = 255) noexcept
        : m_channels{tev::ClampedChannel(red), tev::ClampedChannel(green), tev::ClampedChannel(blue),
                     tev::ClampedChannel(alpha)}
    {
    }
    /// Each channel is the value times the scale.
    CRGBColor(float red, float green, float blue, float scale) noexcept { SetColor(red, green, blue, scale); }
    CRGBColor(float red, float green, float blue, float alpha, float scale) noexcept
    {
        SetColor(red, green, blue, alpha, scale);
    }
    CRGBColor(double red, double green, double blue, float scale) noexcept;
    CRGBColor(double red, double green, double blue, double alpha, float scale) noexcept;
    /// Red in the lowest byte, then green, then blue; the highest is not looked at.
    constexpr CRGBColor(unsigned long rgb) noexcept
        : m_channels{static_cast<unsigned char>(rgb), static_cast<unsigned char>(rgb >> 8),
                     static_cast<unsigned char>(rgb >> 16), 255}
    {
    }

    /// The channel 0 to 3: red, green, blue, alpha.
    unsigned char& operator[](int channel) noexcept { return m_channels[channel]; }
    unsigned char operator[](int channel) const noexcept { return m_channels[channel]; }
    unsigned char* ValPtr() noexcept { return m_channels; }
    const unsigned char* ValPtr() const noexcept { return m_channels; }

    /// Red in the lowest byte, then green, then blue; the highest is 0.
    unsigned int GetRGB() const noexcept { return GetRGBA() & 0xFFFFFF; }
    /// As GetRGB, with alpha in the highest byte.
    unsigned int GetRGBA() const noexcept;
    void GetColor4(int* channels) const noexcept;
    void GetColor4(unsigned char* channels) const noexcept;
    /// Each channel divided by the scale.
    void GetColor4(float* channels, float scale) const noexcept { GetColor4f(channels, scale); }
    void GetColor4f(float* channels, float scale) const noexcept;
    void GetColor4d(double* channels, float scale) const noexcept;
    /// The channels as 0 to 1.
    void Normalize(float& red, float& green, float& blue) const noexcept;
    void Normalize(float& red, float& green, float& blue, float& alpha) const noexcept;
    void ConvertToHSL(float& hue, float& saturation, float& luminance) const noexcept;
    float GetHue() const noexcept;
    float GetSaturation() const noexcept;
    float GetLuminance() const noexcept;
    /// "255 128 0 (RGB)", with the name of the model in the current language.
    CXTString<wchar_t> GetRGBString() const;
    void GetRGBString(CXTString<wchar_t>& text) const;
    /// As GetRGBString, with alpha.
    CXTString<wchar_t> GetRGBAString() const;
    void GetRGBAString(CXTString<wchar_t>& text) const;

    void SetColor(unsigned long rgb) noexcept { *this = CRGBColor(rgb); }
    void SetColor(unsigned char red, unsigned char green, unsigned char blue, unsigned char alpha = 255) noexcept
    {
        *this = CRGBColor(red, green, blue, alpha);
    }
    void SetColor(int red, int green, int blue, int alpha = 255) noexcept
    {
        *this = CRGBColor(red, green, blue, alpha);
    }
    template <class RED, class GREEN, class BLUE, class ALPHA = int, class = tev::IfIntegers<RED, GREEN, BLUE, ALPHA>>
    void SetColor(RED red, GREEN green, BLUE blue, ALPHA alpha = 255) noexcept
    {
        *this = CRGBColor(red, green, blue, alpha);
    }
    void SetColor(float red, float green, float blue, float scale) noexcept;
    void SetColor(float red, float green, float blue, float alpha, float scale) noexcept;
    void SetColor3(const unsigned char* channels) noexcept { *this = CRGBColor(channels, 3); }
    void SetColor3(const float* values, float scale) noexcept;
    void SetColor3(const double* values, float scale) noexcept;
    void SetColor4(const unsigned char* channels) noexcept { *this = CRGBColor(channels, 4); }
    void SetColor4(const float* values, float scale) noexcept;
    void SetColor4(const double* values, float scale) noexcept;

    // These keep alpha.

    void InitFromHSL(float hue, float saturation, float luminance) noexcept;
    /// A hue above 1 loses its whole part; one between -1 and 0 has 1 added. One of -1 and below is taken as 0: callers
    /// rely on it.
    void SetHue(float hue) noexcept;
    void SetSaturation(float saturation) noexcept;
    void SetLuminance(float luminance) noexcept;
    /// Takes `amount` from the luminance, down to 0.
    void Darken(float amount) noexcept;
    /// Adds `amount` to the luminance, up to 1.
    void Lighten(float amount) noexcept;
    CRGBColor CreateDarken(float amount) const noexcept;
    CRGBColor CreateLighten(float amount) const noexcept;

    bool operator==(const CRGBColor& other) const noexcept { return GetRGBA() == other.GetRGBA(); }
    bool operator!=(const CRGBColor& other) const noexcept { return !(*this == other); }

    /// Scales alpha too, unlike operator*. Callers rely on it.
    CRGBColor& operator*=(float factor) noexcept;

    // Results have alpha 255.

    CRGBColor operator*(float factor) const noexcept;
    CRGBColor operator*(double factor) const noexcept;
    CRGBColor operator*(int factor) const noexcept { return *this * static_cast<float>(factor); }
    /// Sums end at 255.
    CRGBColor operator+(const CRGBColor& other) const noexcept;
    /// Differences end at 0.
    CRGBColor operator-(const CRGBColor& other) const noexcept;

    /// `a` at 1 and `b` at 0, and what lies between or beyond. Alpha is 255 unless `withAlpha`.
    static CRGBColor Interpolate(float t, const CRGBColor& a, const CRGBColor& b, bool withAlpha) noexcept;

    /// Four bytes: red, green, blue, alpha.
    void Serialize(CXArchive& archive);

private:
    unsigned char m_channels[4] = {0, 0, 0, 255};
};

TEVTOOLS_API CXArchive& operator<<(CXArchive& archive, const CRGBColor& color);
TEVTOOLS_API CXArchive& operator>>(CXArchive& archive, CRGBColor& color);

/// Sums colours to divide the sum into one again. Black at first, with an alpha of 0xFFFFFF, which is not the 255 of a
/// colour: assign a first colour where the alpha of the average matters. Additions and subtractions wrap at 32 bits.
class TEVTOOLS_API CRGB32Color
{
public:
    constexpr CRGB32Color() noexcept = default;
    constexpr CRGB32Color(unsigned int red, unsigned int green, unsigned int blue,
                          unsigned int alpha = kNeutralAlpha) noexcept
        : m_channels{red, green, blue, alpha}
    {
    }

    CRGB32Color& operator=(const CRGBColor& color) noexcept;
    void SetColor(unsigned int red, unsigned int green, unsigned int blue, unsigned int alpha = kNeutralAlpha) noexcept
    {
        *this = CRGB32Color(red, green, blue, alpha);
    }

    CRGB32Color& operator+=(const CRGBColor& color) noexcept;
    CRGB32Color& operator-=(const CRGBColor& color) noexcept;
    /// Sums below 2^24 are multiplied as floats, larger ones as doubles, which hold all their digits.
    CRGB32Color& operator*=(float factor) noexcept;

    /// The sums divided without loss of digits, of which each channel keeps the low 8 bits: nothing ends at 255.
    CRGBColor ConvertToRGBColor(float divisor) const noexcept;

private:
    static constexpr unsigned int kNeutralAlpha = 0xFFFFFF;

    unsigned int m_channels[4] = {0, 0, 0, kNeutralAlpha};
};
