#include "files/CXMemFile.h"
#include "objects/CXArchiveException.h"
#include "objects/CXFileException.h"
#include "objects/CXInternetException.h"
#include "objects/ClassClashes.h"
#include "objects/DerivedClasses.h"
#include "objects/ThreadException.h"
#include "tests/support/BusyFork.h"
#include "tests/support/CountedException.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/OnThreads.h"

namespace first
{
struct Part : CXObject
{
    X_DECLARE_CLASS(Part)
};
} // namespace first

namespace second
{
struct Part : first::Part
{
    X_DECLARE_CLASS(Part)
};

namespace inner
{
struct Part : second::Part
{
    X_DECLARE_CLASS(Part)
};

struct Whole : ::first::Part
{
    X_DECLARE_CLASS(Whole)
};
X_IMPLEMENT_ABSTRACT_CLASS(Whole, ::first::Part, 1)
} // namespace inner

X_IMPLEMENT_CLASS(inner::Part, second::Part, 1)
} // namespace second

X_IMPLEMENT_CLASS(first::Part, CXObject, 1)
X_IMPLEMENT_NAMED_CLASS(second::Part, ::first::Part, 1, "Part of the second")

namespace
{
using namespace tev::test;

struct Plain : CXObject
{
    X_DECLARE_CLASS(Plain)
};

struct Derived : Plain
{
    X_DECLARE_CLASS(Derived)
};

/// Fails in its constructor as the test says.
struct Failing : CXObject
{
    X_DECLARE_CLASS(Failing)
    static inline void (*s_construct)() = nullptr;
    Failing() { s_construct(); }
};

X_IMPLEMENT_CLASS(Plain, CXObject, 7)
X_IMPLEMENT_CLASS(Derived, Plain, 3 | xSchemaVersionable)
X_IMPLEMENT_CLASS(Failing, CXObject, 1)

CXRuntimeClass RecordNamed(const char* name)
{
    return {name, sizeof(CXObject), 1, CXObject::GetThisRuntimeClassDescriptor(), nullptr};
}

/// The virtual slot of a member function, as the C++ ABI of Linux encodes it in a member pointer.
template <class Member>
std::ptrdiff_t SlotOf(Member member)
{
    std::ptrdiff_t encoded = 0;
    std::memcpy(&encoded, &member, sizeof encoded);
    return (encoded - 1) / static_cast<std::ptrdiff_t>(sizeof(void*));
}

TEST(CXRuntimeClass, RecordsSayWhatTheClassesAre)
{
#define ROW(Class, schema, base, creates)                                                                              \
    {                                                                                                                  \
        &Class::classCreator##Class, Class::GetThisRuntimeClassDescriptor(), #Class, sizeof(Class), schema, base,      \
            creates                                                                                                    \
    }
    const struct
    {
        const CXRuntimeClass* record;
        const CXRuntimeClass* descriptor;
        const char* name;
        size_t size;
        unsigned schema;
        const char* base;
        bool creates;
    } cases[] = {
        ROW(CXObject, 1, nullptr, false),
        ROW(CXException, 0x10000000, "CXObject", false),
        ROW(CXMemoryException, 0x10000000, "CXException", false),
        ROW(CXInvalidArgException, 0x10000000, "CXException", false),
        ROW(CXUserException, 0x10000000, "CXException", false),
        ROW(CXFileException, 0x10000000, "CXException", false),
        ROW(CXArchiveException, 0x10000000, "CXException", false),
        ROW(CXInternetException, 0x10000000, "CXException", false),
        ROW(CXFile, 0x10000000, "CXObject", true),
        ROW(CXMemFile, 0x10000000, "CXFile", true),
        ROW(Plain, 7, "CXObject", true),
        ROW(Derived, 0x20000003, "Plain", true),
    };
#undef ROW
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        EXPECT_EQ(c.descriptor, c.record);
        EXPECT_EQ(CXRuntimeClass::FindRuntimeClass(c.name), c.record);
        EXPECT_STREQ(c.record->m_name, c.name);
        EXPECT_EQ(c.record->m_objectSize, c.size);
        EXPECT_EQ(c.record->m_schema, c.schema);
        EXPECT_EQ(c.record->IsSerializable(), (c.schema & 0x10000000) == 0);
        EXPECT_STREQ(c.record->m_base == nullptr ? nullptr : c.record->m_base->m_name, c.base);
        const std::unique_ptr<CXObject> object(c.record->CreateObject());
        ASSERT_EQ(object != nullptr, c.creates);
        EXPECT_EQ(c.creates ? object->GetRuntimeClassDescriptor() : c.record, c.record);
    }
}

