#include "objects/CXArchiveException.h"
#include "objects/CXInternetException.h"
#include "tests/support/BusyFork.h"
#include "tests/support/CountedException.h"
#include "tests/support/EnvironmentVariable.h"
#include "tests/support/FileFailure.h"
#include "tests/support/OnThreads.h"
#include "text/Language.h"

namespace
{
using namespace tev::test;

/// One that says on stderr when it is deleted, for tests that end the process.
struct LoudException : CXException
{
    ~LoudException() override { std::fputs("deleted;", stderr); }
};

/// As a thread-local object it is destroyed after the library's own, which deletes what the thread recorded.
template <class Exception>
struct RecordsWhenTheThreadEnds
{
    ~RecordsWhenTheThreadEnds()
    {
        XSetThreadException(new Exception);
        XDeleteThreadException();
        XSetThreadException(new Exception);
    }
};

template <class Exception>
void RecordAtTheVeryEnd()
{
    static thread_local RecordsWhenTheThreadEnds<Exception> last;
    XSetThreadException(new Exception);
}

template <class Work>
void RunOnThread(Work work)
{
    std::thread(work).join();
}

using Text = CXTString<wchar_t>;

/// What a call throws. It is the recorded exception, of the exact class, and its base has nothing to say.
template <class Exception, class Throw>
std::unique_ptr<Exception> CaughtExactly(Throw throwIt)
{
    SCOPED_TRACE(Exception::GetThisRuntimeClassDescriptor()->m_name);
    auto exception = Caught<Exception>(throwIt);
    EXPECT_EQ(exception->GetRuntimeClassDescriptor(), Exception::GetThisRuntimeClassDescriptor());
    EXPECT_TRUE(exception->CXException::GetErrorMessage().IsEmpty());
    EXPECT_FALSE(exception->ReportError(0));
    return exception;
}

template <class Exception>
void ExpectMessageThrow()
{
    static_assert(std::is_default_constructible_v<Exception> && std::is_constructible_v<Exception, const Text&>);
    EXPECT_EQ(CaughtExactly<Exception>([] { Exception::Throw(); })->GetMessageText(), L"");
    EXPECT_EQ(CaughtExactly<Exception>([] { Exception::Throw(L"why"); })->GetMessageText(), L"why");
}

template <class... Exceptions>
constexpr bool kAllCopyAndMove = (... &&
                                  (std::is_copy_constructible_v<Exceptions> && std::is_copy_assignable_v<Exceptions> &&
                                   std::is_nothrow_move_constructible_v<Exceptions> &&
                                   std::is_nothrow_move_assignable_v<Exceptions>));
static_assert(kAllCopyAndMove<CXException, CXMemoryException, CXInvalidArgException, CXUserException, CXFileException,
                              CXArchiveException, CXInternetException>);
TEST(CXException, EachClassThrowsWhatItWasGiven)
{
    ExpectMessageThrow<CXMemoryException>();
    ExpectMessageThrow<CXInvalidArgException>();
    ExpectMessageThrow<CXUserException>();
    const auto file = CaughtExactly<CXFileException>([] { CXFileException::Throw(fileBadSeek, L"a.obj", L"message"); });
    EXPECT_EQ(file->GetCause(), 9u);
    EXPECT_EQ(file->GetFileName(), L"a.obj");
    EXPECT_EQ(file->GetMessageText(), L"message");
    const auto fromErrno =
        CaughtExactly<CXFileException>([] { CXFileException::ThrowErrno(fileNone, ENOENT, L"c.obj", nullptr); });
    EXPECT_EQ(fromErrno->GetFileName(), L"c.obj");
    EXPECT_EQ(fromErrno->GetMessageText(), L"");
    EXPECT_EQ(fromErrno->GetErrorMessage(), L"");
    EXPECT_GE(fromErrno->GetCauseMessage().Find(fromErrno->GetFileName()), 0);
    const auto archive =
        CaughtExactly<CXArchiveException>([] { CXArchiveException::Throw(archiveBadSchema, L"b.cus"); });
    EXPECT_EQ(archive->GetCause(), 7u);
    EXPECT_EQ(archive->GetFileName(), L"b.cus");
    const auto internet =
        CaughtExactly<CXInternetException>([] { CXInternetException::Throw(0x123456789ABCull, 12007); });
    EXPECT_EQ(internet->GetErrorCode(), 12007u);
    EXPECT_EQ(internet->GetContext(), 0x123456789ABCull);
}

TEST(CXException, AThreadHasOnePendingException)
{
    XDeleteThreadException();
    CXException::Delete(nullptr);
    EXPECT_EQ(XTakeThreadException(), nullptr);

    auto* first = new CountedException;
    auto second = std::make_unique<CountedException>();
    XSetThreadException(first);
    XSetThreadException(second.get());
    XSetThreadException(nullptr);
    first->Delete(); // its catcher's, and the second is still recorded
    EXPECT_EQ(XTakeThreadException(), second.get());

    XSetThreadException(second.get());
    delete new CountedException(*second); // a copy is not recorded
    EXPECT_EQ(XTakeThreadException(), second.get());
    XSetThreadException(second.get());
    second.reset();
    EXPECT_EQ(XTakeThreadException(), nullptr) << "a plain delete clears the record too";

    XSetThreadException(new CountedException);
    XDeleteThreadException();
    EXPECT_EQ(CountedException::s_living, 0);
}

TEST(CXException, ThreadsDeleteTheirPendingExceptionWhenTheyEnd)
{
    RunOnThread([] { XSetThreadException(new CountedException); });
    EXPECT_EQ(CountedException::s_living, 0);

    // What is recorded after that is kept until exit, or until the next thread of the same identifier; no other thread
    // sees it as pending.
    RunOnThread(RecordAtTheVeryEnd<CountedException>);
    EXPECT_EQ(CountedException::s_living, 1);
    RunOnThread([] { EXPECT_EQ(XTakeThreadException(), nullptr); });
    for (int i = 0; i < 1000 && CountedException::s_living != 0; ++i)
        RunOnThread([] { XSetThreadException(new CountedException); });
    EXPECT_EQ(CountedException::s_living, 0) << "no later thread had the identifier of the first";
}

TEST(CXException, ThreadsHandTheirExceptionOver)
{
    CXException* handedOver = nullptr;
    std::promise<CXException*> thrown;
    std::promise<void> deleted;
    std::thread thread([&] {
        XSetThreadException(new CountedException);
        handedOver = XTakeThreadException();
        auto* recorded = new CountedException;
        XSetThreadException(recorded);
        thrown.set_value(recorded);
        deleted.get_future().wait();
    });
    CXException* const recorded = thrown.get_future().get();
    EXPECT_EQ(XTakeThreadException(), nullptr) << "each thread sees its own only";
    recorded->Delete(); // and not once more when its thread ends
    deleted.set_value();
    thread.join();
    EXPECT_EQ(CountedException::s_living, 1);
    handedOver->Delete();
    EXPECT_EQ(CountedException::s_living, 0);
}

TEST(CXException, ThreadsKeepWhatLeavesThem)
{
    const auto throwOne = []() -> int { XThrow<CountedException>(); };
    const auto keep = [&] {
        try
        {
            return throwOne();
        }
        catch (CXException* exception)
        {
            XKeepException(exception);
            throw;
        }
    };
    std::unique_ptr<CXException> kept;
    std::exception_ptr caught;
    std::future<int> left = std::async(std::launch::async, keep);
    RunOnThread([&] {
        try
        {
            throwOne();
        }
        catch (...)
        {
            caught = std::current_exception();
        }
        kept.reset(XKeepException(caught));
        EXPECT_EQ(XTakeThreadException(), nullptr);
        EXPECT_EQ(XKeepException(caught), kept.get()) << "it may be asked again";
    });
    left.wait();
    EXPECT_EQ(CountedException::s_living, 2);
    try
    {
        left.get();
        FAIL();
    }
    catch (CountedException* exception)
    {
        exception->Delete();
    }
    EXPECT_EQ(CountedException::s_living, 1);
    kept.reset();
    EXPECT_EQ(CountedException::s_living, 0);

    EXPECT_EQ(XKeepException(nullptr), nullptr);
    static_assert(std::is_same_v<decltype(XKeepException(std::declval<CXFileException*>())), CXFileException*>);
    EXPECT_EQ(XKeepException(std::exception_ptr()), nullptr);
    EXPECT_EQ(XKeepException(std::make_exception_ptr(1)), nullptr);
}

TEST(CXException, ThreadsThatRecordedOneExceptionDeleteItOnce)
{
    const struct
    {
        const char* by;
        void (*onOther)(CXException*);
        int living;
        bool isStillPending;
    } cases[] = {
        {"its catcher", [](CXException* e) { e->Delete(); }, 0, false},
        {"code that swallows it", [](CXException*) { XDeleteThreadException(); }, 0, false},
        {"a new owner", [](CXException* e) { EXPECT_EQ(XTakeThreadException(), e); }, 1, false},
        {"a newer exception", [](CXException*) { XSetThreadException(new CountedException); }, 1, false},
        {"the end of the thread", [](CXException*) {}, 1, true},
    };
    for (const auto& c : cases)
    {
        auto* exception = new CountedException;
        XSetThreadException(exception);
        std::thread([&] {
            XSetThreadException(exception);
            c.onOther(exception);
        }).join();
        EXPECT_EQ(CountedException::s_living, c.living) << c.by;
        XDeleteThreadException();
        EXPECT_EQ(CountedException::s_living, c.isStillPending ? 0 : c.living) << c.by;
        if (CountedException::s_living != 0)
            exception->Delete();
    }
    EXPECT_EQ(CountedException::s_living, 0);
}

TEST(CXException, WorksInAChildOfAProcessThatThrows)
{
    if (kIsSanitized)
        GTEST_SKIP() << kNoBusyFork;
    const auto throwAndSwallow = [] {
        try
        {
            CXUserException::Throw();
        }
        catch (CXException* exception)
        {
            exception->Delete();
        }
        return XTakeThreadException() == nullptr;
    };
    EXPECT_EQ(ForkWhileBusy(throwAndSwallow, throwAndSwallow), 0);
}

TEST(CXException, ThreadsRecordAtTheSameTime)
{
    OnThreads(8, [](int) {
        for (int i = 0; i < 500; ++i)
        {
            auto* exception = new CountedException;
            XSetThreadException(exception);
            i % 2 == 0 ? XDeleteThreadException() : exception->Delete();
        }
    });
    EXPECT_EQ(CountedException::s_living, 0);
}

TEST(CXException, ExitDeletesWhatIsLeft)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    const std::tuple<const char*, void (*)(), const char*> cases[] = {
        {"the main thread", [] { XSetThreadException(new LoudException); }, "^deleted;$"},
        {"a thread that had all but ended", [] { RunOnThread(RecordAtTheVeryEnd<LoudException>); },
         "^deleted;deleted;deleted;$"},
        {"two threads that had all but ended, with the same exception",
         [] {
             static CXException* const shared = new LoudException;
             struct RecordsShared
             {
                 ~RecordsShared() { XSetThreadException(shared); }
             };
             const auto record = [] {
                 static thread_local RecordsShared last;
                 static_cast<void>(last);
                 XSetThreadException(shared);
             };
             std::promise<void> secondHasRecorded;
             std::promise<void> firstHasEnded;
             std::thread second([&] {
                 record();
                 secondHasRecorded.set_value();
                 firstHasEnded.get_future().wait();
             });
             secondHasRecorded.get_future().wait();
             std::thread(record).join();
             firstHasEnded.set_value();
             second.join();
         },
         "^deleted;$"},
        {"code that runs after the library's callback",
         [] {
             std::atexit([] {
                 RecordsWhenTheThreadEnds<LoudException>();
                 std::fputs("late;", stderr);
             });
             XSetThreadException(new LoudException);
         },
         "^deleted;deleted;late;deleted;$"},
        {"a running thread, which may be handling it",
         [] {
             std::promise<void> recorded;
             std::thread([&recorded] {
                 XSetThreadException(new LoudException);
                 recorded.set_value();
                 std::promise<void>().get_future().wait();
             }).detach();
             recorded.get_future().wait();
         },
         "^$"},
    };
    for (const auto& [leftBy, leave, said] : cases)
        EXPECT_EXIT((leave(), std::exit(0)), testing::ExitedWithCode(0), said) << leftBy;
}

