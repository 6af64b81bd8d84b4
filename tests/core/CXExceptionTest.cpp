#include "core/CXArchiveException.h"
#include "core/CXFileException.h"
#include "core/CXInternetException.h"
#include "core/ThreadException.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cerrno>
#include <cstdio>
#include <cstdlib>
#include <future>
#include <map>
#include <memory>
#include <set>
#include <thread>
#include <type_traits>
#include <vector>

namespace
{
std::atomic<int> g_living{0};

/// An exception that says how many of its kind are alive.
struct CountedException : CXException
{
    CountedException() { ++g_living; }
    CountedException(const CountedException& other) : CXException(other) { ++g_living; }
    ~CountedException() override { --g_living; }
};

/// One that says on stderr when it is deleted, for tests that end the process.
struct LoudException : CXException
{
    ~LoudException() override { std::fputs("deleted;", stderr); }
};

using Text = CXTString<wchar_t>;

/// Throws and catches by the rules: the caught pointer is the recorded one, of the exact class, and goes with Delete.
template <class Exception, class Throw, class Look>
void ExpectThrow(Throw throwIt, Look look)
{
    SCOPED_TRACE(Exception::GetThisRuntimeClassDescriptor()->m_name);
    bool caught = false;
    try
    {
        throwIt();
    }
    catch (Exception* exception)
    {
        caught = true;
        EXPECT_EQ(exception->GetRuntimeClassDescriptor(), Exception::GetThisRuntimeClassDescriptor());
        look(*exception);
        EXPECT_EQ(XTakeThreadException(), exception);
        XSetThreadException(exception);
        exception->Delete();
        EXPECT_EQ(XTakeThreadException(), nullptr);
    }
    EXPECT_TRUE(caught);

    caught = false;
    try
    {
        throwIt();
    }
    catch (CXException* exception)
    {
        caught = true;
        EXPECT_TRUE(exception->IsKindOf(Exception::GetThisRuntimeClassDescriptor()));
        EXPECT_TRUE(exception->CXException::GetErrorMessage().IsEmpty());
        EXPECT_FALSE(exception->ReportError(0));
        CXException::Delete(exception);
    }
    EXPECT_TRUE(caught);
    EXPECT_EQ(XTakeThreadException(), nullptr);
}

template <class Exception>
void ExpectMessageThrow()
{
    ExpectThrow<Exception>([] { Exception::Throw(); }, [](Exception& e) { EXPECT_TRUE(e.GetMessageText().IsEmpty()); });
    ExpectThrow<Exception>([] { Exception::Throw(L"why"); },
                           [](Exception& e) { EXPECT_EQ(e.GetMessageText(), L"why"); });
    static_assert(std::is_default_constructible_v<Exception> && std::is_constructible_v<Exception, const Text&>);
}

template <class... Exceptions>
constexpr bool kAllCopyAndMove = (... &&
                                  (std::is_copy_constructible_v<Exceptions> && std::is_copy_assignable_v<Exceptions> &&
                                   std::is_nothrow_move_constructible_v<Exceptions> &&
                                   std::is_nothrow_move_assignable_v<Exceptions>));
static_assert(kAllCopyAndMove<CXException, CXMemoryException, CXInvalidArgException, CXUserException, CXFileException,
                              CXArchiveException, CXInternetException>);

void RunOnThread(void (*work)())
{
    std::thread(work).join();
}
} // namespace

TEST(CXException, EachClassThrowsWhatItWasGiven)
{
    ExpectMessageThrow<CXMemoryException>();
    ExpectMessageThrow<CXInvalidArgException>();
    ExpectMessageThrow<CXUserException>();
    ExpectThrow<CXFileException>([] { CXFileException::Throw(fileBadSeek, L"a.obj", L"message"); },
                                 [](CXFileException& e) {
                                     EXPECT_EQ(e.GetCause(), 9u);
                                     EXPECT_EQ(e.GetFileName(), L"a.obj");
                                     EXPECT_EQ(e.GetMessageText(), L"message");
                                 });
    ExpectThrow<CXArchiveException>([] { CXArchiveException::Throw(archiveBadSchema, L"b.cus"); },
                                    [](CXArchiveException& e) {
                                        EXPECT_EQ(e.GetCause(), 7u);
                                        EXPECT_EQ(e.GetFileName(), L"b.cus");
                                    });
    ExpectThrow<CXInternetException>([] { CXInternetException::Throw(0x123456789ABCull, 12007); },
                                     [](CXInternetException& e) {
                                         EXPECT_EQ(e.GetErrorCode(), 12007u);
                                         EXPECT_EQ(e.GetContext(), 0x123456789ABCull);
                                     });
}