TEST(CXRuntimeClass, ClassesOfOneShortNameHaveTheirOwnRecords)
{
    const struct
    {
        const CXRuntimeClass* record;
        const char* name;
        const CXRuntimeClass* base;
    } cases[] = {
        {&first::Part::classCreatorPart, "first::Part", &CXObject::classCreatorCXObject},
        {&second::Part::classCreatorPart, "Part of the second", &first::Part::classCreatorPart},
        {&second::inner::Part::classCreatorPart, "inner::Part", &second::Part::classCreatorPart},
        {&second::inner::Whole::classCreatorWhole, "Whole", &::first::Part::classCreatorPart},
    };
    for (const auto& c : cases)
    {
        EXPECT_STREQ(c.record->m_name, c.name);
        EXPECT_EQ(CXRuntimeClass::FindRuntimeClass(c.name), c.record);
        EXPECT_EQ(c.record->m_base, c.base);
        const std::unique_ptr<CXObject> object(c.record->CreateObject());
        EXPECT_EQ(object == nullptr, c.record == cases[3].record) << c.name;
        EXPECT_EQ(object == nullptr ? c.record : object->GetRuntimeClassDescriptor(), c.record);
    }
}

TEST(CXRuntimeClass, TwoClassesOfOneNameAreReportedOnceWithTheirPlaces)
{
    static std::vector<std::wstring> reported;
    reported.clear();
    const auto former = XSetClassClashReport([](const XClassClash& clash) {
        reported.push_back(clash.m_hiddenPlace.GetConstBuffer());
        reported.push_back(clash.m_place.GetConstBuffer());
        throw 1;
    });
    static const CXRuntimeClass hidden = RecordNamed("Twice");
    static const CXRuntimeClass found = RecordNamed("Twice");
    const std::size_t before = XGetClassClashes().size();
    for (int i = 0; i < 2; ++i)
    {
        const XClassDeclaration first(&hidden, "hidden.cpp", 12);
        const XClassDeclaration second(&found, "found.cpp", 345);
        CXRuntimeClass::DeclareRuntimeClass(&found, "found.cpp", 345); // no clash with itself
    }
    XSetClassClashReport(former);
    const std::vector<XClassClash> clashes = XGetClassClashes();
    ASSERT_EQ(clashes.size(), before + 1);
    EXPECT_EQ(clashes.back().m_name, "Twice");
    EXPECT_EQ(reported, (std::vector<std::wstring>{clashes.back().m_hiddenPlace.GetConstBuffer(),
                                                   clashes.back().m_place.GetConstBuffer()}));
    EXPECT_EQ(reported[0].find(L"hidden.cpp:12 ("), 0u) << "and the program";
    EXPECT_EQ(reported[1].find(L"found.cpp:345 ("), 0u);
    EXPECT_NE(reported[1].find(L"tevtools_tests"), std::wstring::npos);
}

TEST(CXRuntimeClass, KindFollowsTheBases)
{
    const CXRuntimeClass* object = CXObject::GetThisRuntimeClassDescriptor();
    const CXRuntimeClass* plain = Plain::GetThisRuntimeClassDescriptor();
    const CXRuntimeClass* derived = Derived::GetThisRuntimeClassDescriptor();
    const CXRuntimeClass* other = Failing::GetThisRuntimeClassDescriptor();
    const Derived subject;
    const CXObject& asBase = subject;
    for (const CXRuntimeClass* kind : {object, plain, derived, other, static_cast<const CXRuntimeClass*>(nullptr)})
    {
        const bool isKind = kind != other && kind != nullptr;
        EXPECT_EQ(asBase.IsKindOf(kind), isKind);
        EXPECT_EQ(derived->IsDerivedFrom(kind), isKind);
        EXPECT_FALSE(CXObject::IsKindOf(nullptr, kind));
        EXPECT_FALSE(CXRuntimeClass::IsDerivedFrom(nullptr, kind));
    }
    EXPECT_FALSE(Plain().IsKindOf(derived));
}

