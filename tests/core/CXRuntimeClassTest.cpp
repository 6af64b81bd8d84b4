#include "core/CXArchiveException.h"
#include "core/CXFileException.h"
#include "core/CXInternetException.h"
#include "core/ThreadException.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <memory>
#include <string>
#include <thread>
#include <vector>

namespace
{
int g_livingExceptions = 0;

struct CountedException : CXException
{
    CountedException() { ++g_livingExceptions; }
    ~CountedException() override { --g_livingExceptions; }
};

struct Plain : CXObject
{
    X_DECLARE_CLASS(Plain)
    int m_value = 42;
};

struct Derived : Plain
{
    X_DECLARE_CLASS(Derived)
};

/// Throws in its constructor what the test asks for.
struct Failing : CXObject
{
    X_DECLARE_CLASS(Failing)
    enum Way
    {
        NoWay,
        Recorded,
        NotRecorded,
        Replaced,
        ByValue
    };
    static Way s_way;

    Failing()
    {
        switch (s_way)
        {
        case NoWay:
            return;
        case Recorded:
            tev::RecordAndThrow<CountedException>();
        case NotRecorded:
            throw new CountedException;
        case Replaced: // the pending exception is another one than the thrown
        {
            auto* thrown = new CountedException;
            XSetThreadException(thrown);
            XSetThreadException(new CountedException);
            throw thrown;
        }
        case ByValue:
            throw 1;
        }
    }
};
Failing::Way Failing::s_way = Failing::NoWay;

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
} // namespace

TEST(CXRuntimeClass, RecordsSayWhatTheClassesAre)
{
    const struct
    {
        const CXRuntimeClass* record;
        const char* name;
        size_t size;
        unsigned schema;
        const char* base;
        bool hasCreate;
    } cases[] = {
        {&CXObject::classCreatorCXObject, "CXObject", sizeof(CXObject), 1, nullptr, false},
        {&CXException::classCreatorCXException, "CXException", sizeof(CXException), 0x10000000, "CXObject", false},
        {&CXMemoryException::classCreatorCXMemoryException, "CXMemoryException", sizeof(CXMemoryException), 0x10000000,
         "CXException", false},
        {&CXInvalidArgException::classCreatorCXInvalidArgException, "CXInvalidArgException",
         sizeof(CXInvalidArgException), 0x10000000, "CXException", false},
        {&CXUserException::classCreatorCXUserException, "CXUserException", sizeof(CXUserException), 0x10000000,
         "CXException", false},
        {&CXFileException::classCreatorCXFileException, "CXFileException", sizeof(CXFileException), 0x10000000,
         "CXException", false},
        {&CXArchiveException::classCreatorCXArchiveException, "CXArchiveException", sizeof(CXArchiveException),
         0x10000000, "CXException", false},
        {&CXInternetException::classCreatorCXInternetException, "CXInternetException", sizeof(CXInternetException),
         0x10000000, "CXException", false},
        {&Plain::classCreatorPlain, "Plain", sizeof(Plain), 7, "CXObject", true},
        {&Derived::classCreatorDerived, "Derived", sizeof(Derived), 0x20000003, "Plain", true},
    };
    for (const auto& c : cases)
    {
        SCOPED_TRACE(c.name);
        EXPECT_STREQ(c.record->m_name, c.name);
        EXPECT_EQ(c.record->m_objectSize, c.size);
        EXPECT_EQ(c.record->m_schema, c.schema);
        EXPECT_EQ(c.record->IsSerializable(), (c.schema & 0x10000000) == 0);
        EXPECT_EQ(c.record->m_create != nullptr, c.hasCreate);
        EXPECT_EQ(CXRuntimeClass::FindRuntimeClass(c.name), c.record);
        EXPECT_STREQ(c.record->m_base == nullptr ? nullptr : c.record->m_base->m_name, c.base);
        if (!c.hasCreate)
        {
            EXPECT_EQ(c.record->CreateObject(), nullptr);
        }
    }
}

TEST(CXRuntimeClass, KindFollowsTheBases)
{
    const CXRuntimeClass* object = CXObject::GetThisRuntimeClassDescriptor();
    const CXRuntimeClass* plain = Plain::GetThisRuntimeClassDescriptor();
    const CXRuntimeClass* derived = Derived::GetThisRuntimeClassDescriptor();
    const CXRuntimeClass* other = Failing::GetThisRuntimeClassDescriptor();
    const Derived subject;
    const CXObject& asBase = subject;
    const Plain notDerived;

    EXPECT_EQ(asBase.GetRuntimeClassDescriptor(), derived);
    for (const CXRuntimeClass* kind : {object, plain, derived})
    {
        EXPECT_TRUE(asBase.IsKindOf(kind)) << kind->m_name;
        EXPECT_TRUE(derived->IsDerivedFrom(kind)) << kind->m_name;
    }
    EXPECT_FALSE(asBase.IsKindOf(other));
    EXPECT_FALSE(derived->IsDerivedFrom(other));
    EXPECT_FALSE(notDerived.IsKindOf(derived));
    EXPECT_FALSE(plain->IsDerivedFrom(derived));

    EXPECT_FALSE(asBase.IsKindOf(nullptr));
    EXPECT_FALSE(CXObject::IsKindOf(nullptr, object));
    EXPECT_FALSE(CXObject::IsKindOf(nullptr, nullptr));
    EXPECT_FALSE(derived->IsDerivedFrom(nullptr));
    EXPECT_FALSE(CXRuntimeClass::IsDerivedFrom(nullptr, object));
}

