#pragma once

#include "base/TevTypes.h"

#include <cstddef>
#include <type_traits>

class CXArchive;
class CXObject;

/// Bits of a class record's schema word; the low 24 bits are the schema number, which is at most 65,535 unless one of these
/// bits is set.
constexpr unsigned xSchemaNotSerializable = 0x10000000u; ///< objects of the class may not go through an archive
constexpr unsigned xSchemaVersionable = 0x20000000u;     ///< objects of another schema number may be loaded

/// The run-time record of a class: one static object for each class, found by name in a process-wide registry.
/// Write it with X_DECLARE_CLASS in the class and one of the X_IMPLEMENT_ macros in its source.
/// Records are immutable. The registry is safe from several threads at once.
struct TEVTOOLS_API CXRuntimeClass
{
    const char* m_name;
    unsigned __int64 m_objectSize;
    unsigned m_schema;
    const CXRuntimeClass* m_base; ///< null for CXObject
    CXObject* (*m_create)();      ///< null when objects cannot be created by name

    /// A new object, which the caller deletes. Null when the class has no create function or its construction throws.
    /// Where it has one, the thread's pending exception is deleted, so Delete() an exception that you have caught
    /// first. XLastFailure() says why there is none.
    [[nodiscard]] CXObject* CreateObject() const;
    /// True for the record itself and for each that it is derived from.
    bool IsDerivedFrom(const CXRuntimeClass* base) const noexcept { return IsDerivedFrom(this, base); }
    /// As the member; false when `derived` is null.
    static bool IsDerivedFrom(const CXRuntimeClass* derived, const CXRuntimeClass* base) noexcept;
    bool IsSerializable() const noexcept { return (m_schema & xSchemaNotSerializable) == 0; }

    /// Writes the schema number and the name, the form of a class in an archive when it occurs first. A name of
    /// more than 65,535 bytes is archiveGeneric.
    void Save(CXArchive& archive) const;
    /// Reads what Save wrote and returns the class of that name, null when none is declared.
    static const CXRuntimeClass* Load(CXArchive& archive, unsigned int& schema);

    /// Enters a record, which must stay valid until it is taken out, under its name. It hides earlier ones of that
    /// name, which is reported (objects/ClassClashes.h); one that was declared before becomes the latest. False for null.
    static bool DeclareRuntimeClass(const CXRuntimeClass* record);
    /// As above, with the place in the source, for the report. `file` must stay valid as long as the record, or be null.
    static bool DeclareRuntimeClass(const CXRuntimeClass* record, const char* file, int line);
    /// Takes a record out; an earlier one of the same name comes back. False when it was not declared.
    static bool UndeclareRuntimeClass(const CXRuntimeClass* record);
    /// The record declared last under the name, or null. It is valid until its plug-in is closed.
    [[nodiscard]] static const CXRuntimeClass* FindRuntimeClass(const char* name);
};

/// Root of the classes that take part in run-time class information and serialization.
/// One thread at a time.
class TEVTOOLS_API CXObject
{
public:
    static const CXRuntimeClass classCreatorCXObject;
    static constexpr const CXRuntimeClass& xClassRecord = classCreatorCXObject;
    using XRecordClass = CXObject;
    static const CXRuntimeClass* GetThisRuntimeClassDescriptor() noexcept { return &xClassRecord; }

    virtual ~CXObject();
    virtual const CXRuntimeClass* GetRuntimeClassDescriptor() const;
    /// Reads or writes the object, as the archive's direction says. Does nothing in CXObject.
    virtual void Serialize(CXArchive& archive);

    /// True when the object's class is the given one or derived from it.
    bool IsKindOf(const CXRuntimeClass* type) const { return IsKindOf(this, type); }
    /// As the member; false when the object or the class is null.
    static bool IsKindOf(const CXObject* object, const CXRuntimeClass* type);

protected:
    CXObject() = default;
    CXObject(const CXObject&) = default;
    CXObject(CXObject&&) = default;
    CXObject& operator=(const CXObject&) = default;
    CXObject& operator=(CXObject&&) = default;
};

namespace tev
{
/// The initializer of a record is inside its class, where the class's own short name hides that of a base outside.
template <class Class, class Base>
constexpr const CXRuntimeClass* RecordOfBase() noexcept
{
    static_assert(!std::is_same_v<Class, Base>, "the base is called as the class: give its namespace too");
    return &Base::xClassRecord;
}
} // namespace tev

/// Keeps a record in the registry while it lives, so that the classes of a plug-in go when the plug-in is closed.
class XClassDeclaration
{
public:
    explicit XClassDeclaration(const CXRuntimeClass* record, const char* file = nullptr, int line = 0)
        : m_record(record)
    {
        CXRuntimeClass::DeclareRuntimeClass(record, file, line);
    }
    ~XClassDeclaration() { CXRuntimeClass::UndeclareRuntimeClass(m_record); }
    XClassDeclaration(const XClassDeclaration&) = delete;
    XClassDeclaration& operator=(const XClassDeclaration&) = delete;

private:
    const CXRuntimeClass* m_record;
};

