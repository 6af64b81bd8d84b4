#pragma once

#include "values/CXRect.h"

// Points, sizes and rectangles of single-precision numbers, for positions between the pixels. Conversions to the integer
// classes end at the largest and smallest integer; what is not a number becomes 0. One thread at a time.

namespace tev
{
/// Cuts off the digits behind the point.
constexpr int TruncateToInt(double value) noexcept
{
    if (value >= 2147483647.0)
        return 2147483647;
    if (value <= -2147483648.0)
        return -2147483647 - 1;
    return value == value ? static_cast<int>(value) : 0;
}

/// To the nearest integer, halves away from zero.
constexpr int RoundToInt(float value) noexcept
{
    return TruncateToInt(value > 0 ? value + 0.5 : value - 0.5);
}
} // namespace tev

/// A point of two floats.
class CFPoint
{
public:
    constexpr CFPoint() noexcept = default;
    constexpr CFPoint(float xValue, float yValue) noexcept : x(xValue), y(yValue) {}
    constexpr CFPoint(const CXPoint& point) noexcept : x(static_cast<float>(point.x)), y(static_cast<float>(point.y)) {}

    /// Each coordinate rounded to the nearest integer, halves away from zero.
    constexpr operator CXPoint() const noexcept { return {tev::RoundToInt(x), tev::RoundToInt(y)}; }

    float x = 0;
    float y = 0;
};

/// A width and a height as floats.
class CFSize
{
public:
    constexpr CFSize() noexcept = default;
    constexpr CFSize(float cxValue, float cyValue) noexcept : cx(cxValue), cy(cyValue) {}
    constexpr CFSize(const CXSize& size) noexcept : cx(static_cast<float>(size.cx)), cy(static_cast<float>(size.cy)) {}
    constexpr CFSize(const CXRect& rectangle) noexcept : CFSize(rectangle.Size()) {}

    constexpr CFSize operator+(const CFSize& other) const noexcept { return {cx + other.cx, cy + other.cy}; }
    constexpr CFSize operator-(const CFSize& other) const noexcept { return {cx - other.cx, cy - other.cy}; }
    constexpr CFSize operator*(const CFSize& other) const noexcept { return {cx * other.cx, cy * other.cy}; }
    constexpr CFSize operator/(const CFSize& other) const noexcept { return {cx / other.cx, cy / other.cy}; }
    constexpr CFSize operator*(float factor) const noexcept { return {cx * factor, cy * factor}; }
    constexpr CFSize operator/(float divisor) const noexcept { return {cx / divisor, cy / divisor}; }

    constexpr operator CFPoint() const noexcept { return {cx, cy}; }
    /// Adds 0.5 and cuts off the digits behind the point: rounded where not negative, else up to one too large. Callers
    /// rely on it.
    constexpr operator CXSize() const noexcept { return {tev::TruncateToInt(cx + 0.5), tev::TruncateToInt(cy + 0.5)}; }
    /// Always 0, and no magnitude, whatever the size.
    constexpr double Length() const noexcept { return 0.0; }

    float cx = 0;
    float cy = 0;
};

/// The edges stand in another order than those of CXRect: the horizontal ones first.
class TEVTOOLS_API CFRect
{
public:
    constexpr CFRect() noexcept = default;
    constexpr CFRect(float leftEdge, float rightEdge, float topEdge, float bottomEdge) noexcept
        : left(leftEdge), right(rightEdge), top(topEdge), bottom(bottomEdge)
    {
    }
    constexpr CFRect(const CXRect& rectangle) noexcept
        : CFRect(static_cast<float>(rectangle.left), static_cast<float>(rectangle.right),
                 static_cast<float>(rectangle.top), static_cast<float>(rectangle.bottom))
    {
    }

    constexpr float Width() const noexcept { return right - left; }
    constexpr float Height() const noexcept { return bottom - top; }
    /// Whether all four edges are 0.
    constexpr bool IsNull() const noexcept { return *this == CFRect(); }
    constexpr bool IsNormalized() const noexcept { return right >= left && bottom >= top; }
    /// True for a rectangle with an area, the contrary of what the name says. Callers rely on it.
    constexpr bool IsEmpty() const noexcept { return Width() > 0 && Height() > 0; }
    constexpr bool operator==(const CFRect& other) const noexcept
    {
        return left == other.left && right == other.right && top == other.top && bottom == other.bottom;
    }
    constexpr bool operator!=(const CFRect& other) const noexcept { return !(*this == other); }

    /// Becomes the overlap of two rectangles, of which this may be one; those that touch overlap. False when they do not:
    /// the edges that were found before that, in the order left, right, top, bottom, are set, the others unchanged.
    bool IntersectRect(const CFRect& a, const CFRect& b) noexcept;

    // A size scales the left and right edges by its width, top and bottom by its height.

    constexpr CFRect operator*(const CFSize& factor) const noexcept
    {
        return {left * factor.cx, right * factor.cx, top * factor.cy, bottom * factor.cy};
    }
    constexpr CFRect operator/(const CFSize& divisor) const noexcept
    {
        return {left / divisor.cx, right / divisor.cx, top / divisor.cy, bottom / divisor.cy};
    }
    constexpr CFRect operator*(float factor) const noexcept { return *this * CFSize(factor, factor); }
    constexpr CFRect operator/(float divisor) const noexcept { return *this / CFSize(divisor, divisor); }

    /// Each edge rounded to the nearest integer, halves away from zero.
    constexpr operator CXRect() const noexcept
    {
        return {tev::RoundToInt(left), tev::RoundToInt(top), tev::RoundToInt(right), tev::RoundToInt(bottom)};
    }

    float left = 0;
    float right = 0;
    float top = 0;
    float bottom = 0;
};
