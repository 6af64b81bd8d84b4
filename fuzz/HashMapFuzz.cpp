// Random operations on CHashMap compared with std::unordered_map, for its contents, and with a literal model of its
// table, which says in which order. Values are strings, so that one kept or released too often is seen.

#include "maps/CHashMap.h"
#include "tests/support/HashTableModel.h"

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>
#include <unordered_map>

namespace
{
using Map = CHashMap<unsigned, unsigned, CXTString<char>>;

void Check(bool holds)
{
    if (!holds)
        std::abort();
}

CXTString<char> TextOf(int value)
{
    return ("a text too long for any inner buffer " + std::to_string(value)).c_str();
}

class Input
{
public:
    Input(const std::uint8_t* data, std::size_t size) : m_data(data), m_size(size) {}

    bool Ended() const { return m_at == m_size; }
    std::uint8_t Byte() { return Ended() ? 0 : m_data[m_at++]; }
    /// Few different keys, so that they collide often; some of them far away.
    std::uint32_t Key()
    {
        const std::uint32_t low = Byte();
        return low < 250 ? low : low * 0x01010101U + Byte();
    }

private:
    const std::uint8_t* m_data;
    std::size_t m_size;
    std::size_t m_at = 0;
};

struct Trio
{
    Map m_map;
    std::unordered_map<unsigned, int> m_entries;
    HashTableModel m_model;

    void Insert(unsigned key, int value)
    {
        const int fresh = m_entries.insert_or_assign(key, value).second ? 1 : 0;
        Check(m_map.Insert(key, TextOf(value)) == fresh);
        Check(m_model.Insert(key, value) == fresh);
    }

    void Remove(unsigned key, bool rehash)
    {
        const int there = m_entries.erase(key) != 0 ? 1 : 0;
        Check(m_map.Remove(key, rehash) == there);
        Check(m_model.Remove(key, rehash) == there);
    }

    void Compare() const
    {
        Check(m_map.GetCount() == m_entries.size());
        Check(m_map.GetHashTableSize() == m_model.Size());
        unsigned position = m_map.GetFirst();
        for (std::size_t at = 0; at < m_model.Slots().size(); ++at)
        {
            const auto& slot = m_model.Slots()[at];
            if (slot.m_state != 0)
                continue;
            Check(position == at);
            unsigned key = 0;
            CXTString<char>* value = nullptr;
            Check(m_map.GetNext(position, key, value));
            Check(key == slot.m_key && *value == TextOf(slot.m_value));
            Check(m_entries.at(key) == slot.m_value && m_map.Find(key) == value);
        }
        Check(position == 0xFFFFFFFF);
    }
};
} // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    Input input(data, size);
    Trio trio;
    int value = 0;
    while (!input.Ended())
    {
        switch (input.Byte() % 16)
        {
        default:
            trio.Insert(input.Key(), ++value);
            break;
        case 6:
        case 7:
        case 8:
            trio.Remove(input.Key(), false);
            break;
        case 9:
            trio.Remove(input.Key(), true);
            break;
        case 10:
            for (unsigned key = input.Byte() * 7U, last = key + input.Byte(); key < last; ++key)
                trio.Insert(key, ++value);
            break;
        case 11:
            for (unsigned key = input.Byte() * 7U, last = key + input.Byte(); key < last; ++key)
                trio.Remove(key, key % 2 == 0);
            break;
        case 12: {
            Map copy = trio.m_map;
            copy.Merge(copy);
            trio.m_map = copy;
            break;
        }
        case 13:
            Check(trio.m_map.Minimize() == trio.m_model.Minimize());
            break;
        case 14:
            trio.Compare();
            break;
        case 15: {
            const std::uint8_t what = input.Byte();
            const unsigned count = what / 3;
            if (what % 3 == 0)
            {
                trio.m_map.Clear();
                trio.m_model.Clear();
            }
            else if (what % 3 == 1)
            {
                trio.m_map.Free();
                trio.m_model.Free();
            }
            else
            {
                Check(trio.m_map.InitHashTable(count));
                trio.m_model.InitHashTable(count);
            }
            // A table that has the size already keeps what is in it.
            if (trio.m_model.Count() == 0)
                trio.m_entries.clear();
            break;
        }
        }
    }
    trio.Compare();
    return 0;
}
