#include "files/CXArchive.h"

#include "tests/support/ArchiveStream.h"
#include "tests/support/FailingAllocations.h"
#include "tests/support/Sanitized.h"

#include <pthread.h>

namespace
{
using namespace tev::test;

class Node : public CXObject
{
public:
    X_DECLARE_CLASS(Node)
    void Serialize(CXArchive& archive) override
    {
        if (archive.IsStoring())
            archive << m_value << m_left << m_right;
        else
        {
            m_schemaBefore = archive.GetObjectSchema();
            archive >> m_value >> m_left >> m_right;
            m_schemaAfter = archive.GetObjectSchema();
            if (m_value == kSwallows)
                XSetThreadException(new CXUserException);
        }
    }
    static constexpr int kSwallows = 99; // an exception that its reader caught and forgot
    int m_value = 0;
    CXObject* m_left = nullptr;
    CXObject* m_right = nullptr;
    unsigned m_schemaBefore = 0;
    unsigned m_schemaAfter = 0;
};
class Leaf : public Node
{
public:
    X_DECLARE_CLASS(Leaf)
};
class Versioned : public Node
{
public:
    X_DECLARE_CLASS(Versioned)
};
class Transient : public CXObject
{
public:
    X_DECLARE_CLASS(Transient)
};
class Abstract : public CXObject
{
public:
    X_DECLARE_CLASS(Abstract)
};
/// Owns what it reads, but for the last one.
class Branch : public CXObject
{
public:
    X_DECLARE_CLASS(Branch)
    Branch() { ++g_count; }
    ~Branch() override { --g_count; }
    void Serialize(CXArchive& archive) override
    {
        if (archive.IsStoring())
            archive << m_first << m_second << m_other << m_value;
        else
            archive >> m_first >> m_second >> m_other >> m_value;
    }
    static int g_count;
    std::unique_ptr<Branch> m_first;
    std::unique_ptr<Branch> m_second;
    Branch* m_other = nullptr;
    int m_value = 0;
};
int Branch::g_count = 0;
X_IMPLEMENT_CLASS(Branch, CXObject, 1)
X_IMPLEMENT_CLASS(Node, CXObject, 3)
X_IMPLEMENT_CLASS(Leaf, Node, 1)
X_IMPLEMENT_CLASS(Versioned, Node, 7 | xSchemaVersionable)
X_IMPLEMENT_CLASS(Transient, CXObject, 1 | xSchemaNotSerializable)
X_IMPLEMENT_ABSTRACT_CLASS(Abstract, CXObject, 1)

const CXRuntimeClass* const kNode = Node::GetThisRuntimeClassDescriptor();
const CXRuntimeClass* const kLeaf = Leaf::GetThisRuntimeClassDescriptor();
const Bytes kNewNode = Bytes{0xFF, 0xFF, 3, 0, 4, 0} + "Node";
const Bytes kNewLeaf = Bytes{0xFF, 0xFF, 1, 0, 4, 0} + "Leaf";
const Bytes kNoLinks = {0, 0, 0, 0};

// Deletes what an archive has created, once each.
void DeleteCreated(CXArchive& archive)
{
    for (CXObject* object : archive.GetCreatedObjects())
        delete object;
}

TEST(CXArchiveObjectTest, ObjectsAndClassesShareOneIndex)
{
    Node root;
    Leaf left;
    Leaf right;
    root.m_value = 1;
    root.m_left = &left;
    root.m_right = &right;
    left.m_value = 2;
    left.m_right = &root;
    right.m_left = &left;
    const Bytes expected = kNewNode + Bytes{1, 0, 0, 0}               // class 1, object 2
                           + kNewLeaf + Bytes{2, 0, 0, 0, 0, 0, 2, 0} // class 3, object 4: null and the root
                           + Bytes{3, 0x80, 0, 0, 0, 0, 4, 0, 0, 0}   // object 5 of class 3: left and null
                           + Bytes{2, 0, 0, 0, 1, 0x80};
    for (const Way& way : kWays)
    {
        const Bytes bytes = StoredBy(
            [&](CXArchive& archive) {
                archive << &root << &root << static_cast<const CXObject*>(nullptr);
                archive.SerializeClass(kNode);
            },
            way);
        ASSERT_EQ(bytes, expected);

        Stream stream(way, xArchiveLoad, bytes);
        auto* loaded = dynamic_cast<Node*>(stream->ReadObject(kNode));
        ASSERT_NE(loaded, nullptr);
        auto* loadedLeft = dynamic_cast<Leaf*>(loaded->m_left);
        auto* loadedRight = dynamic_cast<Leaf*>(loaded->m_right);
        ASSERT_TRUE(loadedLeft != nullptr && loadedRight != nullptr);
        EXPECT_EQ(loadedLeft->m_value, 2);
        EXPECT_EQ(loadedLeft->m_right, loaded);
        EXPECT_EQ(loadedRight->m_left, loadedLeft);
        const CXObject* again = nullptr;
        CXObject* null = loaded;
        *stream >> again >> null;
        EXPECT_EQ(again, loaded);
        EXPECT_EQ(null, nullptr);
        stream->SerializeClass(kNode);
        EXPECT_EQ(stream->GetCreatedObjects(), (std::vector<CXObject*>{loaded, loadedLeft, loadedRight}));
        DeleteCreated(*stream);
    }
}

TEST(CXArchiveObjectTest, APointerIsReadAsItsClass)
{
    Node node;
    Leaf leaf;
    Versioned other;
    const Bytes bytes = StoredBy([&](CXArchive& archive) {
        archive << &leaf << &leaf << static_cast<const CXObject*>(nullptr) << &other << &other << &node;
    });
    Stream stream(kWays[0], xArchiveLoad, bytes);
    Leaf* first = nullptr;
    const Node* again = nullptr;
    Leaf* null = &leaf;
    *stream >> first >> again >> null;
    ASSERT_NE(first, nullptr);
    EXPECT_EQ(again, first) << "as the class that it is derived from";
    EXPECT_EQ(null, nullptr);

    // Another class is refused before an object of it exists, and a reference to one as well.
    Leaf* wrong = &leaf;
    EXPECT_EQ(CauseOf([&] { *stream >> wrong; }), archiveBadClass);
    EXPECT_EQ(wrong, &leaf);
    EXPECT_EQ(stream->GetCreatedObjects(), std::vector<CXObject*>{first});
    DeleteCreated(*stream);

    Stream references(kWays[0], xArchiveLoad, StoredBy([&](CXArchive& archive) { archive << &other << &other; }));
    Versioned* right = nullptr;
    *references >> right;
    EXPECT_EQ(CauseOf([&] { *references >> wrong; }), archiveBadClass);
    EXPECT_EQ(wrong, &leaf);
    DeleteCreated(*references);
}

TEST(CXArchiveObjectTest, AUniquePointerOwnsWhatItReads)
{
    Branch root;
    root.m_first = std::make_unique<Branch>();
    root.m_first->m_second = std::make_unique<Branch>();
    root.m_second = std::make_unique<Branch>();
    root.m_second->m_other = root.m_first->m_second.get();
    root.m_second->m_value = 7;
    const int own = Branch::g_count;
    const Bytes bytes = StoredBy([&](CXArchive& archive) { archive << &root << &root << std::unique_ptr<Branch>(); });
    const auto load = [](CXArchive& archive, std::unique_ptr<Branch>& loaded) { archive >> loaded; };
    {
        Stream stream(kWays[0], xArchiveLoad, bytes);
        auto loaded = std::make_unique<Branch>(); // which is deleted
        load(*stream, loaded);
        EXPECT_EQ(Branch::g_count, own + 4);
        EXPECT_EQ(loaded->m_second->m_value, 7);
        EXPECT_EQ(loaded->m_second->m_other, loaded->m_first->m_second.get());
        EXPECT_TRUE(stream->GetCreatedObjects().empty());
        const Branch* const before = loaded.get();
        EXPECT_EQ(CauseOf([&] { load(*stream, loaded); }), archiveBadIndex) << "it has an owner";
        EXPECT_EQ(loaded.get(), before);
        load(*stream, loaded);
        EXPECT_EQ(loaded, nullptr);
    }
    EXPECT_EQ(Branch::g_count, own);

    // Whatever the bytes are, nothing is left and nothing is deleted twice.
    Bytes damaged = StoredBy([&](CXArchive& archive) { archive << &root; });
    for (const bool isCut : {true, false})
    {
        for (std::size_t i = 0; i < damaged.size(); ++i)
        {
            for (int bit = 0; bit < (isCut ? 1 : 8); ++bit)
            {
                Bytes changed(damaged.begin(),
                              damaged.begin() + static_cast<std::ptrdiff_t>(isCut ? i : damaged.size()));
                if (!isCut)
                    changed[i] = static_cast<unsigned char>(changed[i] ^ 1 << bit);
                Stream stream(kWays[i % std::size(kWays)], xArchiveLoad | xArchiveStrict, changed);
                std::unique_ptr<Branch> loaded;
                const int cause = CauseOf([&] { load(*stream, loaded); });
                EXPECT_TRUE(cause == kNothingThrown || loaded == nullptr);
                EXPECT_TRUE(cause == archiveEndOfFile || !isCut);
                loaded.reset();
                DeleteCreated(*stream); // what the damage has put in the place of a reference
            }
        }
    }
    EXPECT_EQ(Branch::g_count, own);

    // A reference to what is gone is null.
    const Bytes wrongChild = Bytes{0xFF, 0xFF, 1, 0, 6, 0} + "Branch" + kNewLeaf + Bytes{2, 0};
    Stream stream(kWays[0], xArchiveLoad, wrongChild);
    std::unique_ptr<Branch> loaded;
    EXPECT_EQ(CauseOf([&] { load(*stream, loaded); }), archiveBadClass);
    CXObject* gone = &root;
    *stream >> gone;
    EXPECT_EQ(gone, nullptr);

    const unsigned allocations = FailEachAllocation([&](FailingAllocations& failing) {
        Stream failed(kWays[0], xArchiveLoad, damaged);
        std::unique_ptr<Branch> whole;
        const bool isLoaded = failing.Run([&] { load(*failed, whole); });
        EXPECT_EQ(isLoaded, whole != nullptr);
        whole.reset();
        EXPECT_EQ(Branch::g_count, own);
    });
    EXPECT_GE(allocations, 4u);
}

TEST(CXArchiveObjectTest, LargeIndicesTakeTheLongForm)
{
    // Class 1, then objects 2 to 0x8001; the last ones and the class are referred to again.
    std::vector<Leaf> leaves(0x8000);
    const Bytes bytes = StoredBy([&](CXArchive& archive) {
        for (Leaf& leaf : leaves)
            archive << &leaf;
        Node late;
        archive << &leaves[0x7FFE - 2] << &leaves[0x7FFF - 2] << &leaves[0x8000 - 2] << &late;
        archive.WriteClass(kNode);
    });
    const Bytes tail = Bytes{0xFE, 0x7F, 0xFF, 0x7F, 0xFF, 0x7F, 0, 0, 0xFF, 0x7F, 0x00, 0x80, 0, 0} + kNewNode +
                       kNoLinks + kNoLinks + Bytes{0xFF, 0x7F, 0x02, 0x80, 0, 0x80};
    ASSERT_EQ(Bytes(bytes.end() - static_cast<std::ptrdiff_t>(tail.size()), bytes.end()), tail);

    Stream stream(kWays[3], xArchiveLoad, bytes);
    std::vector<CXObject*> loaded;
    for (size_t i = 0; i < leaves.size(); ++i)
        loaded.push_back(stream->ReadObject(kLeaf));
    for (const size_t index : {0x7FFE, 0x7FFF, 0x8000})
        EXPECT_EQ(stream->ReadObject(kLeaf), loaded[index - 2]);
    EXPECT_NE(stream->ReadObject(kNode), nullptr);
    EXPECT_EQ(stream->ReadClass(kNode, nullptr, nullptr), kNode);
    DeleteCreated(*stream);
}

TEST(CXArchiveObjectTest, SchemaNumbersDecideWhatIsRead)
{
    const Bytes older = Bytes{0xFF, 0xFF, 2, 0, 9, 0} + "Versioned" + Bytes{5, 0, 0, 0} + kNewNode + Bytes{6, 0, 0, 0} +
                        kNoLinks + Bytes{0, 0};
    Stream stream(kWays[0], xArchiveLoad, older);
    EXPECT_EQ(stream->GetObjectSchema(), 0xFFFFFFFFu);
    auto* versioned = static_cast<Versioned*>(stream->ReadObject(nullptr));
    EXPECT_EQ(versioned->m_schemaBefore, 2u);
    EXPECT_EQ(versioned->m_schemaAfter, 3u) << "a nested object's schema stays in force behind it";
    EXPECT_EQ(static_cast<Node*>(versioned->m_left)->m_schemaBefore, 3u);
    EXPECT_EQ(stream->GetObjectSchema(), 2u);
    DeleteCreated(*stream);

    const auto read = [](CXArchive& archive) { archive.ReadObject(nullptr); };
    EXPECT_EQ(CauseOfReading(Bytes{0xFF, 0xFF, 2, 0, 4, 0} + "Node", read), archiveBadSchema);
    EXPECT_EQ(CauseOfReading(Bytes{0xFF, 0xFF, 1, 0, 7, 0} + "Unknown", read), archiveBadClass);
    EXPECT_EQ(CauseOfReading(Bytes{0xFF, 0xFF, 1, 0, 0xFF, 0xFF} + Bytes(0xFFFF, 'x'), read), archiveBadClass);
    EXPECT_EQ(CauseOfReading(Bytes{0xFF, 0xFF, 1, 0, 0xFF, 0xFF} + "x", read), archiveEndOfFile);
    Abstract abstract;
    EXPECT_EQ(CauseOfReading(StoredBy([&](CXArchive& archive) { archive << &abstract; }), read), -3);

    // The longest name, and one that has no form.
    std::string name(0xFFFF, 'n');
    const CXRuntimeClass longest = {name.c_str(), 0, 0x20010002, nullptr, nullptr};
    EXPECT_EQ(StoredBy([&](CXArchive& archive) { archive.WriteClass(&longest); }),
              (Bytes{0xFF, 0xFF, 2, 0, 0xFF, 0xFF} + name.c_str()));
    name += 'n';
    const CXRuntimeClass tooLong = {name.c_str(), 0, 1, nullptr, nullptr};
    EXPECT_EQ(CauseOf([&] { StoredBy([&](CXArchive& archive) { archive.WriteClass(&tooLong); }); }), archiveGeneric);
}

TEST(CXArchiveObjectTest, ClassesAreReadWithSchemaAndReference)
{
    const Bytes versioned = Bytes{0xFF, 0xFF, 2, 0, 9, 0} + "Versioned";
    Stream stream(kWays[0], xArchiveLoad,
                  versioned + Bytes{1, 0x80, 0xFF, 0x7F, 1, 0, 0, 0x80, 9, 0, 0xFF, 0x7F, 0, 0, 1, 0});
    const struct
    {
        bool m_isClass;
        unsigned m_schema;
        unsigned m_tag;
    } rows[] = {
        {true, 2, 0x80007FFF}, {true, 2, 0x80000001}, {true, 2, 0x80000001}, {false, 99, 9}, {false, 99, 0x10000}};
    for (const auto& row : rows)
    {
        unsigned schema = 99;
        unsigned tag = 99;
        const CXRuntimeClass* const type = stream->ReadClass(kNode, &schema, &tag);
        EXPECT_EQ(type, row.m_isClass ? Versioned::GetThisRuntimeClassDescriptor() : nullptr);
        EXPECT_EQ(schema, row.m_schema);
        EXPECT_EQ(tag, row.m_tag);
    }
}

TEST(CXArchiveObjectTest, AnObjectThatWasReadLeavesNoPendingException)
{
    Stream stream(kWays[0], xArchiveLoad, kNewNode + Bytes{Node::kSwallows, 0, 0, 0} + kNoLinks);
    const std::unique_ptr<CXObject> node(stream->ReadObject(kNode));
    EXPECT_EQ(XTakeThreadException(), nullptr);
}

TEST(CXArchiveObjectTest, ReferencesAreChecked)
{
    const auto any = [](CXArchive& archive) { archive.ReadObject(nullptr); };
    const auto leaf = [](CXArchive& archive) { archive.ReadObject(kLeaf); };
    const auto classOnly = [](CXArchive& archive) { archive.SerializeClass(nullptr); };
    // Each behind one node, so that 1 is its class and 2 the object.
    const Bytes node = kNewNode + kNoLinks + kNoLinks;
    const struct
    {
        Bytes m_reference;
        std::function<void(CXArchive&)> m_read;
        int m_lenient;
        int m_strict;
    } rows[] = {
        {{0, 0}, any, -1, -1},
        {{0, 0}, leaf, -1, -1},
        {{0, 0}, classOnly, archiveBadIndex, archiveBadIndex},
        {{2, 0}, any, -1, -1},
        {{2, 0}, leaf, archiveBadClass, archiveBadClass},
        {{2, 0}, classOnly, archiveBadIndex, archiveBadIndex},
        {{1, 0}, any, -1, archiveBadIndex}, // the class of schema 3 passes for an object
        {{1, 0}, leaf, archiveBadClass, archiveBadIndex},
        {{3, 0}, any, archiveBadIndex, archiveBadIndex},
        {{0xFF, 0x7F, 0xFF, 0xFF, 0xFF, 0x7F}, any, archiveBadIndex, archiveBadIndex},
        {{0, 0x80}, any, archiveBadIndex, archiveBadIndex},
        {{2, 0x80}, any, archiveBadIndex, archiveBadIndex},
        {{3, 0x80}, any, archiveBadIndex, archiveBadIndex},
        {{0xFF, 0x7F, 0xFF, 0xFF, 0xFF, 0xFF}, any, archiveBadIndex, archiveBadIndex},
        {{1, 0x80}, leaf, archiveBadClass, archiveBadClass},
        {{1, 0x80}, classOnly, -1, -1},
    };
    for (const auto& row : rows)
    {
        for (const unsigned mode : {xArchiveLoad, xArchiveLoad | xArchiveStrict})
        {
            Stream stream(kWays[0], mode, node + row.m_reference);
            const std::unique_ptr<CXObject> first(stream->ReadObject(nullptr));
            EXPECT_EQ(CauseOf([&] { row.m_read(*stream); }), mode == xArchiveLoad ? row.m_lenient : row.m_strict)
                << testing::PrintToString(row.m_reference);
        }
    }
    EXPECT_EQ(CauseOfReading({0, 0}, any), archiveBadIndex) << "no table yet";
    EXPECT_EQ(CauseOfReading({},
                             [](CXArchive& archive) {
                                 archive.ReadClass(Transient::GetThisRuntimeClassDescriptor(), nullptr, nullptr);
                             }),
              archiveGeneric);
    // What may not be stored is created by a lenient reader all the same.
    const Bytes transient = {0xFF, 0xFF, 1, 0, 9, 0, 'T', 'r', 'a', 'n', 's', 'i', 'e', 'n', 't'};
    const auto release = [](CXArchive& archive) { delete archive.ReadObject(nullptr); };
    EXPECT_EQ(CauseOfReading(transient, release), -1);
    Stream strict(kWays[0], xArchiveLoad | xArchiveStrict, transient);
    EXPECT_EQ(CauseOf([&] { release(*strict); }), archiveGeneric);
    // Even a lenient reader distinguishes a class of schema 1 from an object.
    Stream stream(kWays[0], xArchiveLoad, kNewLeaf + kNoLinks + kNoLinks + Bytes{1, 0});
    const std::unique_ptr<CXObject> first(stream->ReadObject(nullptr));
    EXPECT_EQ(CauseOf([&] { any(*stream); }), archiveBadIndex);
}

/// Runs the work on a thread with a stack of so many bytes.
void OnStack(std::size_t size, std::function<void()> work)
{
    pthread_attr_t attributes;
    ASSERT_EQ(pthread_attr_init(&attributes), 0);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, size), 0);
    const auto run = [](void* given) -> void* {
        (*static_cast<std::function<void()>*>(given))();
        return nullptr;
    };
    pthread_t thread;
    ASSERT_EQ(pthread_create(&thread, &attributes, run, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}
// For 12,000 objects within each other, also unoptimised and with a sanitizer.
constexpr std::size_t kLargeStack = 64 << 20;

TEST(CXArchiveObjectTest, HostileNestingAndBudgetsEndInAnException)
{
    Bytes deep = kNewNode + kNoLinks;
    for (int i = 0; i < 20000; ++i)
        deep = std::move(deep) + Bytes{1, 0x80, 0, 0, 0, 0};
    const struct
    {
        const char* m_what;
        unsigned m_mode;
        std::function<void(CXArchive&)> m_limit;
        size_t m_created;
    } rows[] = {
        {"default", xArchiveLoad, [](CXArchive&) {}, 10000},
        {"nesting", xArchiveLoad, [](CXArchive& archive) { archive.SetNestingLimit(500); }, 500},
        {"depth", xArchiveLoad | xArchiveStrict, [](CXArchive& archive) { archive.SetBudget(1 << 20, 999, 300); }, 300},
        {"objects", xArchiveLoad | xArchiveStrict, [](CXArchive& archive) { archive.SetBudget(1 << 20, 200, 300); },
         200},
        // The new class and the first value take 14 bytes, each further object 6.
        {"bytes", xArchiveLoad | xArchiveStrict, [](CXArchive& archive) { archive.SetBudget(74, 999, 300); }, 11},
    };
    for (const auto& row : rows)
    {
        for (const Way& way : kWays)
        {
            Stream stream(way, row.m_mode, deep);
            row.m_limit(*stream);
            OnStack(kLargeStack,
                    [&] { EXPECT_EQ(CauseOf([&] { stream->ReadObject(nullptr); }), archiveGeneric) << row.m_what; });
            EXPECT_EQ(stream->GetCreatedObjects().size(), row.m_created) << row.m_what;
            DeleteCreated(*stream);
        }
    }
    // A lenient archive has a budget too.
    Stream lenient(kWays[0], xArchiveLoad, deep);
    lenient->SetBudget(1 << 20, 3, 1000);
    EXPECT_EQ(CauseOf([&] { lenient->ReadObject(nullptr); }), archiveGeneric);
    EXPECT_EQ(lenient->GetCreatedObjects().size(), 3u);
    DeleteCreated(*lenient);

    // What a flush gives back to the file is not taken from the budget twice.
    for (const Way& way : kWays)
    {
        for (const auto& [bytes, cause] :
             {std::pair(98ull, archiveGeneric), std::pair(99ull, archiveEndOfFile), std::pair(~0ull, archiveEndOfFile)})
        {
            Stream budgeted(way, xArchiveLoad, Bytes(100, 1));
            char byte;
            *budgeted >> byte;
            budgeted->SetBudget(bytes, 1, 1);
            for (int i = 1; i < 99; ++i)
            {
                *budgeted >> byte;
                budgeted->Flush();
            }
            EXPECT_EQ(CauseOf([&] { *budgeted >> byte >> byte; }), cause);
        }
    }
}

// Objects of which each holds the next one.
std::vector<Node> Chain(std::size_t length)
{
    std::vector<Node> nodes(length);
    for (std::size_t i = 1; i < length; ++i)
        nodes[i - 1].m_left = &nodes[i];
    return nodes;
}

int CauseOfStoringChain(std::size_t length, CXMemFile& file, unsigned limit = 0)
{
    std::vector<Node> nodes = Chain(length);
    CXArchive archive(&file, xArchiveStore);
    if (limit != 0)
        archive.SetNestingLimit(limit);
    return CauseOf([&] { archive << &nodes[0]; });
}

TEST(CXArchiveObjectTest, WhatIsStoredNestsNoDeeperThanWhatIsLoaded)
{
    const struct
    {
        std::size_t m_length;
        unsigned m_limit; // 0 for the one that is not set
        int m_cause;
    } rows[] = {{10000, 0, kNothingThrown},    {10001, 0, archiveGeneric}, {1000000, 0, archiveGeneric},
                {7, 7, kNothingThrown},        {8, 7, archiveGeneric},     {1, 1, kNothingThrown},
                {12000, 12000, kNothingThrown}};
    for (const auto& row : rows)
    {
        CXMemFile file;
        OnStack(kLargeStack,
                [&] { EXPECT_EQ(CauseOfStoringChain(row.m_length, file, row.m_limit), row.m_cause) << row.m_length; });
        const bool isWhole = row.m_cause == kNothingThrown;
        file.SeekToBegin();
        CXArchive archive(&file, xArchiveLoad);
        if (row.m_limit != 0)
            archive.SetNestingLimit(row.m_limit);
        OnStack(kLargeStack, [&] {
            EXPECT_EQ(CauseOf([&] { archive.ReadObject(kNode); }), isWhole ? kNothingThrown : int{archiveEndOfFile})
                << row.m_length << ": what is not whole does not look so";
        });
        EXPECT_EQ(archive.GetCreatedObjects().size(), isWhole ? row.m_length : row.m_limit == 0 ? 10000 : row.m_limit);
        DeleteCreated(archive);
    }
    // References do not nest.
    Node node;
    CXMemFile file;
    CXArchive archive(&file, xArchiveStore);
    archive.SetNestingLimit(1);
    for (int i = 0; i < 10; ++i)
        archive << &node;
    archive.Close();
    EXPECT_EQ(file.GetLength(), 18u + 9 * 2);
}

TEST(CXArchiveObjectTest, NestingEndsBeforeASmallStackDoes)
{
    CXMemFile file;
    ASSERT_EQ(CauseOfStoringChain(9000, file), kNothingThrown);
    OnStack(kIsSanitized ? 0x80000 : 0x20000, [&file] {
        CXMemFile target;
        EXPECT_EQ(CauseOfStoringChain(9000, target), archiveGeneric);
        EXPECT_EQ(CauseOfStoringChain(20, target), kNothingThrown);
        file.SeekToBegin();
        CXArchive archive(&file, xArchiveLoad);
        EXPECT_EQ(CauseOf([&] { archive.ReadObject(kNode); }), archiveGeneric);
        EXPECT_GT(archive.GetCreatedObjects().size(), 100u);
        DeleteCreated(archive);
    });
}

TEST(CXArchiveObjectTest, EachFailedAllocationEndsInAnExceptionAndLeaksNothing)
{
    Node root;
    Leaf leaf;
    root.m_left = root.m_right = &leaf;
    const CXTString<wchar_t> text(L'x', 5000); // longer than the buffer
    const auto store = [&](CXArchive& archive) {
        archive << &root << text;
        archive.Close();
    };
    const Bytes expected = StoredBy(store);
    FailEachAllocation([&](FailingAllocations& failing) {
        CXMemFile file;
        if (failing.Run([&] {
                CXArchive archive(&file, xArchiveStore);
                store(archive);
            }))
        {
            EXPECT_EQ(Bytes(file.GetBuffer(), file.GetBuffer() + file.GetLength()), expected);
        }
    });
    const unsigned allocations = FailEachAllocation([&](FailingAllocations& failing) {
        CXMemFile file(expected.data(), expected.size(), false);
        CXArchive archive(&file, xArchiveLoad);
        CXTString<wchar_t> loaded;
        if (failing.Run([&] {
                archive.ReadObject(kNode);
                archive >> loaded;
            }))
        {
            EXPECT_EQ(loaded, text);
            EXPECT_EQ(archive.GetCreatedObjects().size(), 2u);
        }
        DeleteCreated(archive);
    });
    EXPECT_GE(allocations, 4u);
}

TEST(CXArchiveObjectTest, TruncationAtEveryByteFailsAndLosesNothing)
{
    Node root;
    Leaf leaf;
    root.m_left = &leaf;
    const Bytes whole = StoredBy([&](CXArchive& archive) { archive << &root << &leaf; });
    for (size_t length = 0; length < whole.size(); ++length)
    {
        for (const Way& way : kWays)
        {
            Stream stream(way, xArchiveLoad, Bytes(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(length)));
            EXPECT_EQ(CauseOf([&] { stream->ReadObject(nullptr), stream->ReadObject(nullptr); }), archiveEndOfFile)
                << length;
            DeleteCreated(*stream);
        }
    }
}
} // namespace
