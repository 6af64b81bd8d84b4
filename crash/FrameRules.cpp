#include "crash/FrameRules.h"

#include "base/ByteReader.h"
#include "crash/FrameExpression.h"
#include "crash/Processor.h"

#include <algorithm>
#include <string>
#include <string_view>
#include <vector>

namespace tev
{
namespace
{
using platform::ByteReader;

// Encodings of addresses (DW_EH_PE).
constexpr unsigned char kOmitted = 0xFF;
constexpr unsigned char kFormatMask = 0x0F;
constexpr unsigned char kRelativeMask = 0x70;
constexpr unsigned char kToPlace = 0x10;
constexpr std::size_t kDeepestStates = 64;

enum class RuleKind : unsigned char
{
    Same,
    Unknown,
    AtOffset,   ///< stored at the frame's address plus a number
    IsOffset,   ///< is the frame's address plus a number
    InRegister, ///< of this number
    AtExpression,
    IsExpression
};

struct Rule
{
    RuleKind kind = RuleKind::Same;
    std::int64_t number = 0;
    std::string_view expression{};
};

struct Rules
{
    std::uint64_t frameRegister = 0;
    std::int64_t frameOffset = 0;
    bool isKnown = false;               ///< whether the frame's address is
    std::string_view frameExpression{}; ///< instead of the register and the offset, unless it is empty
    std::array<Rule, FrameState::kMostRegisters> registers{};
};

/// A common information entry (CIE).
struct Common
{
    std::uint64_t codeUnit = 1;
    std::int64_t dataUnit = 1;
    std::uint64_t returnRegister = 0;
    unsigned char addressFormat = 0;
    bool hasLengths = false;
    bool isSignalFrame = false; ///< of the code to which signal handlers return
    std::string_view program;
};

std::uint64_t TakeAddress(ByteReader& reader, unsigned char format, std::uint64_t place)
{
    std::uint64_t value = 0;
    switch (format & kFormatMask)
    {
    case 0x00:
    case 0x04:
    case 0x0C:
        value = reader.Take<std::uint64_t>();
        break;
    case 0x01:
        value = reader.TakeUnsigned();
        break;
    case 0x02:
        value = reader.Take<std::uint16_t>();
        break;
    case 0x03:
        value = reader.Take<std::uint32_t>();
        break;
    case 0x09:
        value = static_cast<std::uint64_t>(reader.TakeSigned());
        break;
    case 0x0A:
        value = static_cast<std::uint64_t>(std::int64_t{reader.Take<std::int16_t>()});
        break;
    case 0x0B:
        value = static_cast<std::uint64_t>(std::int64_t{reader.Take<std::int32_t>()});
        break;
    default:
        reader.Skip(~std::uint64_t{0});
        break;
    }
    return (format & kRelativeMask) == kToPlace ? value + place : value;
}

/// An entry of the table: common or of a function. Places are in the table.
struct Entry
{
    std::uint64_t start = 0; ///< of what follows the length
    std::uint64_t end = 0;
    std::uint32_t commonDistance = 0;
};

/// Reads entries; one that is longer than any compiler makes them is unknown.
class Table
{
public:
    Table(const UntrustedBytes& module, const ByteRange& place)
        : m_module(module), m_place(module.Has(place) ? place : ByteRange())
    {
    }

    bool ReadEntry(std::uint64_t at, Entry& entry) const
    {
        constexpr std::uint32_t kIsLong = 0xFFFFFFFF;
        std::uint32_t number = 0;
        if (!Read(at, number))
            return false;
        std::uint64_t length = number;
        entry.start = at + sizeof number;
        if (number == kIsLong)
        {
            if (!Read(entry.start, length))
                return false;
            entry.start += sizeof length;
        }
        entry.end = entry.start + length;
        return length >= sizeof entry.commonDistance && length <= m_place.size - entry.start &&
               Read(entry.start, entry.commonDistance);
    }

