#pragma once

#include "tests/support/System.h"
#include "tests/support/Testing.h"

namespace tev::test
{
/// A pipe, closed by the destructor at the latest. Programs that a child starts inherit its ends only as standard streams.
class Pipe
{
public:
    Pipe()
    {
        if (pipe2(m_ends, O_CLOEXEC) != 0)
            throw std::runtime_error("cannot make a pipe");
    }
    ~Pipe()
    {
        CloseRead();
        CloseWrite();
    }
    Pipe(const Pipe&) = delete;
    Pipe& operator=(const Pipe&) = delete;

    int ReadEnd() const { return m_ends[0]; }
    int WriteEnd() const { return m_ends[1]; }
    void CloseRead() { Close(m_ends[0]); }
    void CloseWrite() { Close(m_ends[1]); }

private:
    static void Close(int& end)
    {
        if (end >= 0)
            close(end);
        end = -1;
    }

    int m_ends[2] = {-1, -1};
};
} // namespace tev::test
