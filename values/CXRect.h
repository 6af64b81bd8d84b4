#pragma once

#include "base/TevTypes.h"

#include <type_traits>

// Points, sizes and rectangles of 32-bit integers. They are the system's structures with operations on them, so each can be
// passed where its structure is expected, by value, reference or address. Sums, differences and products wrap around at 32
// bits. One thread at a time.

namespace tev
{
// Arithmetic that wraps around, which that of signed integers does not promise.

constexpr int WrapAdd(int a, int b) noexcept
{
    return static_cast<int>(static_cast<unsigned>(a) + static_cast<unsigned>(b));
}

constexpr int WrapSubtract(int a, int b) noexcept
{
    return static_cast<int>(static_cast<unsigned>(a) - static_cast<unsigned>(b));
}

constexpr int WrapMultiply(int a, int b) noexcept
{
    return static_cast<int>(static_cast<unsigned>(a) * static_cast<unsigned>(b));
}

/// For conversions to the address of a structure. They are templates, so that the compiler uses them only where such an
/// address is asked for: as a condition, in a comparison or a sum an address has no meaning.
template <class TARGET, class STRUCTURE>
using IfAddressOf = std::enable_if_t<std::is_same_v<TARGET, STRUCTURE> || std::is_same_v<TARGET, const STRUCTURE>>;
} // namespace tev

class CXRect;

/// A point of whole numbers.
class CXPoint : public tagPOINT
{
public:
    constexpr CXPoint() noexcept : tagPOINT{0, 0} {}
    constexpr CXPoint(int xValue, int yValue) noexcept : tagPOINT{xValue, yValue} {}
    constexpr CXPoint(const tagPOINT& point) noexcept : tagPOINT(point) {}
    constexpr CXPoint(const tagPOINTS& point) noexcept : CXPoint(point.x, point.y) {}
    constexpr CXPoint(const tagSIZE& size) noexcept : CXPoint(size.cx, size.cy) {}

    friend constexpr bool operator==(const tagPOINT& a, const tagPOINT& b) noexcept { return a.x == b.x && a.y == b.y; }
    friend constexpr bool operator!=(const tagPOINT& a, const tagPOINT& b) noexcept { return a.x != b.x || a.y != b.y; }
    constexpr CXPoint operator-() const noexcept { return {tev::WrapSubtract(0, x), tev::WrapSubtract(0, y)}; }
    constexpr CXPoint operator+(const tagPOINT& other) const noexcept
    {
        return {tev::WrapAdd(x, other.x), tev::WrapAdd(y, other.y)};
    }
    constexpr CXPoint operator-(const tagPOINT& other) const noexcept
    {
        return {tev::WrapSubtract(x, other.x), tev::WrapSubtract(y, other.y)};
    }
    constexpr CXPoint operator+(const tagSIZE& size) const noexcept { return *this + CXPoint(size); }
    constexpr CXPoint operator-(const tagSIZE& size) const noexcept { return *this - CXPoint(size); }
    /// The rectangle moved by the point; with minus, moved the other way.
    constexpr CXRect operator+(const tagRECT& rectangle) const noexcept;
    constexpr CXRect operator-(const tagRECT& rectangle) const noexcept;

    /// To `tagPOINT*` or `const tagPOINT*`.
    template <class TARGET, class = tev::IfAddressOf<TARGET, tagPOINT>>
    operator TARGET*() noexcept
    {
        return this;
    }
};

/// A width and a height of whole numbers.
class CXSize : public tagSIZE
{
public:
    constexpr CXSize() noexcept : tagSIZE{0, 0} {}
    constexpr CXSize(int cxValue, int cyValue) noexcept : tagSIZE{cxValue, cyValue} {}
    constexpr CXSize(const tagSIZE& size) noexcept : tagSIZE(size) {}
    constexpr CXSize(const tagPOINT& point) noexcept : CXSize(point.x, point.y) {}