TEST(CXException, AThreadHasOnePendingException)
{
    XSetThreadException(nullptr);
    XDeleteThreadException();
    CXException::Delete(nullptr);
    EXPECT_EQ(XTakeThreadException(), nullptr);

    auto* first = new CountedException;
    auto* second = new CountedException;
    XSetThreadException(first);
    XSetThreadException(second);
    EXPECT_EQ(g_living, 2) << "the first belongs to its catcher";
    XSetThreadException(nullptr);
    first->Delete();
    EXPECT_EQ(g_living, 1);
    XDeleteThreadException();
    EXPECT_EQ(g_living, 0) << "the second was still recorded";
    XDeleteThreadException();

    auto recorded = std::make_unique<CountedException>();
    XSetThreadException(recorded.get());
    delete new CountedException(*recorded); // a copy is not recorded
    EXPECT_EQ(XTakeThreadException(), recorded.get());
    XSetThreadException(recorded.get());
    recorded.reset();
    EXPECT_EQ(XTakeThreadException(), nullptr) << "a plain delete clears the record too";
    EXPECT_EQ(g_living, 0);
}

TEST(CXException, ThreadsDeleteTheirPendingExceptionWhenTheyEnd)
{
    RunOnThread([] {
        try
        {
            tev::RecordAndThrow<CountedException>();
        }
        catch (...)
        {
        }
    });
    EXPECT_EQ(g_living, 0);

    // One that is recorded by a thread-local object which goes after the library's own watch is kept for exit, or for
    // the next thread of the same identifier; it is nobody else's pending exception.
    struct RecordsWhenTheThreadEnds
    {
        ~RecordsWhenTheThreadEnds()
        {
            XSetThreadException(new CountedException);
            XDeleteThreadException();
            XSetThreadException(new CountedException);
        }
    };
    RunOnThread([] {
        static thread_local RecordsWhenTheThreadEnds last;
        XSetThreadException(new CountedException);
    });
    EXPECT_EQ(g_living, 1);
    RunOnThread([] { EXPECT_EQ(XTakeThreadException(), nullptr); });
    for (int i = 0; i < 1000 && g_living != 0; ++i)
        RunOnThread([] { XSetThreadException(new CountedException); });
    EXPECT_EQ(g_living, 0) << "no later thread had the identifier of the first";
}

TEST(CXException, ThreadsHandTheirExceptionOver)
{
    CXException* handedOver = nullptr;
    std::thread([&handedOver] {
        XSetThreadException(new CountedException);
        handedOver = XTakeThreadException();
    }).join();
    EXPECT_EQ(g_living, 1);
    handedOver->Delete();

    // Deleted by another thread while it is recorded: it must not be deleted once more at the thread's end.
    std::promise<CXException*> thrown;
    std::promise<void> deleted;
    std::thread thread([&] {
        auto* exception = new CountedException;
        XSetThreadException(exception);
        thrown.set_value(exception);
        deleted.get_future().wait();
    });
    EXPECT_EQ(XTakeThreadException(), nullptr) << "each thread sees its own only";
    thrown.get_future().get()->Delete();
    deleted.set_value();
    thread.join();
    EXPECT_EQ(g_living, 0);
}

