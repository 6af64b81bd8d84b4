// Stacks of a dump.

#include "crash/XMinidump.h"

#include "base/LittleEndian.h"
#include "crash/ModuleFile.h"
#include "crash/Processor.h"
#include "crash/UntrustedBytes.h"
#include "text/MessageTexts.h"
#include "text/TextEncoding.h"

#include <map>
#include <string>

namespace
{
using tev::FrameState;
using tev::FrameStep;
using tev::ModuleFile;
using Number = unsigned __int64;

constexpr std::size_t kMostFrames = 1024;
} // namespace

CXTString<wchar_t> XGetText(XMinidumpStackEnd end, XLanguage language)
{
    const auto value = static_cast<unsigned>(end);
    return value <= static_cast<unsigned>(XMinidumpStackEnd::kTooDeep)
               ? tev::FindMessageText(tev::kTextStackEnd + value, language)
               : nullptr;
}

/// Walks up one stack. Hidden, because types in it are otherwise exported with the class.
struct [[gnu::visibility("hidden")]] XMinidump::Walker
{
    Walker(const XMinidump& source, const tev::Processor& processor, const XMinidumpThread& thread)
        : dump(source), state(processor)
    {
        for (std::size_t i = 0; i < processor.frameRegisterCount; ++i)
            state.registers[i] = thread.m_registers[processor.recordIndex[i]];
    }

    XMinidumpStackEnd Walk(std::vector<XMinidumpFrame> & frames)
    {
        bool isMemoryMissing = false;
        const tev::StackReader memory = [this, &isMemoryMissing](std::uint64_t address, std::uint64_t& value) {
            Number word = 0;
            isMemoryMissing = !dump.ReadWord(address, word);
            value = word;
            return !isMemoryMissing;
        };
        while (frames.size() < kMostFrames)
        {
            XMinidumpFrame frame;
            frame.m_instruction = state.registers[state.processor->instruction];
            // The return address of a call that never returns may lie behind the calling function.
            const Number inside = frame.m_instruction - (state.isInterrupted ? 0 : 1);
            frame.m_module = dump.FindModule(inside);
            frame.m_offset = frame.m_instruction;
            if (frame.m_module < 0)
            {
                frames.push_back(frame);
                if (frames.size() == 1 && LeaveCallOfNoCode(memory))
                    continue;
                return XMinidumpStackEnd::kNoModule;
            }
            const XMinidumpModule& module = dump.m_modules[static_cast<std::size_t>(frame.m_module)];
            const ModuleFile* const file = FileOf(frame.m_module);
            frame.m_offset = frame.m_instruction - module.m_base;
            if (file != nullptr)
                FindFunction(*file, inside - module.m_base, frame);
            frames.push_back(frame);
            if (file == nullptr)
                return XMinidumpStackEnd::kNoFile;
            const Number stackPointer = state.registers[state.processor->stackPointer];
            const FrameStep step = file->LeaveFrame(inside - module.m_base, state, memory);
            if (step == FrameStep::kOutermost)
                return XMinidumpStackEnd::kComplete;
            if (step == FrameStep::kUnknown)
                return isMemoryMissing ? XMinidumpStackEnd::kNoMemory : XMinidumpStackEnd::kNoRules;
            // A stack grows downwards; only a signal handler may have a stack of its own somewhere else.
            if (!state.isInterrupted && state.registers[state.processor->stackPointer] <= stackPointer)
                return XMinidumpStackEnd::kNoRules;
        }
        return XMinidumpStackEnd::kTooDeep;
    }

    const ModuleFile* FileOf(int index)
    {
        auto found = files.find(index);
        if (found == files.end())
        {
            const XMinidumpModule& module = dump.m_modules[static_cast<std::size_t>(index)];
            found = files.emplace(index, ModuleFile::Open(module.m_path, module.m_buildId)).first;
        }
        return found->second.get();
    }

    static void FindFunction(const ModuleFile& file, Number offset, XMinidumpFrame& frame)
    {
        std::string name;
        std::uint64_t offsetInFunction = 0;
        CXTString<wchar_t> text;
        if (!file.FindFunction(offset, name, offsetInFunction) ||
            !XDecodeText(name.data(), name.size(), xEncodingUtf8, text))
            return;
        frame.m_offset = offsetInFunction + (frame.m_offset - offset);
        frame.m_function = text;
    }

    /// After a call through a pointer that leads to no code, the return address is the last that was pushed.
    bool LeaveCallOfNoCode(const tev::StackReader& memory)
    {
        std::uint64_t caller = 0;
        std::uint64_t& stackPointer = state.registers[state.processor->stackPointer];
        if (!state.processor->isReturnOnStack || !memory(stackPointer, caller) || dump.FindModule(caller) < 0)
            return false;
        state.registers[state.processor->instruction] = caller;
        state.isInterrupted = false;
        stackPointer += sizeof caller;
        return true;
    }

    const XMinidump& dump;
    FrameState state;
    std::map<int, std::unique_ptr<ModuleFile>> files;
};

XMinidump::XMinidump() = default;
XMinidump::~XMinidump() = default;

int XMinidump::FindModule(Number address) const noexcept
{
    for (std::size_t i = 0; i < m_modules.size(); ++i)
    {
        if (address >= m_modules[i].m_base && address - m_modules[i].m_base < m_modules[i].m_size)
            return static_cast<int>(i);
    }
    return -1;
}

bool XMinidump::ReadWord(Number address, Number& value) const noexcept
{
    for (const Memory& memory : m_memory)
    {
        if (address < memory.m_start || memory.m_size < sizeof value ||
            address - memory.m_start > memory.m_size - sizeof value)
            continue;
        unsigned char word[sizeof value];
        if (!m_bytes->Read(memory.m_offset + (address - memory.m_start), word))
            return false;
        value = tev::LoadLittleEndian<Number>(word);
        return true;
    }
    return false;
}

std::vector<XMinidumpFrame> XMinidump::GetStack(int thread) const
{
    XMinidumpStackEnd end{};
    return GetStack(thread, end);
}

std::vector<XMinidumpFrame> XMinidump::GetStack(int thread, XMinidumpStackEnd& end) const
{
    std::vector<XMinidumpFrame> frames;
    end = XMinidumpStackEnd::kNoRegisters;
    const tev::Processor* const processor = tev::FindProcessor(static_cast<std::uint16_t>(m_processor));
    const auto index = static_cast<std::size_t>(thread);
    if (thread >= 0 && index < m_threads.size() && m_threads[index].m_hasRegisters && processor != nullptr)
        end = Walker(*this, *processor, m_threads[index]).Walk(frames);
    return frames;
}
