#include "values/CFRect.h"

namespace
{
bool IsBetween(float value, float low, float high) noexcept
{
    return low <= value && value <= high;
}

// Sets an edge of the overlap to the one of `a` when it lies within `b`, else to the one of `b` when that lies within `a`.
bool SetEdge(float& edge, float ofA, float ofB, float lowA, float highA, float lowB, float highB) noexcept
{
    if (IsBetween(ofA, lowB, highB))
        edge = ofA;
    else if (IsBetween(ofB, lowA, highA))
        edge = ofB;
    else
        return false;
    return true;
}
} // namespace

bool CFRect::IntersectRect(const CFRect& first, const CFRect& second) noexcept
{
    const CFRect a = first;
    const CFRect b = second;
    return SetEdge(left, a.left, b.left, a.left, a.right, b.left, b.right) &&
           SetEdge(right, a.right, b.right, a.left, a.right, b.left, b.right) &&
           SetEdge(top, a.top, b.top, a.top, a.bottom, b.top, b.bottom) &&
           SetEdge(bottom, a.bottom, b.bottom, a.top, a.bottom, b.top, b.bottom);
}
