// The first byte chooses: element arrays or offset arrays from archives made of anything, which load or end with a
// documented exception; or random operations on an element array and on an offset array compared with standard vectors.

#include "arrays/CElementArray.h"
#include "arrays/COffsetArray.h"
#include "arrays/ElementKinds.h"
#include "files/CXMemFile.h"
#include "objects/CXException.h"

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <vector>

namespace
{
using Text = CXTString<wchar_t>;

void Check(bool holds)
{
    if (!holds)
        std::abort();
}

class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    bool Ended() const { return m_at == m_size; }
    std::uint8_t Byte() { return Ended() ? 0 : m_data[m_at++]; }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_at = 0;
};

template <class ARRAY>
void LoadAndUse(const std::uint8_t* data, std::size_t size)
{
    CXMemFile file(data, size, false);
    CXArchive archive(&file, xArchiveLoad);
    ARRAY array;
    try
    {
        for (;;)
            array.Serialize(archive);
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
    if (array.GetSize() != 0)
    {
        array.SetSize(array.GetSize() + 3);
        array.RemoveAt(0);
    }
    Check(static_cast<unsigned __int64>(array.GetSize()) <= size + 0x10000); // the first step of a false count
}

Text TextOf(unsigned value)
{
    return ("text " + std::to_string(value)).c_str();
}

// In construct mode slots that come into use show what was in them, so they are set at once.
void UseElements(Input& input)
{
    CElementArray array(new CXStringElements);
    std::vector<Text> model;
    unsigned value = 0;
    const auto textAt = [&](std::size_t i) { return static_cast<Text*>(array[static_cast<int>(i)]); };
    while (!input.Ended())
    {
        const std::uint8_t operation = input.Byte();
        const std::size_t size = model.size();
        const std::size_t at = input.Byte() % (size + 1);
        const int index = static_cast<int>(at);
        const Text text = TextOf(++value);
        switch (operation % 10)
        {
        case 0:
            array.SetAtGrow(index, &text, operation / 10 % 8 - 2);
            model.resize(std::max(size, at + 1));
            model[at] = text;
            break;
        case 1:
            array.InsertAt(index, &text, 1 + operation / 50);
            model.insert(model.begin() + index, 1 + operation / 50, text);
            break;
        case 2:
            if (at < size)
            {
                array.InsertAt(static_cast<int>(size) / 2, array[index], 2);
                const Text own = model[at];
                model.insert(model.begin() + static_cast<int>(size) / 2, 2, own);
            }
            break;
        case 3:
        case 4:
            if (at < size)
            {
                const std::size_t count = std::min<std::size_t>(size - at, 1 + operation / 20);
                array.RemoveAt(index, static_cast<int>(count));
                model.erase(model.begin() + index, model.begin() + index + static_cast<int>(count));
            }
            break;
        case 5:
            array.SetSize(index + operation / 40, operation % 20 == 5);
            model.resize(at + operation / 40);
            for (std::size_t i = size; i < model.size(); ++i)
                *textAt(i) = model[i] = text;
            break;
        case 6:
            array.ConstructMode(operation % 20 == 6);
            break;
        case 7:
            if (operation % 20 == 7)
                array.FreeExtra();
            else
                array.SetGrowFactor(operation / 20);
            break;
        case 8:
            if (size < 300)
            {
                const std::vector<Text> own = model;
                Check(array.InsertAt(index, &array));
                model.insert(model.begin() + index, own.begin(), own.end());
            }
            break;
        default: {
            std::vector<unsigned> order(size);
            for (std::size_t i = 0; i < size; ++i)
                order[i] = static_cast<unsigned>((i + at) % size);
            std::rotate(model.begin(), model.begin() + index, model.end());
            Check(array.Reorder(order.data(), static_cast<unsigned>(size), false) == (size != 0));
        }
        }
        Check(array.GetSize() == static_cast<int>(model.size()));
        for (std::size_t i = 0; i < model.size(); ++i)
            Check(*textAt(i) == model[i]);
    }
}

void UseOffsets(Input& input)
{
    COffsetArray array;
    std::vector<unsigned __int64> model;
    while (!input.Ended())
    {
        const std::uint8_t operation = input.Byte();
        const auto size = static_cast<unsigned>(model.size());
        const unsigned at = input.Byte() % (size + 2);
        const unsigned __int64 value = static_cast<unsigned __int64>(operation) << (operation % 7 == 0 ? 33 : 3);
        switch (operation % 5)
        {
        case 0:
        case 1:
            array.SetAtGrow(at, value);
            model.resize(std::max(size, at + 1));
            model[at] = value;
            break;
        case 2:
            array.RemoveAt(at);
            if (at < size)
                model.erase(model.begin() + at);
            break;
        case 3:
            array.SetSize(at + operation / 40, operation / 10 - 3);
            model.resize(at + operation / 40);
            break;
        default:
            array = COffsetArray(array);
            array.FreeExtra();
        }
        Check(array.GetSize() == model.size());
        for (unsigned i = 0; i < model.size(); ++i)
            Check(array[i] == model[i]);
    }
}
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size == 0)
        return 0;
    Input input(data + 1, size - 1);
    switch (data[0] % 4)
    {
    case 0:
        LoadAndUse<CElementArray>(data + 1, size - 1);
        break;
    case 1:
        LoadAndUse<COffsetArray>(data + 1, size - 1);
        break;
    case 2:
        UseElements(input);
        break;
    default:
        UseOffsets(input);
    }
    return 0;
}