    /// What follows the distance.
    bool ReadBody(const Entry& entry, std::string& body) const
    {
        return entry.end - entry.start <= kLongestEntry && ReadStart(entry, kLongestEntry, body);
    }
    /// As much of it as there is, up to a size.
    bool ReadStart(const Entry& entry, std::uint64_t most, std::string& body) const
    {
        const std::uint64_t start = entry.start + sizeof entry.commonDistance;
        body.resize(static_cast<std::size_t>(std::min(entry.end - start, most)));
        return m_module.Read(m_place.offset + start, body.data(), body.size());
    }

private:
    template <class T>
    bool Read(std::uint64_t at, T& value) const
    {
        return at <= m_place.size && sizeof value <= m_place.size - at && m_module.Read(m_place.offset + at, value);
    }

    static constexpr std::uint64_t kLongestEntry = 64 * 1024;

    const UntrustedBytes& m_module;
    const ByteRange m_place;
};

bool ReadCommon(std::string_view body, Common& common)
{
    ByteReader reader(body);
    const auto version = reader.Take<unsigned char>();
    const std::string_view augmentation = reader.TakeText();
    common.codeUnit = reader.TakeUnsigned();
    common.dataUnit = reader.TakeSigned();
    common.returnRegister = version == 1 ? reader.Take<unsigned char>() : reader.TakeUnsigned();
    if (!augmentation.empty())
    {
        if (augmentation[0] != 'z')
            return false;
        common.hasLengths = true;
        ByteReader details(reader.TakeBytes(reader.TakeUnsigned()));
        for (const char letter : augmentation.substr(1))
        {
            if (letter == 'R')
                common.addressFormat = details.Take<unsigned char>();
            else if (letter == 'L')
                details.Skip(1);
            else if (letter == 'P')
                TakeAddress(details, details.Take<unsigned char>(), 0);
            else if (letter == 'S')
                common.isSignalFrame = true;
            else
                return false;
        }
    }
    common.program = body.substr(std::min(reader.Position(), body.size()));
    return reader.IsGood() && common.returnRegister < FrameState::kMostRegisters;
}

/// Runs call frame instructions, which change the rules from one instruction of the function to the next.
class RuleMachine
{
public:
    RuleMachine(const Common& common, std::uint64_t start, std::uint64_t target, const Rules& initial)
        : m_common(common), m_address(start), m_target(target), m_rules(initial), m_initial(initial)
    {
    }

    /// False for unknown instructions. Ends where the target is passed.
    bool Run(std::string_view program)
    {
        ByteReader reader(program);
        while (!reader.IsAtEnd() && m_address <= m_target)
        {
            const auto code = reader.Take<unsigned char>();
            if (!((code & 0xC0) != 0 ? RunShort(code, reader) : RunLong(code, reader)) || !reader.IsGood())
                return false;
        }
        return true;
    }
    const Rules& Result() const { return m_rules; }

private:
    void Set(std::uint64_t number, Rule rule)
    {
        if (number < FrameState::kMostRegisters)
            m_rules.registers[number] = rule;
    }
    void Restore(std::uint64_t number)
    {
        if (number < FrameState::kMostRegisters)
            m_rules.registers[number] = m_initial.registers[number];
    }
    void Advance(std::uint64_t units) { m_address += units * m_common.codeUnit; }
    std::int64_t Data(std::uint64_t units) const
    {
        return static_cast<std::int64_t>(units * static_cast<std::uint64_t>(m_common.dataUnit));
    }

    bool RunShort(unsigned char code, ByteReader& reader)
    {
        const std::uint64_t operand = code & 0x3F;
        if (code >> 6 == 1)
            Advance(operand);
        else if (code >> 6 == 2)
            Set(operand, {RuleKind::AtOffset, Data(reader.TakeUnsigned())});
        else
            Restore(operand);
        return true;
    }