TEST(CXRuntimeClass, CreateObjectSwallowsEveryFailure)
{
    void (*const ways[])() = {
        [] { throw new CountedException; },
        [] { XThrow<CountedException>(); },
        [] { // the pending exception is another one than the thrown
            auto* thrown = new CountedException;
            XSetThreadException(thrown);
            XSetThreadException(new CountedException);
            throw thrown;
        },
        [] {
            XSetThreadException(new CountedException);
            throw 1;
        },
        [] { XSetThreadException(new CountedException); }, // and is created
    };
    for (const auto& way : ways)
    {
        SCOPED_TRACE(&way - ways);
        Failing::s_construct = way;
        const std::unique_ptr<CXObject> object(Failing::classCreatorFailing.CreateObject());
        EXPECT_EQ(object != nullptr, &way == std::end(ways) - 1);
        EXPECT_EQ(XTakeThreadException(), nullptr);
        EXPECT_EQ(CountedException::s_living, 0);
    }
}

TEST(CXRuntimeClass, TheLatestDeclarationOfANameHolds)
{
    const std::string name = "A name that is too long to be kept in place";
    auto firstName = std::make_unique<std::string>(name);
    const CXRuntimeClass first = RecordNamed(firstName->c_str());
    const CXRuntimeClass second = RecordNamed(name.c_str());
    const CXRuntimeClass third = RecordNamed(name.c_str());
    const auto find = [&name] { return CXRuntimeClass::FindRuntimeClass(name.c_str()); };

    EXPECT_EQ(find(), nullptr);
    EXPECT_FALSE(CXRuntimeClass::UndeclareRuntimeClass(&first));
    for (const CXRuntimeClass* record : {&first, &second, &third, &first}) // the last is not there twice
    {
        EXPECT_TRUE(CXRuntimeClass::DeclareRuntimeClass(record));
        EXPECT_EQ(find(), record);
    }
    EXPECT_TRUE(CXRuntimeClass::UndeclareRuntimeClass(&second)) << "from the middle";
    EXPECT_EQ(find(), &first);
    EXPECT_TRUE(CXRuntimeClass::UndeclareRuntimeClass(&first));
    EXPECT_FALSE(CXRuntimeClass::UndeclareRuntimeClass(&first));
    firstName.reset();
    EXPECT_EQ(find(), &third) << "the name of a record that went away is not needed any more";
    EXPECT_TRUE(CXRuntimeClass::UndeclareRuntimeClass(&third));
    EXPECT_EQ(find(), nullptr);

    EXPECT_FALSE(CXRuntimeClass::DeclareRuntimeClass(nullptr));
    EXPECT_FALSE(CXRuntimeClass::UndeclareRuntimeClass(nullptr));
    EXPECT_EQ(CXRuntimeClass::FindRuntimeClass(nullptr), nullptr);
}

TEST(CXRuntimeClass, ADeclarationWithoutMemoryLeavesTheOthers)
{
    const std::string name = "Another name that is too long to be kept in place";
    const CXRuntimeClass records[] = {RecordNamed(name.c_str()), RecordNamed(name.c_str())};
    const CXRuntimeClass* found = nullptr;
    for (const CXRuntimeClass& record : records)
    {
        const unsigned allocations = FailEachAllocation([&](FailingAllocations& failing) {
            const bool isDeclared = failing.Run([&] { CXRuntimeClass::DeclareRuntimeClass(&record); });
            EXPECT_EQ(CXRuntimeClass::FindRuntimeClass(name.c_str()), isDeclared ? &record : found);
            if (isDeclared)
                CXRuntimeClass::UndeclareRuntimeClass(&record);
        });
        EXPECT_TRUE(allocations > 0 || kIsSanitized); // there only the library's own code is failed
        CXRuntimeClass::DeclareRuntimeClass(&record);
        found = &record;
    }
    for (const CXRuntimeClass& record : records)
        CXRuntimeClass::UndeclareRuntimeClass(&record);
}

TEST(CXRuntimeClass, IsFoundInAChildOfAProcessThatLooksForClasses)
{
    const auto find = [] { return CXRuntimeClass::FindRuntimeClass("CXException") != nullptr; };
    EXPECT_EQ(ForkWhileBusy(find, find), 0);
}

