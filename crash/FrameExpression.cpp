#include "crash/FrameExpression.h"

#include "base/ByteReader.h"

#include <vector>

namespace tev
{
namespace
{
using platform::ByteReader;

/// The machine of DWARF expressions, without branches.
class Machine
{
public:
    Machine(const FrameState& state, const StackReader& stack) : m_state(state), m_stack(stack) {}

    void Push(std::uint64_t value) { m_values.push_back(value); }
    bool Run(unsigned char code, ByteReader& reader)
    {
        constexpr std::size_t kDeepest = 64;
        if (m_values.size() > kDeepest)
            return false;
        if (code >= 0x30 && code <= 0x4F) // small constants
            Push(code - 0x30u);
        else if (code >= 0x70 && code <= 0x8F) // a register and an offset
            return PushRegister(code - 0x70u, reader);
        else if (code == 0x92)
            return PushRegister(reader.TakeUnsigned(), reader);
        else if (code >= 0x08 && code <= 0x11)
            PushConstant(code, reader);
        else if (code >= 0x1A && code <= 0x2E && code != 0x1F && code != 0x20 && code != 0x23)
            return RunBinary(code);
        else
            return RunUnary(code, reader);
        return true;
    }
    bool Result(std::uint64_t& value) { return Pop(value); }

private:
    bool Pop(std::uint64_t& value)
    {
        if (m_values.empty())
            return false;
        value = m_values.back();
        m_values.pop_back();
        return true;
    }
    bool PushRegister(std::uint64_t number, ByteReader& reader)
    {
        const auto offset = static_cast<std::uint64_t>(reader.TakeSigned());
        if (number >= m_state.registers.size())
            return false;
        Push(m_state.registers[static_cast<std::size_t>(number)] + offset);
        return true;
    }
    template <class T>
    void PushSigned(T value)
    {
        Push(static_cast<std::uint64_t>(std::int64_t{value}));
    }
    void PushConstant(unsigned char code, ByteReader& reader)
    {
        switch (code)
        {
        case 0x08:
            return Push(reader.Take<std::uint8_t>());
        case 0x09:
            return PushSigned(reader.Take<std::int8_t>());
        case 0x0A:
            return Push(reader.Take<std::uint16_t>());
        case 0x0B:
            return PushSigned(reader.Take<std::int16_t>());
        case 0x0C:
            return Push(reader.Take<std::uint32_t>());
        case 0x0D:
            return PushSigned(reader.Take<std::int32_t>());
        case 0x10:
            return Push(reader.TakeUnsigned());
        case 0x11:
            return PushSigned(reader.TakeSigned());
        default:
            return Push(reader.Take<std::uint64_t>());
        }
    }

    /// Operations on the topmost value.
    bool RunUnary(unsigned char code, ByteReader& reader)
    {
        std::uint64_t value = 0;
        std::uint64_t below = 0;
        if (!Pop(value))
            return false;
        switch (code)
        {
        case 0x06: // read memory
            if (!m_stack(value, value))
                return false;
            break;
        case 0x12: // duplicate
            Push(value);
            break;
        case 0x13: // drop
            return true;
        case 0x14: // copy the second
        case 0x16: // swap
            if (!Pop(below))
                return false;
            if (code == 0x14)
                Push(below);
            Push(value);
            value = below;
            break;
        case 0x1F:
            value = ~value + 1;
            break;
        case 0x20:
            value = ~value;
            break;
        case 0x23:
            value += reader.TakeUnsigned();
            break;
        default:
            return false;
        }
        Push(value);
        return true;
    }

    bool RunBinary(unsigned char code)
    {
        std::uint64_t second = 0;
        std::uint64_t first = 0;
        if (!Pop(second) || !Pop(first))
            return false;
        const auto signedFirst = static_cast<std::int64_t>(first);
        const auto signedSecond = static_cast<std::int64_t>(second);
        switch (code)
        {
        case 0x1A:
            Push(first & second);
            return true;
        case 0x1C:
            Push(first - second);
            return true;
        case 0x1E:
            Push(first * second);
            return true;
        case 0x21:
            Push(first | second);
            return true;
        case 0x22:
            Push(first + second);
            return true;
        case 0x24:
            Push(second < 64 ? first << second : 0);
            return true;
        case 0x25:
            Push(second < 64 ? first >> second : 0);
            return true;
        case 0x27:
            Push(first ^ second);
            return true;
        case 0x29:
            Push(first == second);
            return true;
        case 0x2A:
            Push(signedFirst >= signedSecond);
            return true;
        case 0x2B:
            Push(signedFirst > signedSecond);
            return true;
        case 0x2C:
            Push(signedFirst <= signedSecond);
            return true;
        case 0x2D:
            Push(signedFirst < signedSecond);
            return true;
        case 0x2E:
            Push(first != second);
            return true;
        default:
            return false;
        }
    }

    const FrameState& m_state;
    const StackReader& m_stack;
    std::vector<std::uint64_t> m_values;
};
} // namespace

bool EvaluateExpression(std::string_view expression, const std::uint64_t* first, const FrameState& state,
                        const StackReader& stack, std::uint64_t& result)
{
    Machine machine(state, stack);
    if (first != nullptr)
        machine.Push(*first);
    ByteReader reader(expression);
    while (!reader.IsAtEnd())
    {
        const auto code = reader.Take<unsigned char>();
        if (!machine.Run(code, reader) || !reader.IsGood())
            return false;
    }
    return machine.Result(result);
}
} // namespace tev