    bool RunLong(unsigned char code, ByteReader& reader)
    {
        switch (code)
        {
        case 0x00: // no operation
            return true;
        case 0x02:
            Advance(reader.Take<unsigned char>());
            return true;
        case 0x03:
            Advance(reader.Take<std::uint16_t>());
            return true;
        case 0x04:
            Advance(reader.Take<std::uint32_t>());
            return true;
        case 0x0A: // remember the rules
            if (m_remembered.size() >= kDeepestStates)
                return false;
            m_remembered.push_back(m_rules);
            return true;
        case 0x0B: // restore them
            if (m_remembered.empty())
                return false;
            m_rules = m_remembered.back();
            m_remembered.pop_back();
            return true;
        case 0x0C:
        case 0x12:
            m_rules.frameRegister = reader.TakeUnsigned();
            m_rules.frameOffset = code == 0x0C ? static_cast<std::int64_t>(reader.TakeUnsigned())
                                               : Data(static_cast<std::uint64_t>(reader.TakeSigned()));
            m_rules.isKnown = true;
            m_rules.frameExpression = {};
            return true;
        case 0x0D:
            m_rules.frameRegister = reader.TakeUnsigned();
            return true;
        case 0x0E:
            m_rules.frameOffset = static_cast<std::int64_t>(reader.TakeUnsigned());
            return true;
        case 0x13:
            m_rules.frameOffset = Data(static_cast<std::uint64_t>(reader.TakeSigned()));
            return true;
        case 0x0F: // the frame's address by an expression
            m_rules.frameExpression = reader.TakeBytes(reader.TakeUnsigned());
            m_rules.isKnown = !m_rules.frameExpression.empty();
            return true;
        case 0x2E: // the size of arguments
            reader.TakeUnsigned();
            return true;
        default:
            return RunRule(code, reader);
        }
    }

    bool RunRule(unsigned char code, ByteReader& reader)
    {
        const std::uint64_t number = reader.TakeUnsigned();
        switch (code)
        {
        case 0x05:
            Set(number, {RuleKind::AtOffset, Data(reader.TakeUnsigned())});
            return true;
        case 0x06:
            Restore(number);
            return true;
        case 0x07:
            Set(number, {RuleKind::Unknown, 0});
            return true;
        case 0x08:
            Set(number, {RuleKind::Same, 0});
            return true;
        case 0x09:
            Set(number, {RuleKind::InRegister, static_cast<std::int64_t>(reader.TakeUnsigned())});
            return true;
        case 0x10:
            Set(number, {RuleKind::AtExpression, 0, reader.TakeBytes(reader.TakeUnsigned())});
            return true;
        case 0x16:
            Set(number, {RuleKind::IsExpression, 0, reader.TakeBytes(reader.TakeUnsigned())});
            return true;
        case 0x11:
            Set(number, {RuleKind::AtOffset, Data(static_cast<std::uint64_t>(reader.TakeSigned()))});
            return true;
        case 0x14:
            Set(number, {RuleKind::IsOffset, Data(reader.TakeUnsigned())});
            return true;
        case 0x15:
            Set(number, {RuleKind::IsOffset, Data(static_cast<std::uint64_t>(reader.TakeSigned()))});
            return true;
        default:
            return false;
        }
    }

