// Objects and classes in an archive.

#include "files/CXArchive.h"

#include "maps/CHashMap.h"
#include "objects/CXException.h"
#include "objects/ThreadException.h"
#include "platform/StackRoom.h"

#include <climits>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace tev
{
/// An object or class that an archive has loaded.
struct ArchiveReference
{
    enum class Kind : unsigned
    {
        kNone = 0,
        kClass = 1,
        kObject = 2
    };

    CXObject* Object() const noexcept { return const_cast<CXObject*>(static_cast<const CXObject*>(m_pointer)); }

    const void* m_pointer = nullptr;
    Kind m_kind = Kind::kNone;
    unsigned m_schema = kNoSchema; ///< of a class, as it stood in the archive
    bool m_isOwned = false;        ///< an object that a std::unique_ptr takes
};

/// The objects and classes that an archive has written or read, numbered together.
struct ArchiveReferences
{
    CHashMap<const void*, const void*, unsigned> m_stored;
    std::vector<ArchiveReference> m_loaded; ///< starts with the null reference; empty before the first class
};

void ReleaseArchiveReferences::operator()(ArchiveReferences* references) const noexcept
{
    delete references;
}
} // namespace tev

namespace
{
using tev::ArchiveReference;
using tev::ArchiveReferences;
using tev::kNoSchema;

constexpr unsigned kNull = 0;
constexpr unsigned kNewClass = 0xFFFF;
constexpr unsigned kClassBit16 = 0x8000;
constexpr unsigned kClassBit32 = 0x80000000;
constexpr unsigned kLargeIndex = 0x7FFF; // this index and those above it follow in 32 bits
constexpr unsigned kSchemaNumber = 0xFFFFFF;
constexpr std::size_t kLongestName = 0xFFFF;
constexpr std::size_t kFirstEntries = 128;

// Raises a counter for the length of a scope.
class NestingLevel
{
public:
    explicit NestingLevel(unsigned& level) : m_level(level) { ++m_level; }
    ~NestingLevel() { --m_level; }
    NestingLevel(const NestingLevel&) = delete;
    NestingLevel& operator=(const NestingLevel&) = delete;

private:
    unsigned& m_level;
};
} // namespace

void CXRuntimeClass::Save(CXArchive& archive) const
{
    const std::size_t length = std::strlen(m_name);
    if (length > kLongestName)
        archive.Fail(archiveGeneric);
    archive << static_cast<unsigned short>(m_schema) << static_cast<unsigned short>(length);
    archive.Write(m_name, length);
}

const CXRuntimeClass* CXRuntimeClass::Load(CXArchive& archive, unsigned int& schema)
{
    schema = archive.LoadValue<unsigned short>();
    std::string name(archive.LoadValue<unsigned short>(), '\0');
    archive.EnsureRead(name.data(), name.size());
    return FindRuntimeClass(name.c_str());
}

std::vector<CXObject*> CXArchive::GetCreatedObjects() const
{
    std::vector<CXObject*> objects;
    if (m_references == nullptr)
        return objects;
    for (const ArchiveReference& entry : m_references->m_loaded)
    {
        if (entry.m_kind == ArchiveReference::Kind::kObject && !entry.m_isOwned)
            objects.push_back(entry.Object());
    }
    return objects;
}

CXArchive& CXArchive::operator<<(const CXObject* object)
{
    WriteObject(object);
    return *this;
}

CXArchive& CXArchive::operator>>(CXObject*& object)
{
    object = ReadObject(nullptr);
    return *this;
}

CXArchive& CXArchive::operator>>(const CXObject*& object)
{
    object = ReadObject(nullptr);
    return *this;
}

void CXArchive::WriteObject(const CXObject* object)
{
    const tev::ExclusiveUse use(m_use);
    RequireStoring();
    if (object == nullptr)
    {
        *this << static_cast<unsigned short>(kNull);
        return;
    }
    if (const unsigned* index = GetReferences().m_stored.Find(object))
    {
        WriteReference(*index, 0);
        return;
    }
    const NestingLevel level(m_nesting);
    CheckNesting();
    WriteClass(object->GetRuntimeClassDescriptor());
    EnterStored(object);
    // Objects write themselves through the function that reads them, too.
    const_cast<CXObject*>(object)->Serialize(*this);
}