TEST(CXRuntimeClass, DerivedClassesAreListedByTheirNames)
{
    using Classes = std::vector<const CXRuntimeClass*>;
    const CXRuntimeClass* const part = first::Part::GetThisRuntimeClassDescriptor();
    const Classes parts = XGetDerivedClasses(part);
    EXPECT_EQ(parts, (Classes{second::Part::GetThisRuntimeClassDescriptor(), // "Part of the second"
                              second::inner::Whole::GetThisRuntimeClassDescriptor(),
                              second::inner::Part::GetThisRuntimeClassDescriptor()}));
    const auto derivedFrom = [](const char* name, const CXRuntimeClass* base) {
        return CXRuntimeClass{name, sizeof(CXObject), 1, base, nullptr};
    };
    const CXRuntimeClass base = derivedFrom("Base", part);
    const CXRuntimeClass hidden = derivedFrom("Latest", &base);
    const CXRuntimeClass latest = hidden;
    const CXRuntimeClass early = derivedFrom("Early", &latest);
    const XClassDeclaration ofHidden(&hidden);
    {
        const XClassDeclaration ofLatest(&latest);
        const XClassDeclaration ofEarly(&early);
        EXPECT_EQ(XGetDerivedClasses(&base), (Classes{&early, &latest}));
    }
    EXPECT_EQ(XGetDerivedClasses(&base), Classes{&hidden});
    EXPECT_EQ(XGetDerivedClasses(&early), Classes());
    EXPECT_EQ(XGetDerivedClasses(nullptr), Classes());
}

TEST(CXRuntimeClass, ThreadsDeclareAtTheSameTime)
{
    std::atomic<int> failures{0};
    OnThreads(4, [&failures](int) {
        auto own = std::make_unique<CXRuntimeClass>(RecordNamed("OfAllThreads")); // which goes, as in a plug-in
        for (int i = 0; i < 2000; ++i)
        {
            const XClassDeclaration declaration(own.get());
            failures += CXRuntimeClass::FindRuntimeClass("OfAllThreads") == nullptr;
            failures += XGetDerivedClasses(CXObject::GetThisRuntimeClassDescriptor()).empty();
        }
    });
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(CXRuntimeClass::FindRuntimeClass("OfAllThreads"), nullptr);
}

#if defined(__x86_64__)
TEST(CXRuntimeClass, VirtualSlotsStandInTheirOrder)
{
    struct File : CXMemFile
    {
        using CXMemFile::BufferCommand;
        using CXMemFile::GrowBuffer;
    };
    // The destructor takes the slots 0 and 1.
    const std::vector<std::ptrdiff_t> exceptions = {SlotOf(&CXObject::GetRuntimeClassDescriptor),
                                                    SlotOf(&CXObject::Serialize),
                                                    SlotOf(&CXException::ReportError),
                                                    SlotOf(&CXFileException::GetErrorMessage),
                                                    SlotOf(&CXArchiveException::GetErrorMessage),
                                                    SlotOf(&CXInternetException::GetErrorMessage)};
    EXPECT_EQ(exceptions, (std::vector<std::ptrdiff_t>{2, 3, 4, 5, 5, 5}));
    bool (CXFile::*const open)(const wchar_t*, unsigned, CXFileException*) = &CXFile::Open; // not the overloads
    const std::ptrdiff_t files[] = {SlotOf(open),
                                    SlotOf(&CXFile::Seek),
                                    SlotOf(&CXFile::SetLength),
                                    SlotOf(&CXFile::GetLength),
                                    SlotOf(&CXFile::Read),
                                    SlotOf(&CXFile::Write),
                                    SlotOf(&CXFile::Flush),
                                    SlotOf(&CXFile::Close),
                                    SlotOf(&CXFile::Abort),
                                    SlotOf(&CXFile::SetFilePath),
                                    SlotOf(&CXFile::GetFileName),
                                    SlotOf(&CXFile::GetFilePath),
                                    SlotOf(&File::BufferCommand),
                                    SlotOf(&CXFile::GetPosition),
                                    SlotOf(&File::GrowBuffer)};
    for (std::size_t i = 0; i < std::size(files); ++i)
        EXPECT_EQ(files[i], static_cast<std::ptrdiff_t>(4 + i));
}
#endif
} // namespace