    friend constexpr bool operator==(const tagSIZE& a, const tagSIZE& b) noexcept
    {
        return a.cx == b.cx && a.cy == b.cy;
    }
    friend constexpr bool operator!=(const tagSIZE& a, const tagSIZE& b) noexcept
    {
        return a.cx != b.cx || a.cy != b.cy;
    }
    constexpr CXSize operator-() const noexcept { return {tev::WrapSubtract(0, cx), tev::WrapSubtract(0, cy)}; }
    constexpr CXSize operator+(const tagSIZE& other) const noexcept
    {
        return {tev::WrapAdd(cx, other.cx), tev::WrapAdd(cy, other.cy)};
    }
    constexpr CXSize operator-(const tagSIZE& other) const noexcept
    {
        return {tev::WrapSubtract(cx, other.cx), tev::WrapSubtract(cy, other.cy)};
    }
    constexpr CXPoint operator+(const tagPOINT& point) const noexcept { return CXPoint(*this) + point; }
    constexpr CXPoint operator-(const tagPOINT& point) const noexcept { return CXPoint(*this) - point; }
    /// The rectangle moved by the size; with minus, moved the other way.
    constexpr CXRect operator+(const tagRECT& rectangle) const noexcept;
    constexpr CXRect operator-(const tagRECT& rectangle) const noexcept;

    /// Half the sum of both, rounded toward zero.
    constexpr int Mean() const noexcept { return static_cast<int>(tev::WrapAdd(cx, cy) * 0.5); }

    /// To `tagSIZE*` or `const tagSIZE*`.
    template <class TARGET, class = tev::IfAddressOf<TARGET, tagSIZE>>
    operator TARGET*() noexcept
    {
        return this;
    }
};

/// A rectangle from its left and top edge up to its right and bottom edge, which do not belong to it.
class TEVTOOLS_API CXRect : public tagRECT
{
public:
    constexpr CXRect() noexcept : tagRECT{0, 0, 0, 0} {}
    constexpr CXRect(int leftEdge, int topEdge, int rightEdge, int bottomEdge) noexcept
        : tagRECT{leftEdge, topEdge, rightEdge, bottomEdge}
    {
    }
    constexpr CXRect(const tagRECT& rectangle) noexcept : tagRECT(rectangle) {}
    constexpr CXRect(const tagPOINT& topLeft, const tagPOINT& bottomRight) noexcept
        : CXRect(topLeft.x, topLeft.y, bottomRight.x, bottomRight.y)
    {
    }
    constexpr CXRect(const tagPOINT& topLeft, const tagSIZE& size) noexcept : CXRect(topLeft, CXPoint(topLeft) + size)
    {
    }

    // Queries

    constexpr int Width() const noexcept { return tev::WrapSubtract(right, left); }
    constexpr int Height() const noexcept { return tev::WrapSubtract(bottom, top); }
    constexpr CXSize Size() const noexcept { return {Width(), Height()}; }
    constexpr CXPoint TopLeft() const noexcept { return {left, top}; }
    constexpr CXPoint BottomRight() const noexcept { return {right, bottom}; }
    /// Half the sums of opposite edges, rounded toward zero.
    constexpr CXPoint CenterPoint() const noexcept
    {
        return {tev::WrapAdd(left, right) / 2, tev::WrapAdd(top, bottom) / 2};
    }
    /// Whether all four edges are 0.
    constexpr bool IsRectNull() const noexcept { return EqualRect(CXRect()); }
    /// Whether no point lies within: the right edge is not right of the left one, or the bottom one not below the top one.
    constexpr bool IsRectEmpty() const noexcept { return right <= left || bottom <= top; }
    constexpr bool PtInRect(const tagPOINT& point) const noexcept
    {
        return left <= point.x && point.x < right && top <= point.y && point.y < bottom;
    }
    constexpr bool EqualRect(const tagRECT& other) const noexcept
    {
        return left == other.left && top == other.top && right == other.right && bottom == other.bottom;
    }
    friend constexpr bool operator==(const tagRECT& a, const tagRECT& b) noexcept { return CXRect(a).EqualRect(b); }
    friend constexpr bool operator!=(const tagRECT& a, const tagRECT& b) noexcept { return !CXRect(a).EqualRect(b); }

    // Changes, which always return true.

    constexpr bool SetRect(int leftEdge, int topEdge, int rightEdge, int bottomEdge) noexcept
    {
        *this = CXRect(leftEdge, topEdge, rightEdge, bottomEdge);
        return true;
    }
    constexpr bool SetRectEmpty() noexcept
    {
        *this = CXRect();
        return true;
    }
    constexpr bool CopyRect(const tagRECT& other) noexcept
    {
        *this = other;
        return true;
    }