void CXArchive::WriteClass(const CXRuntimeClass* type)
{
    const tev::ExclusiveUse use(m_use);
    if (type == nullptr)
        Fail(archiveBadClass);
    if (IsLoading() || m_file == nullptr || !type->IsSerializable())
        Fail(archiveGeneric);
    if (const unsigned* index = GetReferences().m_stored.Find(type))
    {
        WriteReference(*index, kClassBit32);
        return;
    }
    *this << static_cast<unsigned short>(kNewClass);
    type->Save(*this);
    EnterStored(type);
}

// What is deeper could be written and not read again, or would run off the stack.
void CXArchive::CheckNesting() const
{
    if (m_nesting > m_nestingLimit || (m_nesting > 1 && !tev::platform::HasStackRoom()))
        Fail(archiveGeneric);
}

void CXArchive::WriteReference(unsigned int index, unsigned int classBit)
{
    if (index < kLargeIndex)
        *this << static_cast<unsigned short>(index | (classBit != 0 ? kClassBit16 : 0));
    else
        *this << static_cast<unsigned short>(kLargeIndex) << (index | classBit);
}

const CXRuntimeClass* CXArchive::ReadClass(const CXRuntimeClass* requested, unsigned int* schema,
                                           unsigned int* objectTag)
{
    const tev::ExclusiveUse use(m_use);
    if (IsStoring() || m_file == nullptr || (requested != nullptr && !requested->IsSerializable()))
        Fail(archiveGeneric);
    const unsigned word = LoadValue<unsigned short>();
    const unsigned tag =
        word == kLargeIndex ? LoadValue<unsigned int>() : (word & kClassBit16) << 16 | (word & ~kClassBit16);
    if ((tag & kClassBit32) == 0)
    {
        if (objectTag == nullptr)
            Fail(archiveBadIndex);
        *objectTag = tag;
        return nullptr;
    }
    m_objectSchema = kNoSchema;
    const CXRuntimeClass* const type = word == kNewClass ? ReadNewClass() : ReferredClass(tag & ~kClassBit32);
    if (requested != nullptr && !type->IsDerivedFrom(requested))
        Fail(archiveBadClass);
    if (schema != nullptr)
        *schema = m_objectSchema;
    if (objectTag != nullptr)
        *objectTag = tag;
    return type;
}

const CXRuntimeClass* CXArchive::ReadNewClass()
{
    const CXRuntimeClass* type = CXRuntimeClass::Load(*this, m_objectSchema);
    if (type == nullptr)
        Fail(archiveBadClass);
    if ((m_mode & xArchiveStrict) != 0 && !type->IsSerializable())
        Fail(archiveGeneric);
    if ((type->m_schema & kSchemaNumber) != m_objectSchema && (type->m_schema & xSchemaVersionable) == 0)
        Fail(archiveBadSchema);
    EnterLoaded({type, ArchiveReference::Kind::kClass, m_objectSchema});
    return type;
}

const CXRuntimeClass* CXArchive::ReferredClass(unsigned int index)
{
    const auto& loaded = GetReferences().m_loaded;
    if (index == kNull || index >= loaded.size() || loaded[index].m_kind != ArchiveReference::Kind::kClass)
        Fail(archiveBadIndex);
    m_objectSchema = loaded[index].m_schema;
    return static_cast<const CXRuntimeClass*>(loaded[index].m_pointer);
}

void CXArchive::SerializeClass(const CXRuntimeClass* type)
{
    if (IsStoring())
        WriteClass(type);
    else
        ReadClass(type, nullptr, nullptr);
}

