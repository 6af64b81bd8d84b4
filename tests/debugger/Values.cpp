// Values of every kind that a debugger shows, sound ones and damaged ones. The debugger stops in Stop.

#include <TevTools.h>

#include <cstdlib>
#include <cstring>
#include <ctime>
#include <new>

namespace
{
/// Memory for a T that was never constructed, filled with one byte. The program ends before it matters that it stays.
template <class T>
T& Unmade(int byte)
{
    void* const memory = std::malloc(sizeof(T));
    std::memset(memory, byte, sizeof(T));
    return *static_cast<T*>(memory);
}

class HostException : public CXFileException
{
public:
    using CXFileException::CXFileException;
    int m_attempts = 3;
};

using IntArray = CXArray<int, int>;
using TextMap = CHashMap<CXTString<wchar_t>, const CXTString<wchar_t>&, int>;
using IntTable = CHashTable<int>;

void FillStore(CCustomData& store)
{
    store.SetInt(1, -5);
    store.SetDouble(100, 0);
    store.SetUInt(2, 4000000000u);
    store.SetLongInt(3, -5000000000);
    store.SetUChar(4, 200);
    store.SetBool(5, 1);
    store.SetFloat(6, 0.5F);
    store.SetDouble(7, 0.1);
    store.SetPtr(8, reinterpret_cast<void*>(0x1234));
    store.SetString(9, L"caf\u00E9 \U0001F600");
    store.SetStringA(10, "narrow");
    store.SetXTime(11, CXTime(951782400));
    std::tm fields = {};
    fields.tm_year = 100;
    fields.tm_mday = 7;
    store.SetUTCTime(12, fields);
    store.SetBinary(13, "\x01\x02\xFF", 3);
    const int numbers[] = {1, 2, 3};
    store.SetArray(14, numbers, sizeof(int), 3);
    CXArray<CXTString<wchar_t>> strings;
    strings.Add(L"one");
    strings.Add(L"two");
    store.SetStringArray(15, strings);
    CCustomData nested;
    nested.SetInt(1, 7);
    store.SetCustomData(16, nested);
    store.RemoveCustom(100); // leaves a gap
}

/// A breakpoint for the debugger.
[[gnu::noinline]] void Stop(const void* volatile) {}
} // namespace

int main()
{
    CXTString<wchar_t> wide(L"a\"b\\\n\u20AC\U0001F600");
    wide += static_cast<wchar_t>(0xDC80);
    CXTString<char> narrow("caf\u00E9 \xFF\x01");
    const CXTString<wchar_t> longText(L'x', 100000);
    CXTString<wchar_t> moved(L"moved");
    const CXTString<wchar_t> taken(std::move(moved));
    const CXTString<wchar_t>& reference = wide;
    CPathString path(L"/home/user/part.obj");

    IntArray numbers;
    for (int i = 1; i <= 3; ++i)
        numbers.Add(i * 11);
    IntArray many;
    many.SetSize(100000);
    CXArray<CXTString<wchar_t>> texts;
    texts.Add(L"first");
    texts.Add(L"second");
    CBitArray bits;
    bits.SetSize(40, false);
    bits.SetAt(1, true);
    bits.SetAt(33, true);
    COffsetArray offsets;
    offsets.SetAtGrow(0, 7);
    offsets.SetAtGrow(1, 0x100000001);
    CElementArray elements;

    TextMap map;
    map.Insert(L"alpha", 1);
    map.Insert(L"beta", 2);
    map.Remove(L"beta");
    IntTable table;
    table.Insert(42);
    CIntMap intMap;
    intMap.Insert(5, 50);

    CCustomData store;
    FillStore(store);
    CXTime time(951782400 + 3661);
    CXTime early(-1);
    [[maybe_unused]] const CXDuration duration(-90061);

    CXException plain(L"it broke");
    CXFileException file(fileNotFound, L"/none");
    CXMemoryException memory;
    HostException host(fileAccessDenied, L"/locked");
    CXException& unknown = host;

    // Damaged: only the debugger reads them.
    [[maybe_unused]] auto& zeroText = Unmade<CXTString<wchar_t>>(0);
    [[maybe_unused]] auto& wildText = Unmade<CXTString<wchar_t>>(0xCC);
    [[maybe_unused]] auto& zeroArray = Unmade<IntArray>(0);
    [[maybe_unused]] auto& wildArray = Unmade<IntArray>(0xCC);
    [[maybe_unused]] auto& zeroMap = Unmade<TextMap>(0);
    [[maybe_unused]] auto& wildMap = Unmade<TextMap>(0x41);
    [[maybe_unused]] auto& zeroStore = Unmade<CCustomData>(0);
    [[maybe_unused]] auto& wildStore = Unmade<CCustomData>(0x41);
    [[maybe_unused]] auto& zeroException = Unmade<CXFileException>(0);
    [[maybe_unused]] auto& wildException = Unmade<CXFileException>(0x41);
    [[maybe_unused]] auto& wildBits = Unmade<CBitArray>(0x41);
    [[maybe_unused]] auto& wildOffsets = Unmade<COffsetArray>(0x41);
    [[maybe_unused]] auto& wildElements = Unmade<CElementArray>(0x41);
    [[maybe_unused]] auto& wildTime = Unmade<CXTime>(0xFF);
    [[maybe_unused]] auto* const nowhere = reinterpret_cast<CXTString<wchar_t>*>(8);
    // Lengths that contradict nothing, but the memory is not there, or ends before.
    [[maybe_unused]] auto& lostText = Unmade<CXTString<wchar_t>>(0);
    static_cast<CXTCharArray<wchar_t>&>(lostText) = {reinterpret_cast<wchar_t*>(0x10), 5, 16};
    [[maybe_unused]] auto& hugeMap = Unmade<IntTable>(0);
    new (&hugeMap) IntTable(5);
    hugeMap.Insert(42);
    reinterpret_cast<unsigned*>(&hugeMap)[3] = 0xFFFFFFFF; // slots
    reinterpret_cast<unsigned*>(&hugeMap)[4] = 0x7FFFFFFF; // in use
    reinterpret_cast<unsigned*>(&hugeMap)[5] = 0x7FFFFFFF; // entries
    [[maybe_unused]] auto& cutStore = *new CCustomData;
    cutStore.SetInt(1, 1);
    cutStore.SetInt(2, 2);
    unsigned valueSize = 0;
    std::memset(static_cast<unsigned char*>(cutStore.GetCustomPtr(2, valueSize)) - 8, 0xEE, 4); // its size

    Stop(&map);
    delete &cutStore;
    return unknown.IsKindOf(CXFileException::GetThisRuntimeClassDescriptor()) && reference == wide ? 0 : 1;
}