    /// Moves each edge outwards, by amounts for both sides of an axis, for each edge, or for the edges named alike.
    constexpr bool InflateRect(int dx, int dy) noexcept { return InflateRect(dx, dy, dx, dy); }
    constexpr bool InflateRect(int leftBy, int topBy, int rightBy, int bottomBy) noexcept
    {
        return SetRect(tev::WrapSubtract(left, leftBy), tev::WrapSubtract(top, topBy), tev::WrapAdd(right, rightBy),
                       tev::WrapAdd(bottom, bottomBy));
    }
    constexpr bool InflateRect(const tagRECT& by) noexcept { return InflateRect(by.left, by.top, by.right, by.bottom); }
    constexpr bool InflateRect(const tagSIZE& by) noexcept { return InflateRect(by.cx, by.cy); }
    /// Moves each edge inwards.
    constexpr bool DeflateRect(int dx, int dy) noexcept { return DeflateRect(dx, dy, dx, dy); }
    constexpr bool DeflateRect(int leftBy, int topBy, int rightBy, int bottomBy) noexcept
    {
        return InflateRect(tev::WrapSubtract(0, leftBy), tev::WrapSubtract(0, topBy), tev::WrapSubtract(0, rightBy),
                           tev::WrapSubtract(0, bottomBy));
    }
    constexpr bool DeflateRect(const tagRECT& by) noexcept { return DeflateRect(by.left, by.top, by.right, by.bottom); }
    constexpr bool DeflateRect(const tagSIZE& by) noexcept { return DeflateRect(by.cx, by.cy); }
    constexpr bool OffsetRect(int dx, int dy) noexcept
    {
        return SetRect(tev::WrapAdd(left, dx), tev::WrapAdd(top, dy), tev::WrapAdd(right, dx),
                       tev::WrapAdd(bottom, dy));
    }
    constexpr bool OffsetRect(const tagPOINT& by) noexcept { return OffsetRect(by.x, by.y); }
    constexpr bool OffsetRect(const tagSIZE& by) noexcept { return OffsetRect(by.cx, by.cy); }

    // This rectangle may be one of the operands. Where the result is false, it is all zeros.

    /// Becomes the overlap of two rectangles; false when it is empty.
    bool IntersectRect(const tagRECT& a, const tagRECT& b) noexcept;
    /// Becomes the smallest rectangle around both; an empty one does not count. False when both are empty.
    bool UnionRect(const tagRECT& a, const tagRECT& b) noexcept;
    /// Becomes `a` without the part that `b` covers, where that part is cut off along a whole side, else all of `a`. False
    /// when `a` is empty or covered altogether.
    bool SubtractRect(const tagRECT& a, const tagRECT& b) noexcept;

    // Results

    /// Every edge times the numerator, wrapped around at 32 bits and then divided, rounded toward zero. An edge is neither
    /// widened nor rounded to the nearest. A denominator of 0 throws CXInvalidArgException.
    CXRect MulDiv(int numerator, int denominator) const;

    CXRect operator&(const tagRECT& other) const noexcept;
    CXRect operator|(const tagRECT& other) const noexcept;
    /// Moved by a point or a size; with a rectangle, each edge moved outwards (plus) or inwards (minus) by the edge named
    /// alike.
    constexpr CXRect operator+(const tagPOINT& by) const noexcept
    {
        CXRect result = *this;
        result.OffsetRect(by);
        return result;
    }
    constexpr CXRect operator-(const tagPOINT& by) const noexcept { return *this + -CXPoint(by); }
    constexpr CXRect operator+(const tagSIZE& by) const noexcept { return *this + CXPoint(by); }
    constexpr CXRect operator-(const tagSIZE& by) const noexcept { return *this - CXPoint(by); }
    constexpr CXRect operator+(const tagRECT& by) const noexcept
    {
        CXRect result = *this;
        result.InflateRect(by);
        return result;
    }
    constexpr CXRect operator-(const tagRECT& by) const noexcept
    {
        CXRect result = *this;
        result.DeflateRect(by);
        return result;
    }

    /// To `tagRECT*` or `const tagRECT*`.
    template <class TARGET, class = tev::IfAddressOf<TARGET, tagRECT>>
    operator TARGET*() noexcept
    {
        return this;
    }
    template <class TARGET, class = tev::IfAddressOf<TARGET, const tagRECT>>
    operator TARGET*() const noexcept
    {
        return this;
    }
};

constexpr CXRect CXPoint::operator+(const tagRECT& rectangle) const noexcept
{
    return CXRect(rectangle) + *this;
}

constexpr CXRect CXPoint::operator-(const tagRECT& rectangle) const noexcept
{
    return CXRect(rectangle) - *this;
}

constexpr CXRect CXSize::operator+(const tagRECT& rectangle) const noexcept
{
    return CXRect(rectangle) + *this;
}

constexpr CXRect CXSize::operator-(const tagRECT& rectangle) const noexcept
{
    return CXRect(rectangle) - *this;
}
