#pragma once

#include "base/TevTypes.h"

#include <QString>

#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

// What the browser shows and changes, without a window: a preference file or the registry.

namespace tev::browser
{
class TransferState;

using Bytes = std::vector<unsigned char>;

/// What leads to a node: the registry's root and names of keys; of a preference file the store, and in it the identifiers of
/// the stores within.
using Place = std::vector<std::wstring>;

/// The data of a value as it is kept, and its kind.
struct Value
{
    unsigned m_kind = 0;
    Bytes m_data;

    bool operator==(const Value& other) const { return m_kind == other.m_kind && m_data == other.m_data; }
};

/// How the data of a kind is to be understood.
enum class Form
{
    kBytes, ///< also what does not have the form of its kind
    kSigned,
    kUnsigned,
    kBool,
    kFloat,
    kText,      ///< UTF-16 with a terminator
    kAnsiText,  ///< in the code page of the process
    kTextList,  ///< a number of texts with their lengths
    kMultiText, ///< texts with a terminator each, and one behind the last
    kTime,      ///< seconds since 1970
    kUtcTime,
    kStore
};

struct Kind
{
    unsigned m_code;
    const char* m_name; ///< as the tool `tev` names it
    Form m_form;
    unsigned m_size; ///< of the data of numbers, else 0
    bool m_canBeMade = true;
};

/// A row of a list: a node or a value.
struct Item
{
    std::wstring m_id; ///< in its node
    QString m_text;
    QString m_fault;        ///< why it is damaged, or cannot be used
    bool m_hasMore = false; ///< of a node: others are below it
};

/// A list that is read piece by piece. One whose node was deleted meanwhile ends.
class Lister
{
public:
    virtual ~Lister();
    virtual bool Next(Item& item) = 0;
    /// False while what it lists is still being read. Next is for lists that are ready.
    virtual bool IsReady() const { return true; }
    /// Whether reading was given up, so that nothing is known of what is there.
    virtual bool IsGivenUp() const { return false; }
    /// Why the list ended before its end.
    const QString& Fault() const { return m_fault; }

protected:
    QString m_fault;
};

/// What a value is, as far as it can be read.
struct Reading
{
    std::optional<Value> m_value;
    bool m_isThere = false;
    unsigned __int64 m_size = 0;
    QString m_fault; ///< of one that is there, and cannot be read
};

/// A change of a value: an absent one is made, a present one is deleted.
struct ValueChange
{
    std::wstring m_id;
    std::optional<Value> m_before;
    std::optional<Value> m_after;
    bool m_wasUnreadable = false; ///< what was there cannot be compared
};

/// Changes of values of one node, made together or not at all.
struct ValueEdit
{
    Place m_place;
    std::vector<ValueChange> m_changes;
};

/// A node with all below it: made, replaced or deleted.
struct NodeEdit
{
    Place m_place;
    std::optional<Bytes> m_before; ///< as Snapshot returns it
    std::optional<Bytes> m_after;
    bool m_isForced = false; ///< what is there cannot be compared
};

enum class Outcome
{
    kDone,
    kChanged, ///< what is there is not what the edit has seen
    kDamaged, ///< the file has damaged parts, which saving would drop
    kCancelled,
    kFailed
};

struct Result
{
    Outcome m_outcome = Outcome::kDone;
    QString m_reason;
};

/// Where settings come from. Everything is read and changed by the library, so that other programs may work on the same
/// settings meanwhile. One thread at a time.
class SettingsSource
{
public:
    /// Of files from which on reading takes long.
    static constexpr __int64 kLargeFile = 4 << 20;

    virtual ~SettingsSource();

    /// The same settings for another thread, which waits for what it reads. A permission to repair goes to it.
    std::unique_ptr<SettingsSource> ForThread();
    /// Whether edits and snapshots take so long that another thread makes them. What lists, and values of lists that were
    /// read, have to wait for is then read in the background.
    virtual bool TakesLong() const = 0;
    /// How far reading in the background has come, in per cent; a negative number where that is not known, nothing while
    /// nothing is read.
    virtual std::optional<int> GetReadProgress() const { return {}; }
    virtual void CancelReading() {}
    /// Of one for a thread: asked whether edits and snapshots are to go on, which fail then. Null for nobody.
    virtual void SetState(TransferState*) {}

    virtual QString GetName() const = 0;
    /// The place as a person writes it.
    virtual QString GetPlaceText(const Place& place) const = 0;
    /// The file that holds it.
    virtual QString GetFile(const Place& place) const = 0;
    virtual const std::vector<Kind>& GetKinds() const = 0;

    /// Forgets what was read.
    virtual void Refresh() = 0;
    /// What is wrong as a whole; empty for nothing.
    virtual QString GetFault() = 0;

    virtual std::unique_ptr<Lister> ListNodes(const Place& place) = 0;
    virtual std::unique_ptr<Lister> ListValues(const Place& place) = 0;
    /// Of a value that is larger only its size is read.
    virtual Reading Read(const Place& place, const std::wstring& id, unsigned __int64 largest) = 0;

    /// Why values of this node cannot be changed; empty where they can.
    virtual QString WhyReadOnly(const Place& place) = 0;
    /// Whether nodes can be made below it.
    virtual bool CanHaveNodes(const Place& place) const = 0;
    /// Whether a node is there, as far as it was read.
    virtual bool HasNode(const Place& place) = 0;
    /// Whether it can be deleted as a node.
    virtual bool IsNode(const Place& place) const = 0;
    /// The identifier that a person means; empty where it is none.
    virtual std::optional<std::wstring> ParseValueId(const QString& text) const = 0;
    virtual std::optional<std::wstring> ParseNodeId(const QString& text) const = 0;
    /// An identifier as the person writes it.
    virtual QString GetValueName(const std::wstring& id) const = 0;

    virtual Result Apply(const ValueEdit& edit) = 0;
    virtual Result Apply(const NodeEdit& edit) = 0;
    /// Lets the next edit drop what is damaged.
    void PermitRepair() { m_isRepairPermitted = true; }
    /// A node with all below it; none, with the reason, where it is not there or cannot be read as a whole.
    virtual std::optional<Bytes> Snapshot(const Place& place, QString& reason) = 0;
    /// The snapshot of a new node without values.
    virtual Bytes EmptySnapshot(const Place& place) const = 0;

protected:
    virtual std::unique_ptr<SettingsSource> Clone() const = 0;
    bool TakeRepairPermission() { return std::exchange(m_isRepairPermitted, false); }

private:
    bool m_isRepairPermitted = false;
};

/// A list that is read already.
class ItemList : public Lister
{
public:
    explicit ItemList(std::vector<Item> items, QString fault = {});
    bool Next(Item& item) override;

private:
    std::vector<Item> m_items;
    std::size_t m_next = 0;
};

/// Four letters, or the number where it is none.
QString CodeText(unsigned code);
/// A number of 32 bits, also in hexadecimal, or four letters.
std::optional<unsigned> ParseCode(const QString& text);
} // namespace tev::browser