TEST(CXException, ThreadsThrowAtTheSameTime)
{
    std::vector<std::thread> threads;
    for (int t = 0; t < 8; ++t)
    {
        threads.emplace_back([t] {
            for (int i = 0; i < 500; ++i)
            {
                try
                {
                    tev::RecordAndThrow<CountedException>();
                }
                catch (CXException* exception)
                {
                    if ((i + t) % 3 == 0)
                        XDeleteThreadException();
                    else if ((i + t) % 3 == 1)
                        exception->Delete();
                    else if (XTakeThreadException() == exception)
                        exception->Delete();
                }
            }
            XSetThreadException(new CountedException);
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(g_living, 0);
}

TEST(CXException, ExitDeletesWhatIsLeft)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const auto exitsCleanly = testing::ExitedWithCode(0);

    EXPECT_EXIT(
        {
            XSetThreadException(new LoudException);
            std::exit(0);
        },
        exitsCleanly, "^deleted;$")
        << "the main thread's";
    EXPECT_EXIT(
        {
            std::thread([] {
                struct RecordsWhenTheThreadEnds
                {
                    ~RecordsWhenTheThreadEnds() { XSetThreadException(new LoudException); }
                };
                static thread_local RecordsWhenTheThreadEnds last;
                XSetThreadException(new LoudException);
            }).join();
            std::fputs("joined;", stderr);
            std::exit(0);
        },
        exitsCleanly, "^deleted;joined;deleted;$")
        << "recorded when the thread had all but ended";
    EXPECT_EXIT(
        {
            std::atexit([] { // runs after the library's callback
                XSetThreadException(new LoudException);
                XDeleteThreadException();
                std::fputs("late;", stderr);
                XSetThreadException(new LoudException);
            });
            XSetThreadException(new LoudException);
            std::exit(0);
        },
        exitsCleanly, "^deleted;deleted;late;deleted;$")
        << "recorded after the callback has run";
    EXPECT_EXIT(
        {
            std::promise<void> recorded;
            std::thread([&recorded] {
                XSetThreadException(new LoudException);
                recorded.set_value();
                std::promise<void>().get_future().wait();
            }).detach();
            recorded.get_future().wait();
            std::exit(0);
        },
        exitsCleanly, "^$")
        << "a running thread may be handling its exception";
}

TEST(CXFileException, ErrnoHasTheseCauses)
{
    const std::map<int, unsigned> causes = {{1, 5},   {13, 5}, {2, 2},  {23, 2}, {5, 10},
                                            {22, 10}, {9, 6},  {24, 4}, {28, 13}};
    for (int error = -1; error <= 200; ++error)
    {
        const auto listed = causes.find(error);
        EXPECT_EQ(CXFileException::ErrnoToException(error), listed == causes.end() ? 1u : listed->second) << error;
    }
}

TEST(CXFileException, SystemErrorsHaveTheseCauses)
{
    const std::pair<unsigned, std::set<unsigned>> rows[] = {
        {0, {0}},
        {2, {2, 6, 18, 107}},
        {3, {3, 15, 17, 34, 52, 53, 55, 67, 70, 85, 111, 123, 124, 125, 144, 154, 161, 206, 208, 267}},
        {4, {4, 36, 68, 113}},
        {5, {5, 12, 19, 29, 54, 58, 64, 65, 71, 80, 82, 86, 170, 183, 999}},
        {6, {11, 26, 60, 66, 114, 182, 191, 193}},
        {7, {16, 145}},
        {8, {62}},
        {9, {24, 25, 27, 30, 131, 132}},
        {10, {20, 21, 22, 23, 57, 59, 88, 117, 995, 996, 997}},
        {11, {32}},
        {12, {33, 108, 167}},
        {13, {39, 112}},
        {14, {38}},
    };
    std::map<unsigned, unsigned> causes;
    for (const auto& [cause, errors] : rows)
    {
        for (const unsigned error : errors)
            causes[error] = cause;
    }
    for (unsigned error = 0; error <= 16000; ++error)
    {
        const auto listed = causes.find(error);
        EXPECT_EQ(CXFileException::OsErrorToException(error), listed == causes.end() ? 1u : listed->second) << error;
    }
    EXPECT_EQ(CXFileException::OsErrorToException(0x10002), 1u) << "not cut to 16 bits";
    EXPECT_EQ(CXFileException::OsErrorToException(0xFFFFFFFF), 1u);
}

TEST(CXFileException, ErrorsAreStoredOrThrown)
{
    const struct
    {
        int errnoValue;
        FileExceptionType given;
        unsigned byErrno; ///< 0: nothing is thrown
        unsigned bySystem;
    } cases[] = {
        {0, fileNone, 0, 0},          {0, fileDiskFull, 13, 13},     {ENOENT, fileNone, 2, 2},
        {ENOENT, fileDiskFull, 2, 2}, {ETXTBSY, fileNone, 1, 11}, // the two tables differ
        {EBADF, fileGeneric, 6, 2},   {EINVAL, fileDiskFull, 10, 1},
    };
    for (const auto& c : cases)
    {
        for (const bool bySystem : {false, true})
        {
            SCOPED_TRACE(testing::Message()
                         << "errno " << c.errnoValue << ", given " << c.given << ", system " << bySystem);
            const unsigned expected = bySystem ? c.bySystem : c.byErrno;
            const auto report = [&](CXFileException* out) {
                const Text name = L"file.txt";
                errno = c.errnoValue;
                if (bySystem)
                    CXFileException::ThrowOsError(c.given, name, out);
                else
                    CXFileException::ThrowErrno(c.given, c.errnoValue, name, out);
            };

            CXFileException out(fileLockViolation, L"before", L"kept");
            EXPECT_NO_THROW(report(&out));
            EXPECT_EQ(out.GetCause(), expected);
            EXPECT_EQ(out.GetFileName(), L"file.txt");
            EXPECT_EQ(out.GetMessageText(), L"kept");
            EXPECT_EQ(XTakeThreadException(), nullptr);

            if (expected == 0)
            {
                EXPECT_NO_THROW(report(nullptr));
                continue;
            }
            ExpectThrow<CXFileException>([&] { report(nullptr); },
                                         [expected](CXFileException& e) {
                                             EXPECT_EQ(e.GetCause(), expected);
                                             EXPECT_EQ(e.GetFileName(), L"file.txt");
                                             EXPECT_TRUE(e.GetErrorMessage().IsEmpty());
                                         });
        }
    }
}

namespace
{
/// The texts of all causes: each there, each its own, each with the file's name or the stand-in for none.
template <class MakeText>
void ExpectOneTextPerCause(unsigned causeCount, MakeText makeText)
{
    Text unnamed;
    ASSERT_TRUE(unnamed.LoadString(0xF006));
    ASSERT_FALSE(unnamed.IsEmpty());
    std::set<std::wstring> texts;
    for (unsigned cause = 0; cause < causeCount; ++cause)
    {
        const Text named = makeText(cause, L"100%s r\u00E9sum\u00E9.obj");
        const Text nameless = makeText(cause, L"");
        EXPECT_GE(named.Find(L"100%s r\u00E9sum\u00E9.obj"), 0) << cause;
        EXPECT_GE(nameless.Find(unnamed), 0) << cause;
        EXPECT_TRUE(texts.insert(named.GetConstBuffer()).second) << cause;
    }
}
} // namespace

TEST(CXFileException, MessagesSpeakOnlyForExceptionsWithAMessage)
{
    ExpectOneTextPerCause(15, [](unsigned cause, const wchar_t* file) {
        return CXFileException(FileExceptionType(cause), file, L"any").GetErrorMessage();
    });
    EXPECT_TRUE(CXFileException(fileNotFound, L"a.txt").GetErrorMessage().IsEmpty());
}

TEST(CXArchiveException, MessagesNameTheCauseAndTheFile)
{
    ExpectOneTextPerCause(9, [](unsigned cause, const wchar_t* file) {
        return CXArchiveException(ArchiveExceptionType(cause), file).GetErrorMessage();
    });
}

TEST(CXInternetException, ErrorsComeWithTheirTexts)
{
    errno = EACCES;
    EXPECT_EQ(CXInternetException(1, 0).GetErrorCode(), 5u);
    errno = 0;
    EXPECT_EQ(CXInternetException(1, 0).GetErrorCode(), 0u);
    errno = EACCES;
    EXPECT_EQ(CXInternetException(1, 12002).GetErrorCode(), 12002u);

    const struct
    {
        unsigned error;
        const wchar_t* text;
    } cases[] = {
        {12007, L"The name of the server was not found."},
        {12003, L""},
        {2, L"No such file or directory"}, // the C library's
        {10061, L"Connection refused"},
        {0xE0000001, L""},
    };
    for (const auto& c : cases)
    {
        unsigned help = 77;
        const CXInternetException exception(1, c.error);
        EXPECT_EQ(exception.GetErrorMessage(&help), c.text) << c.error;
        EXPECT_EQ(help, 0u);
        EXPECT_EQ(exception.GetErrorMessage(nullptr), c.text) << c.error;
    }
}