/// Declares the record, in the public part of the class, whose name is given without its namespace. The record is
/// Class::classCreatorClass.
#define X_DECLARE_CLASS(Class)                                                                                         \
    static const CXRuntimeClass xClassRecord;                                                                          \
    static const XClassDeclaration xClassDeclaration;                                                                  \
    [[maybe_unused]] static constexpr const CXRuntimeClass& classCreator##Class = xClassRecord;                        \
    X_DECLARE_CLASS_QUERIES(Class)

// Of the library's own classes, whose records are exported under these names.
#define X_DECLARE_LIBRARY_CLASS(Class)                                                                                 \
    static const CXRuntimeClass classCreator##Class;                                                                   \
    [[maybe_unused]] static constexpr const CXRuntimeClass& xClassRecord = classCreator##Class;                        \
    X_DECLARE_CLASS_QUERIES(Class)

#define X_DECLARE_CLASS_QUERIES(Class)                                                                                 \
    using XRecordClass = Class;                                                                                        \
    static const CXRuntimeClass* GetThisRuntimeClassDescriptor() noexcept                                              \
    {                                                                                                                  \
        return &xClassRecord;                                                                                          \
    }                                                                                                                  \
    const CXRuntimeClass* GetRuntimeClassDescriptor() const override;

// Archives hold 16 bits of a schema number and compare 24: a larger one is only for what need not be equal to be read.
#define X_CHECK_SCHEMA(schema)                                                                                         \
    static_assert(((schema)&0xFFFFFFu) <= 0xFFFFu || ((schema) & (xSchemaNotSerializable | xSchemaVersionable)) != 0,  \
                  "a schema number above 65535 needs xSchemaVersionable: archives hold 16 bits of it")

// A record is used by static objects of other sources, so the compiler must fill it in and not the start-up code.
#define X_IMPLEMENT_CLASS_RECORD(Class, record, name, Base, schema, create)                                            \
    X_CHECK_SCHEMA(schema);                                                                                            \
    static_assert(std::is_same_v<Class::XRecordClass, Class> && std::is_same_v<Base::XRecordClass, Base>,              \
                  "the class and its base need X_DECLARE_CLASS");                                                      \
    static_assert(std::is_base_of_v<Base, Class>, "the class is not derived from the base of its record");             \
    X_CONSTINIT const CXRuntimeClass Class::record = {name, sizeof(Class), schema, tev::RecordOfBase<Class, Base>(),   \
                                                      create};                                                         \
    const CXRuntimeClass* Class::GetRuntimeClassDescriptor() const                                                     \
    {                                                                                                                  \
        return &xClassRecord;                                                                                          \
    }

#define X_IMPLEMENT_USER_CLASS(Class, name, Base, schema, create)                                                      \
    X_IMPLEMENT_CLASS_RECORD(Class, xClassRecord, name, Base, schema, create)                                          \
    const XClassDeclaration Class::xClassDeclaration(&Class::xClassRecord, __FILE__, __LINE__);

#define X_CREATE_FUNCTION(Class)                                                                                       \
    /* NOLINTNEXTLINE(bugprone-macro-parentheses): a type takes none */                                                \
    ([]() -> CXObject* { return new Class; })

// In a source file, once for each class. Class and Base may be written with their namespaces, Class then at global scope
// or in a namespace around its own. Archives and the registry know the class by its name as it is written here.

/// Defines the record of a class that has a default constructor and can be created by name.
#define X_IMPLEMENT_CLASS(Class, Base, schema)                                                                         \
    X_IMPLEMENT_USER_CLASS(Class, #Class, Base, schema, X_CREATE_FUNCTION(Class))

/// Defines the record of a class that is not created by name.
#define X_IMPLEMENT_ABSTRACT_CLASS(Class, Base, schema) X_IMPLEMENT_USER_CLASS(Class, #Class, Base, schema, nullptr)

/// As X_IMPLEMENT_CLASS and X_IMPLEMENT_ABSTRACT_CLASS, with the name by which archives and the registry know the class: a
/// narrow literal. Two classes of one short name, in two plug-ins for instance, take two names here.
#define X_IMPLEMENT_NAMED_CLASS(Class, Base, schema, name)                                                             \
    X_IMPLEMENT_USER_CLASS(Class, "" name, Base, schema, X_CREATE_FUNCTION(Class))
#define X_IMPLEMENT_NAMED_ABSTRACT_CLASS(Class, Base, schema, name)                                                    \
    X_IMPLEMENT_USER_CLASS(Class, "" name, Base, schema, nullptr)

#define X_IMPLEMENT_LIBRARY_CLASS(Class, Base, schema)                                                                 \
    X_IMPLEMENT_CLASS_RECORD(Class, classCreator##Class, #Class, Base, schema, X_CREATE_FUNCTION(Class))               \
    static const XClassDeclaration xDeclaration##Class(&Class::classCreator##Class);
#define X_IMPLEMENT_ABSTRACT_LIBRARY_CLASS(Class, Base, schema)                                                        \
    X_IMPLEMENT_CLASS_RECORD(Class, classCreator##Class, #Class, Base, schema, nullptr)                                \
    static const XClassDeclaration xDeclaration##Class(&Class::classCreator##Class);
