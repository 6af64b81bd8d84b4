#include "crash/Processor.h"

namespace tev
{
const Processor* FindProcessor(std::uint16_t minidumpNumber) noexcept
{
    static constexpr const Processor* kKnown[] = {&kProcessorX64};
    for (const Processor* const processor : kKnown)
    {
        if (processor->minidumpNumber == minidumpNumber)
            return processor;
    }
    return nullptr;
}
} // namespace tev