    const Common& m_common;
    std::uint64_t m_address;
    const std::uint64_t m_target;
    Rules m_rules;
    const Rules m_initial; ///< at the function's start
    std::vector<Rules> m_remembered;
};

bool FindFrame(const Rules& rules, const FrameState& state, const StackReader& stack, std::uint64_t& frame)
{
    if (!rules.frameExpression.empty())
        return EvaluateExpression(rules.frameExpression, nullptr, state, stack, frame);
    if (!rules.isKnown || rules.frameRegister >= FrameState::kMostRegisters)
        return false;
    frame =
        state.registers[static_cast<std::size_t>(rules.frameRegister)] + static_cast<std::uint64_t>(rules.frameOffset);
    return true;
}

/// The register's value in the caller's frame; it is already that in this one.
bool ApplyRule(const Rule& rule, std::uint64_t frame, const FrameState& state, const StackReader& stack,
               std::uint64_t& value)
{
    const std::uint64_t place = frame + static_cast<std::uint64_t>(rule.number);
    switch (rule.kind)
    {
    case RuleKind::AtOffset:
        return stack(place, value);
    case RuleKind::IsOffset:
        value = place;
        return true;
    case RuleKind::InRegister:
        if (static_cast<std::uint64_t>(rule.number) >= FrameState::kMostRegisters)
            return false;
        value = state.registers[static_cast<std::size_t>(rule.number)];
        return true;
    case RuleKind::AtExpression:
        return EvaluateExpression(rule.expression, &frame, state, stack, value) && stack(value, value);
    case RuleKind::IsExpression:
        return EvaluateExpression(rule.expression, &frame, state, stack, value);
    default:
        return true;
    }
}

FrameStep Apply(const Rules& rules, const Common& common, FrameState& state, const StackReader& stack)
{
    std::uint64_t frame = 0;
    const Rule& returnRule = rules.registers[static_cast<std::size_t>(common.returnRegister)];
    if (returnRule.kind == RuleKind::Unknown || returnRule.kind == RuleKind::Same)
        return FrameStep::kOutermost;
    if (!FindFrame(rules, state, stack, frame))
        return FrameStep::kUnknown;
    FrameState caller = state;
    caller.registers[state.processor->stackPointer] = frame;
    for (std::size_t i = 0; i < state.processor->frameRegisterCount; ++i)
    {
        if (!ApplyRule(rules.registers[i], frame, state, stack, caller.registers[i]))
            return FrameStep::kUnknown;
    }
    caller.registers[state.processor->instruction] = caller.registers[static_cast<std::size_t>(common.returnRegister)];
    caller.isInterrupted = common.isSignalFrame;
    state = caller;
    return FrameStep::kDone;
}

FrameStep LeaveByEntry(const Common& common, ByteReader& details, std::string_view body, std::uint64_t start,
                       std::uint64_t address, FrameState& state, const StackReader& stack)
{
    if (common.hasLengths)
        details.Skip(details.TakeUnsigned());
    RuleMachine initial(common, 0, ~std::uint64_t{0}, {});
    if (!details.IsGood() || !initial.Run(common.program))
        return FrameStep::kUnknown;
    RuleMachine machine(common, start, address, initial.Result());
    return machine.Run(body.substr(details.Position())) ? Apply(machine.Result(), common, state, stack)
                                                        : FrameStep::kUnknown;
}
/// The common entry that was read last; most functions of a module have the same.
class CommonEntries
{
public:
    explicit CommonEntries(const Table& table) : m_table(table) {}

    /// Null where there is none that can be understood.
    const Common* Find(std::uint64_t at)
    {
        if (at != m_at)
        {
            Entry entry;
            m_common = {};
            m_isGood = m_table.ReadEntry(at, entry) && entry.commonDistance == 0 && m_table.ReadBody(entry, m_body) &&
                       ReadCommon(m_body, m_common) && m_common.addressFormat != kOmitted;
            m_at = at;
        }
        return m_isGood ? &m_common : nullptr;
    }

private:
    const Table& m_table;
    std::uint64_t m_at = ~std::uint64_t{0};
    bool m_isGood = false;
    std::string m_body;
    Common m_common;
};
} // namespace

FrameStep LeaveFrameByTable(const UntrustedBytes& module, const ByteRange& table, std::uint64_t tableAddress,
                            std::uint64_t address, FrameState& state, const StackReader& stack)
{
    constexpr std::uint64_t kLongestRange = 32; // two numbers
    const Table entries(module, table);
    CommonEntries commons(entries);
    std::string body;
    Entry entry;
    for (std::uint64_t at = 0; entries.ReadEntry(at, entry); at = entry.end)
    {
        if (entry.commonDistance == 0 || entry.commonDistance > entry.start)
            continue;
        // The distance leads to the length field of the common entry.
        const Common* const common = commons.Find(entry.start - entry.commonDistance);
        if (common == nullptr || !entries.ReadStart(entry, kLongestRange, body))
            continue;
        ByteReader range(body);
        const std::uint64_t place = tableAddress + entry.start + sizeof entry.commonDistance;
        const std::uint64_t start = TakeAddress(range, common->addressFormat, place);
        const std::uint64_t length = TakeAddress(range, common->addressFormat & kFormatMask, 0);
        if (!range.IsGood() || address < start || address - start >= length)
            continue;
        if (!entries.ReadBody(entry, body))
            return FrameStep::kUnknown;
        ByteReader details(body);
        details.Skip(range.Position());
        return LeaveByEntry(*common, details, body, start, address, state, stack);
    }
    return FrameStep::kUnknown;
}
} // namespace tev