TEST(CXFileException, ErrorNumbersHaveTheseCauses)
{
    const std::map<int, unsigned> ofErrno = {{1, 5},   {13, 5}, {2, 2},  {23, 2}, {5, 10},
                                             {22, 10}, {9, 6},  {24, 4}, {28, 13}};
    for (int error = -1; error <= 200; ++error)
        EXPECT_EQ(CXFileException::ErrnoToException(error), ofErrno.count(error) ? ofErrno.at(error) : 1u) << error;

    const std::pair<unsigned, std::vector<unsigned>> ofSystemErrors[] = {
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
    std::vector<unsigned> causes(16001, 1);
    for (const auto& [cause, errors] : ofSystemErrors)
    {
        for (const unsigned error : errors)
            causes[error] = cause;
    }
    for (unsigned error = 0; error < causes.size(); ++error)
        EXPECT_EQ(CXFileException::OsErrorToException(error), causes[error]) << error;
    EXPECT_EQ(CXFileException::OsErrorToException(0x10002), 1u) << "not cut to 16 bits";
}

TEST(CXFileException, ErrorsAreStoredOrThrown)
{
    const struct
    {
        int errnoValue;
        FileExceptionType given;
        unsigned causes[2]; ///< by errno and by system error, where the tables differ; 0: nothing is thrown
    } cases[] = {
        {0, fileNone, {0, 0}},        {0, fileDiskFull, {13, 13}},  {ENOENT, fileDiskFull, {2, 2}},
        {ETXTBSY, fileNone, {1, 11}}, {EBADF, fileGeneric, {6, 2}}, {EINVAL, fileDiskFull, {10, 1}},
    };
    for (const auto& c : cases)
    {
        for (const bool bySystem : {false, true})
        {
            SCOPED_TRACE(testing::Message() << "errno " << c.errnoValue << ", system " << bySystem);
            const unsigned expected = c.causes[bySystem];
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
            EXPECT_EQ(Thrown([&] { report(nullptr); }), expected == 0 ? kNothingThrown : static_cast<int>(expected));
        }
    }
}

/// The texts of all causes: each there, each its own, each with the file's name or the stand-in for none.
template <class MakeText>
void ExpectOneTextPerCause(unsigned causeCount, MakeText makeText)
{
    Text unnamed;
    ASSERT_TRUE(unnamed.LoadString(0xF006));
    ASSERT_FALSE(unnamed.IsEmpty());
    const Text name = L"100%s r\u00E9sum\u00E9.obj";
    std::set<std::wstring> texts;
    for (unsigned cause = 0; cause < causeCount; ++cause)
    {
        const Text named = makeText(cause, name);
        EXPECT_GE(named.Find(name), 0) << cause;
        EXPECT_GE(makeText(cause, L"").Find(unnamed), 0) << cause;
        EXPECT_TRUE(texts.insert(named.GetConstBuffer()).second) << cause;
    }
}

TEST(CXException, MessagesNameTheCauseAndTheFile)
{
    ExpectOneTextPerCause(15, [](unsigned cause, const Text& file) {
        return CXFileException(FileExceptionType(cause), file, L"any").GetErrorMessage();
    });
    ExpectOneTextPerCause(9, [](unsigned cause, const Text& file) {
        return CXArchiveException(ArchiveExceptionType(cause), file).GetErrorMessage();
    });
}

TEST(CXInternetException, ErrorsComeWithTheirTextsInTheLanguageOfTheSystem)
{
    const struct
    {
        unsigned error;
        unsigned code; ///< after EACCES
        const wchar_t* english;
        const wchar_t* french;
    } cases[] = {
        {0, 5, L"Permission denied", nullptr}, // the C library's
        {2, 2, L"No such file or directory", nullptr},
        {12007, 12007, L"The name of the server was not found.", L"Le nom du serveur est introuvable."},
        {12003, 12003, L"", L""},
        {0xE0000001, 0xE0000001, L"", L""},
    };
    const XLanguage before = XGetLanguage();
    for (const auto& c : cases)
    {
        errno = EACCES;
        const CXInternetException exception(1, c.error);
        unsigned help = 77;
        EXPECT_EQ(exception.GetErrorCode(), c.code);
        {
            const EnvironmentVariable locale("LC_ALL", "C");
            XSetLanguage(XLanguage::French); // the language of other messages
            EXPECT_EQ(exception.GetErrorMessage(&help), c.english) << c.error;
            EXPECT_EQ(help, 0u);
        }
        const EnvironmentVariable locale("LC_ALL", "fr_FR.UTF-8");
        XSetLanguage(XLanguage::English);
        if (c.french != nullptr) // the C library's texts are not installed in every language
        {
            EXPECT_EQ(exception.GetErrorMessage(nullptr), c.french) << c.error;
        }
    }
    std::set<std::wstring> texts;
    int count = 0;
    for (const char* locale : {"C", "fr_FR.UTF-8"})
    {
        const EnvironmentVariable variable("LC_ALL", locale);
        for (unsigned error = 12001; error < 12200; ++error)
        {
            const Text text = CXInternetException(1, error).GetErrorMessage();
            if (text.IsEmpty())
                continue;
            ++count;
            EXPECT_TRUE(texts.insert(text.GetConstBuffer()).second) << locale << ' ' << error;
        }
    }
    EXPECT_EQ(count, 2 * 50);
    XSetLanguage(before);
}
} // namespace