CXObject* CXArchive::ReadObject(const CXRuntimeClass* requested)
{
    const tev::ExclusiveUse use(m_use);
    RequireLoading();
    unsigned schema = kNoSchema;
    unsigned tag = kNull;
    const CXRuntimeClass* type = ReadClass(requested, &schema, &tag);
    return type != nullptr ? ReadNewObject(type, schema, false) : ReferredObject(tag, requested);
}

CXObject* CXArchive::ReadOwnedObject(const CXRuntimeClass* requested)
{
    const tev::ExclusiveUse use(m_use);
    RequireLoading();
    unsigned schema = kNoSchema;
    unsigned tag = kNull;
    if (const CXRuntimeClass* type = ReadClass(requested, &schema, &tag))
        return ReadNewObject(type, schema, true);
    if (ReferredObject(tag, requested) != nullptr)
        Fail(archiveBadIndex);
    return nullptr;
}

CXObject* CXArchive::ReadNewObject(const CXRuntimeClass* type, unsigned int schema, bool isOwned)
{
    const NestingLevel level(m_nesting);
    CheckNesting();
    if (m_objectsLeft == 0)
        Fail(archiveGeneric);
    --m_objectsLeft;
    std::unique_ptr<CXObject> created(type->CreateObject());
    if (created == nullptr)
        CXMemoryException::Throw();
    EnterLoaded({created.get(), ArchiveReference::Kind::kObject, kNoSchema, isOwned});
    CXObject* const object = isOwned ? created.get() : created.release();
    const std::size_t index = m_references->m_loaded.size() - 1;
    m_objectSchema = schema;
    try
    {
        object->Serialize(*this);
    }
    catch (...)
    {
        if (isOwned)
            ForgetOwned(index);
        throw;
    }
    static_cast<void>(created.release());
    // The outer object's schema is not restored: after a nested object, readers have always seen the nested one.
    m_objectSchema = schema;
    XDeleteThreadException();
    return object;
}

// An object is deleted with those that it owns, which stand behind it. References to them are null from now on.
void CXArchive::ForgetOwned(std::size_t first) noexcept
{
    if (m_references == nullptr) // the object has closed the archive
        return;
    auto& loaded = m_references->m_loaded;
    for (std::size_t i = first; i < loaded.size(); ++i)
    {
        if (loaded[i].m_isOwned)
            loaded[i] = {};
    }
}

CXObject* CXArchive::ReferredObject(unsigned int tag, const CXRuntimeClass* requested) const
{
    // The null reference, too, is known only once the table has begun with a first class.
    if (m_references == nullptr || tag >= m_references->m_loaded.size())
        Fail(archiveBadIndex);
    const ArchiveReference& entry = m_references->m_loaded[tag];
    // A lenient reader rejects a reference to a class by the schema number that most classes have, and by nothing else.
    const bool isClass = entry.m_kind == ArchiveReference::Kind::kClass;
    if (entry.m_schema == 1 || (isClass && (m_mode & xArchiveStrict) != 0))
        Fail(archiveBadIndex);
    if (requested != nullptr && entry.m_pointer != nullptr && (isClass || !entry.Object()->IsKindOf(requested)))
        Fail(archiveBadClass);
    return entry.Object();
}

tev::ArchiveReferences& CXArchive::GetReferences()
{
    if (m_references == nullptr)
        m_references.reset(new ArchiveReferences);
    return *m_references;
}

void CXArchive::EnterStored(const void* objectOrClass)
{
    if (GetReferences().m_stored.Insert(objectOrClass, NextIndex()) == 0)
        CXMemoryException::Throw();
}

void CXArchive::EnterLoaded(const ArchiveReference& reference)
{
    auto& loaded = GetReferences().m_loaded;
    if (loaded.empty())
        loaded.reserve(kFirstEntries);
    // The index of an entry that found no memory was used up all the same.
    loaded.resize(NextIndex());
    loaded.push_back(reference);
}

// Returns the next index. The highest bit distinguishes classes from objects, so half of the numbers are indices.
unsigned int CXArchive::NextIndex()
{
    if (m_mapCount > static_cast<unsigned>(INT_MAX))
        CXInvalidArgException::Throw();
    return m_mapCount++;
}
