// Containers and times as the standard library's users expect them: lists, ranges, moves, std::chrono; and guards for what
// is taken and released.

#include "TevTools.h"

#include <chrono>
#include <iostream>
#include <memory>

namespace
{
int CountLongNames()
{
    CXArray<CXTString<wchar_t>> names = {L"roof", L"wall", L"window"};
    names.Add(L"chimney"); // moved in

    CHashMap<CXTString<wchar_t>, const CXTString<wchar_t>&, int> lengths;
    for (const auto& name : names)
        lengths.Insert(name, name.GetLength());

    int count = 0;
    for (auto& [name, length] : lengths)
    {
        length = name.GetLength(); // the key is const, the value is not
        count += length > 4 ? 1 : 0;
    }
    return count;
}

unsigned SumOfSetBits()
{
    CBitArray bits;
    bits.SetSize(100, false);
    for (const unsigned index : {3U, 64U, 99U})
        bits.SetAt(index, true);
    unsigned sum = 0;
    for (const unsigned index : bits)
        sum += index;
    return sum;
}

bool GoesThroughChrono()
{
    const CXTime start(std::chrono::system_clock::now());
    const CXTime end = start + std::chrono::minutes(90);
    std::cout << "from " << start << " for " << end - start << "\n"; // from 2026-11-22T10:16:31Z for 1:30:00
    return std::chrono::seconds(end - start) == std::chrono::minutes(90) &&
           std::chrono::system_clock::time_point(end) > std::chrono::system_clock::now();
}

void LogSteps()
{
    const CXLogLock together; // no other thread's message comes between
    WriteToLogFile(L"reading the scene\n");
    const CXLogTab tab;
    WriteToLogFile(L"lights\n");
}
} // namespace

int main()
{
    CXArray<std::unique_ptr<int>> owners;
    owners.Add(std::make_unique<int>(5));
    LogSteps();
    return CountLongNames() == 2 && SumOfSetBits() == 166 && GoesThroughChrono() && *owners[0] == 5 ? 0 : 1;
}
