#include "examples/host/window/CrashWays.h"

#include <TevTools.h>

#include <csignal>
#include <cstdlib>
#include <iterator>
#include <new>
#include <stdexcept>

namespace host
{
// Not in the unnamed namespace, where the compiler knows that there is only one function to be called.
class Part
{
public:
    Part()
    {
        Part* volatile part = this; // the compiler need not see which function that is
        part->GetName();
    }
    virtual ~Part() = default;
    virtual void GetName() = 0;
};

class Wheel : public Part
{
public:
    void GetName() override {}
};

namespace
{
// Volatile, so that the compiler cannot remove a crash.
int* volatile g_nowhere = nullptr;
volatile std::size_t g_endless = static_cast<std::size_t>(-1) / 2;

void WriteNowhere()
{
    *g_nowhere = 1;
}

int RecurseForEver(volatile int* above)
{
    volatile int here[256] = {};
    here[0] = *above;
    return here[0] == 1 ? 0 : RecurseForEver(here) + here[0];
}

void OverflowStack()
{
    volatile int start = 0;
    start = RecurseForEver(&start);
}

[[gnu::noinline]] void ThrowError()
{
    throw std::runtime_error("the part has no material");
}

void ThrowPastAll() noexcept
{
    ThrowError();
}

void CallPureFunction()
{
    const Wheel wheel;
}

void TakeAllMemory()
{
    ::operator delete(::operator new(g_endless));
}

void PassInvalidParameter()
{
    CXTString<char> name("wheel");
    name.SetAt(100, 'x');
}
} // namespace

const CrashWay kCrashWays[] = {
    {u"Write to nowhere", u"\u00c9crire nulle part", true, true, WriteNowhere},
    {u"Overflow the stack", u"D\u00e9border la pile", true, true, OverflowStack},
    {u"Throw past all handlers", u"Lever une exception non trait\u00e9e", false, true, ThrowPastAll},
    {u"Call a pure virtual function", u"Appeler une fonction virtuelle pure", false, false, CallPureFunction},
    {u"Take all memory", u"Prendre toute la m\u00e9moire", true, false, TakeAllMemory},
    {u"Pass an invalid parameter", u"Passer un param\u00e8tre invalide", false, false, PassInvalidParameter},
    {u"Abort", u"Abandonner", true, true, [] { std::abort(); }},
    {u"Floating-point error", u"Erreur de virgule flottante", true, true, [] { std::raise(SIGFPE); }},
    {u"Illegal instruction", u"Instruction ill\u00e9gale", true, true, [] { std::raise(SIGILL); }},
    {u"Interrupt", u"Interruption", false, true, [] { std::raise(SIGINT); }},
    {u"Termination", u"Terminaison", false, true, [] { std::raise(SIGTERM); }},
};
const int kCrashWayCount = static_cast<int>(std::size(kCrashWays));
} // namespace host
