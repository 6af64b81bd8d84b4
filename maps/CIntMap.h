#pragma once

#include "maps/CHashMap.h"

/// A map of integers to integers. One thread at a time.
class CIntMap : public CHashMap<int, int, int, CHashMethods<int>>
{
public:
    using CHashMap::CHashMap;
};
