#include "values/CXRect.h"

#include "objects/CXException.h"

#include <algorithm>

bool CXRect::IntersectRect(const tagRECT& a, const tagRECT& b) noexcept
{
    *this = CXRect(std::max(a.left, b.left), std::max(a.top, b.top), std::min(a.right, b.right),
                   std::min(a.bottom, b.bottom));
    if (!IsRectEmpty())
        return true;
    SetRectEmpty();
    return false;
}

bool CXRect::UnionRect(const tagRECT& a, const tagRECT& b) noexcept
{
    const CXRect first = a;
    const CXRect second = b;
    if (first.IsRectEmpty())
        *this = second;
    else if (second.IsRectEmpty())
        *this = first;
    else
        *this = CXRect(std::min(first.left, second.left), std::min(first.top, second.top),
                       std::max(first.right, second.right), std::max(first.bottom, second.bottom));
    if (!IsRectEmpty())
        return true;
    SetRectEmpty();
    return false;
}

bool CXRect::SubtractRect(const tagRECT& a, const tagRECT& b) noexcept
{
    const CXRect whole = a;
    CXRect covered;
    const bool overlap = covered.IntersectRect(a, b);
    if (whole.IsRectEmpty() || covered == whole)
    {
        SetRectEmpty();
        return false;
    }
    *this = whole;
    if (!overlap)
        return true;
    if (covered.top == whole.top && covered.bottom == whole.bottom)
    {
        if (covered.left == whole.left)
            left = covered.right;
        else if (covered.right == whole.right)
            right = covered.left;
    }
    else if (covered.left == whole.left && covered.right == whole.right)
    {
        if (covered.top == whole.top)
            top = covered.bottom;
        else if (covered.bottom == whole.bottom)
            bottom = covered.top;
    }
    return true;
}

CXRect CXRect::MulDiv(int numerator, int denominator) const
{
    if (denominator == 0)
        CXInvalidArgException::Throw();
    const auto scaled = [=](int edge) noexcept {
        const int product = tev::WrapMultiply(edge, numerator);
        // The one quotient that has no 32-bit value wraps around, too.
        return denominator == -1 ? tev::WrapSubtract(0, product) : product / denominator;
    };
    return {scaled(left), scaled(top), scaled(right), scaled(bottom)};
}

CXRect CXRect::operator&(const tagRECT& other) const noexcept
{
    CXRect result;
    result.IntersectRect(*this, other);
    return result;
}

CXRect CXRect::operator|(const tagRECT& other) const noexcept
{
    CXRect result;
    result.UnionRect(*this, other);
    return result;
}