TEST(CXRuntimeClass, CreateObjectSwallowsEveryFailure)
{
    const std::unique_ptr<CXObject> plain(CXRuntimeClass::FindRuntimeClass("Plain")->CreateObject());
    ASSERT_NE(plain, nullptr);
    EXPECT_EQ(plain->GetRuntimeClassDescriptor(), Plain::GetThisRuntimeClassDescriptor());
    EXPECT_EQ(static_cast<Plain&>(*plain).m_value, 42);

    for (const auto way :
         {Failing::NoWay, Failing::Recorded, Failing::NotRecorded, Failing::Replaced, Failing::ByValue})
    {
        SCOPED_TRACE(way);
        Failing::s_way = way;
        if (way != Failing::Recorded && way != Failing::Replaced)
            XSetThreadException(new CountedException); // an earlier one goes, too
        const std::unique_ptr<CXObject> object(Failing::classCreatorFailing.CreateObject());
        EXPECT_EQ(object != nullptr, way == Failing::NoWay);
        EXPECT_EQ(XTakeThreadException(), nullptr);
        EXPECT_EQ(g_livingExceptions, 0);
    }
}

TEST(CXRuntimeClass, TheLatestDeclarationOfANameHolds)
{
    const auto find = [] { return CXRuntimeClass::FindRuntimeClass("A name that is too long to be kept in place"); };
    auto firstName = std::make_unique<std::string>("A name that is too long to be kept in place");
    const std::string otherName = *firstName;
    const CXRuntimeClass first = RecordNamed(firstName->c_str());
    const CXRuntimeClass second = RecordNamed(otherName.c_str());
    const CXRuntimeClass third = RecordNamed(otherName.c_str());

    EXPECT_EQ(find(), nullptr);
    EXPECT_FALSE(CXRuntimeClass::UndeclareRuntimeClass(&first));
    for (const CXRuntimeClass* record : {&first, &second, &third})
    {
        EXPECT_TRUE(CXRuntimeClass::DeclareRuntimeClass(record));
        EXPECT_EQ(find(), record);
    }
    EXPECT_TRUE(CXRuntimeClass::DeclareRuntimeClass(&first)) << "declared again it is the latest, not there twice";
    EXPECT_EQ(find(), &first);
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
    EXPECT_EQ(CXRuntimeClass::FindRuntimeClass(""), nullptr);
}

TEST(CXRuntimeClass, ThreadsDeclareAtTheSameTime)
{
    std::atomic<int> failures{0};
    std::vector<std::thread> threads;
    for (int t = 0; t < 4; ++t)
    {
        threads.emplace_back([&failures, t] {
            const std::string ownName = "OfThread" + std::to_string(t);
            const CXRuntimeClass own = RecordNamed(ownName.c_str());
            const CXRuntimeClass shared = RecordNamed("OfAllThreads");
            for (int i = 0; i < 2000; ++i)
            {
                const XClassDeclaration ownDeclaration(&own);
                const XClassDeclaration sharedDeclaration(&shared);
                failures += CXRuntimeClass::FindRuntimeClass(ownName.c_str()) != &own;
                failures += CXRuntimeClass::FindRuntimeClass("OfAllThreads") == nullptr;
            }
        });
    }
    for (std::thread& thread : threads)
        thread.join();
    EXPECT_EQ(failures, 0);
    EXPECT_EQ(CXRuntimeClass::FindRuntimeClass("OfThread0"), nullptr);
    EXPECT_EQ(CXRuntimeClass::FindRuntimeClass("OfAllThreads"), nullptr);
}

#if defined(__x86_64__)
TEST(CXRuntimeClass, VirtualSlotsStandInTheirOrder)
{
    // The destructor takes the slots 0 and 1.
    EXPECT_EQ(SlotOf(&CXObject::GetRuntimeClassDescriptor), 2);
    EXPECT_EQ(SlotOf(&CXObject::Serialize), 3);
    EXPECT_EQ(SlotOf(&CXException::ReportError), 4);
    EXPECT_EQ(SlotOf(&CXFileException::GetErrorMessage), 5);
    EXPECT_EQ(SlotOf(&CXArchiveException::GetErrorMessage), 5);
    EXPECT_EQ(SlotOf(&CXInternetException::GetErrorMessage), 5);
}
#endif
