#pragma once

#include "arrays/CXArray.h"
#include "base/ThreadSafety.h"
#include "maps/CHashMap.h"
#include "objects/CXCriticalSection.h"
#include "objects/CXObject.h"
#include "text/CXTString.h"

#include <cstddef>
#include <ctime>
#include <memory>
#include <vector>

class CCustomData;
class CXDataListener;
class CXTime;
template <class T>
class CDataKey;

namespace tev
{
struct StoreListeners;
} // namespace tev

/// A class that keeps its settings in a store: see CCustomData::SetCustomClass.
class TEVTOOLS_API CCustomDataClass
{
public:
    virtual ~CCustomDataClass();
    virtual void SaveTo(CCustomData& data) const = 0;
    /// False when the store does not hold what the class needs.
    virtual bool LoadFrom(const CCustomData& data) = 0;

protected:
    CCustomDataClass() = default;
    CCustomDataClass(const CCustomDataClass&) = default;
    CCustomDataClass& operator=(const CCustomDataClass&) = default;
};

/// A set of typed values, each under an identifier of 32 bits, in one block of memory that is copied, compared, stored
/// and sent as a whole; docs/store.md shows its use and docs/formats.md the bytes. Each value has a kind, and is only
/// returned as the kind that it was set as.
///
/// Setting a value returns false, and changes nothing, when there is no memory or the store would grow past 4 GiB. A
/// value of the same size takes the place of the old one; one of another size is appended at the end, and the gap that the
/// old one leaves is closed later, together with others, or when pointers into the store are asked for. XLastFailure() says why setting, loading or saving failed; getters leave it alone.
///
/// Safe from several threads at once: every member holds the store's lock while it runs, and one that works on two
/// stores holds both. CXDataListener reports changes. Pointers into the store are invalidated by the next change; a caller that shares the store with
/// other threads holds the lock as long as it uses them.
class TEVTOOLS_API CCustomData : public CXObject
{
public:
    X_DECLARE_LIBRARY_CLASS(CCustomData)

    /// What a value is, spelled by the four bytes from the highest to the lowest.
    enum Kind : unsigned int
    {
        kAnyKind = 0x20202020,    ///< also the kind of values from the older file layouts
        kInt = 0x20494E54,        ///< " INT"
        kUInt = 0x55494E54,       ///< "UINT"
        kLong = 0x4C4F4E47,       ///< "LONG"
        kULong = 0x554C4F4E,      ///< "ULON"
        kLongInt = 0x4C4C4F4E,    ///< "LLON"
        kULongInt = 0x554C4C4F,   ///< "ULLO", sizes too
        kChar = 0x43484152,       ///< "CHAR"
        kUChar = 0x55434852,      ///< "UCHR"
        kBool = 0x424F4F4C,       ///< "BOOL"
        kFloat = 0x464C4F41,      ///< "FLOA"
        kDouble = 0x444F5542,     ///< "DOUB"
        kPtr = 0x50545236,        ///< "PTR6"
        kStringW = 0x554E4943,    ///< "UNIC"
        kStringA = 0x414E5349,    ///< "ANSI"
        kStringList = 0x55535452, ///< "USTR"
        kXTime = 0x54494D58,      ///< "TIMX"
        kUTCTime = 0x54494D45,    ///< "TIME"
        kBinary = 0x2042494E,     ///< " BIN"
        kArray = 0x41525241,      ///< "ARRA"
        kCustomData = 0x43444132  ///< "CDA2"
    };

    CCustomData();
    /// Copies carry the time stamp of their source. They throw CXMemoryException and leave the target as it was.
    CCustomData(const CCustomData& other);
    CCustomData& operator=(const CCustomData& other);
    ~CCustomData() override;

    // Values. Getters return whether there is such a value; `out` receives it, or else the default.

    bool SetInt(unsigned int id, int value);
    bool SetUInt(unsigned int id, unsigned int value);
    /// A value that does not fit into 32 bits is an invalid argument.
    bool SetLong(unsigned int id, long value);
    bool SetULong(unsigned int id, unsigned long value);
    bool SetLongInt(unsigned int id, __int64 value);
    bool SetULongInt(unsigned int id, unsigned __int64 value);
    bool SetSizet(unsigned int id, std::size_t value);
    bool SetChar(unsigned int id, char value);
    bool SetUChar(unsigned int id, unsigned char value);
    bool SetBool(unsigned int id, int value);
    bool SetFloat(unsigned int id, float value);
    bool SetDouble(unsigned int id, double value);
    bool SetPtr(unsigned int id, const void* value);
    bool SetXTime(unsigned int id, const CXTime& value);
    bool SetUTCTime(unsigned int id, const struct tm& value);

    bool GetInt(unsigned int id, int& out, int defaultValue) const;
    bool GetUInt(unsigned int id, unsigned int& out, unsigned int defaultValue) const;
    bool GetLong(unsigned int id, long& out, long defaultValue) const;
    bool GetULong(unsigned int id, unsigned long& out, unsigned long defaultValue) const;
    bool GetLongInt(unsigned int id, __int64& out, __int64 defaultValue) const;
    bool GetULongInt(unsigned int id, unsigned __int64& out, unsigned __int64 defaultValue) const;
    bool GetSizet(unsigned int id, std::size_t& out, std::size_t defaultValue) const;
    bool GetChar(unsigned int id, char& out, char defaultValue) const;
    bool GetUChar(unsigned int id, unsigned char& out, unsigned char defaultValue) const;
    /// 0 or 1.
    bool GetBool(unsigned int id, int& out, int defaultValue) const;
    bool GetBool(unsigned int id, bool& out, bool defaultValue) const;
    bool GetFloat(unsigned int id, float& out, float defaultValue) const;
    bool GetDouble(unsigned int id, double& out, double defaultValue) const;
    /// Null when there is none.
    bool GetPtr(unsigned int id, void*& out) const;
    void* GetPtr(unsigned int id) const;
    bool GetXTime(unsigned int id, CXTime& out, const CXTime& defaultValue) const;
    bool GetUTCTime(unsigned int id, struct tm& out, const struct tm& defaultValue) const;

    // Text, stored up to its first NUL. Wide and narrow text are two kinds.

    bool SetString(unsigned int id, const CXTString<wchar_t>& value) { return SetStringW(id, value); }
    bool SetStringW(unsigned int id, const CXTString<wchar_t>& value);
    bool SetStringA(unsigned int id, const CXTString<char>& value);
    bool GetString(unsigned int id, CXTString<wchar_t>& out, const CXTString<wchar_t>& defaultValue) const
    {
        return GetStringW(id, out, defaultValue);
    }
    bool GetStringW(unsigned int id, CXTString<wchar_t>& out, const CXTString<wchar_t>& defaultValue) const;
    bool GetStringA(unsigned int id, CXTString<char>& out, const CXTString<char>& defaultValue) const;

    bool SetStringArray(unsigned int id, const CXArray<CXTString<wchar_t>>& strings);
    /// Returns the number of strings; 0, with the array empty, when there are none.
    unsigned int GetStringArray(unsigned int id, CXArray<CXTString<wchar_t>>& strings) const;
    bool SetStringList(unsigned int id, const std::vector<CXTString<wchar_t>>& strings);
    unsigned int GetStringList(unsigned int id, std::vector<CXTString<wchar_t>>& strings) const;

    // Values under typed keys, which settings/CDataKey.h defines.

    /// The value, or the key's default where there is none of its kind.
    template <class T>
    T Get(const CDataKey<T>& key) const;
    /// A value of another kind, or one that might be changed by its conversion, does not compile.
    template <class T, class VALUE>
    bool Set(const CDataKey<T>& key, const VALUE& value);
    /// Whether there is a value of the key's kind.
    template <class T>
    [[nodiscard]] bool Has(const CDataKey<T>& key) const;
    template <class T>
    bool Remove(const CDataKey<T>& key);

    // Blocks. The source of a value may lie in the store itself; null leaves a new value zero and an old one as it is.

    /// A size of 0 removes the value.
    bool SetBinary(unsigned int id, const void* data, unsigned int size);
    /// Fails unless the value has exactly this size.
    bool GetBinary(unsigned int id, void* out, unsigned int size) const;
    /// A count of 0 removes the value.
    bool SetArray(unsigned int id, const void* data, unsigned int elementSize, unsigned int count);
    /// The elements within the store, at any alignment; null, and a count of 0, when there is no array.
    void* GetArray(unsigned int id, unsigned int& count);
    const void* GetArray(unsigned int id, unsigned int& count) const;
    /// The bytes of a value of any kind within the store; null, and a size of 0, when it is not there.
    void* GetCustomPtr(unsigned int id, unsigned int& size);
    const void* GetCustomPtr(unsigned int id, unsigned int& size) const;

    // Stores within the store. One that is empty is not kept: the identifier has no value then.

    bool SetCustomData(unsigned int id, const CCustomData& data);
    /// Leaves `out` as it was when there is no such nested store, or it is damaged.
    bool GetCustomData(unsigned int id, CCustomData& out) const;
    /// Adds the values of a store to the one within this store, or puts it in. Where both have a value, mode 0 takes
    /// the new one and mode 1 keeps the present one.
    bool AddToCustomData(unsigned int id, const CCustomData& data, int mode);
    /// Keeps what the object saves; its functions are called without the lock.
    bool SetCustomClass(unsigned int id, const CCustomDataClass& object);
    bool GetCustomClass(unsigned int id, CCustomDataClass& object) const;

    // Inspection

    [[nodiscard]] bool HasData() const;
    [[nodiscard]] bool HasData(unsigned int id) const;
    /// The kind, 0 when there is no value.
    unsigned int GetDataKindOf(unsigned int id) const;
    /// The size in bytes, 0 when there is no value.
    unsigned int GetDataSize(unsigned int id) const;
    unsigned int GetIDCount() const;
    /// The identifier and kind of a value by its place in the store; 0xFFFFFFFF and 0 past the end. Takes constant time
    /// where places are asked for in ascending order.
    unsigned int GetIDByIndex(unsigned int index, unsigned int& kind) const;
    /// The block checksum of a value's bytes, 0x811C9DC5 when there is no value.
    unsigned int GetChecksum(unsigned int id) const;
    /// The system's milliseconds when the store was made, loaded, or last given a value of a new size.
    unsigned __int64 GetTimeStamp() const;
    /// The lock that every member holds, to hold it over several calls. A thread that holds the locks of two stores
    /// takes them in the order of the stores' addresses.
    CXCriticalSection* GetThreadLock() const noexcept { return &m_lock; }
    /// Whether both have the same values, identifiers and kinds, in whatever order.
    [[nodiscard]] bool IsEqual(const CCustomData& other) const;
    /// One line for each value, which starts with `indent` blanks; with `nested` the values of stores within too.
    CXTString<wchar_t> DumpCustomData(bool nested, int indent) const;

    // Editing

    /// False when there was no such value.
    bool RemoveCustom(unsigned int id);
    void RemoveAll();
    /// Gives a value another identifier; its place stays. False when there is no such value or the new one is in use.
    bool ChangeID(unsigned int oldId, unsigned int newId);
    /// Copies one value from another store or this one. False when it is not there; null has no values.
    bool CopyID(const CCustomData* source, unsigned int id) { return CopyID(source, id, id); }
    bool CopyID(const CCustomData* source, unsigned int id, unsigned int newId);
    bool Copy(const CCustomData* source, unsigned int id) { return CopyID(source, id, id); }
    /// A copy that the caller deletes.
    [[nodiscard]] CCustomData* Copy() const;
    /// Gives memory back that is allocated and not used.
    void FreeExtra();

    // The block as a whole: a list of chunks.

    /// The block within the store and its size; null and 0 in an empty store.
    void* GetData(unsigned int& size);
    const void* GetData(unsigned int& size) const;
    /// Replaces all values by those of a copied block. False, with the store as it was, when the block is malformed.
    [[nodiscard]] bool SetData(const void* data, unsigned int size);
    /// Empties the store and returns its block, which the caller releases with Free.
    [[nodiscard]] void* Detach(unsigned int& size);
    /// Replaces all values by those of a block from Alloc, which the store takes over in any case. False, with the
    /// store empty, when the block is malformed.
    [[nodiscard]] bool Attach(void* buffer, unsigned int size);
    [[nodiscard]] static void* Alloc(unsigned int size);
    static void Free(void* buffer);

    // Persistence

    /// Loading throws CXFileException for what is no store, cut off or malformed, and what the archive throws; the
    /// store is empty then. The older layouts are read too: their values have no kind, so that getters check their size
    /// alone.
    void Serialize(CXArchive& archive) override;
    /// A new block with the bytes that Serialize writes, which the caller releases with Free; null without memory.
    [[nodiscard]] void* SerializeToData(unsigned __int64& size) const;
    /// False, with the store empty, when the block does not begin with what Serialize writes.
    [[nodiscard]] bool SerializeFromData(const void* data, unsigned __int64 size);
    [[nodiscard]] static bool SerializeFromData(CCustomData& target, const void* data, unsigned __int64 size)
    {
        return target.SerializeFromData(data, size);
    }

    // A preference file holds many stores, each under two keys, and at most 1 GiB; see settings/PreferenceFile.h, also for
    // changing a store that other programs change too.

    /// Puts the store into the file under its keys, in the place of the one there, and keeps all others. A missing file is
    /// created. Several programs may save into one file, and read it, at the same time. False, with the file as it was, when
    /// the path has no file name, the folder must not be written and read, the file would become too large or the disk
    /// fails; only where the very last step fails, the flush of the folder, the file is new though the result is false. A
    /// damaged file is kept next to the new one, with ".damaged" appended; every store in it that can still be read is
    /// carried over. A file of the same name with ".tmp" appended is replaced meanwhile.
    /// Takes the lock of the store first and that of the folder second; waits for that at most 10 seconds, 1 when to end.
    [[nodiscard]] bool SaveToPrefs(const CXTString<wchar_t>& path, unsigned int key1, unsigned int key2) const;
    /// False, with this store as it was, when the file or a store of these keys is not there or cannot be read. With
    /// `throwWhenDamaged` a file that is there and cannot be read, in whole, throws CXFileException instead, unless the
    /// store is found.
    bool LoadFromPrefs(CXTString<wchar_t> path, unsigned int key1, unsigned int key2, bool throwWhenDamaged);

private:
    friend class CXDataListener;
    class ValueChange;
    class WholeChange;
    using OffsetMap = CHashMap<unsigned int, unsigned int, unsigned int>;
    struct BlockDeleter
    {
        void operator()(unsigned char* block) const noexcept { Free(block); }
    };
    using Block = std::unique_ptr<unsigned char, BlockDeleter>;
    enum class Outcome
    {
        kDone,
        kMalformed,
        kNoMemory
    };
    struct CustomPrivateDataOld;

    // The chunks: see CCustomDataChunks.cpp.
    const unsigned char* FindChunk(unsigned int id) const X_REQUIRES(m_lock);
    const unsigned char* FindValue(unsigned int id, unsigned int size, unsigned int kind) const X_REQUIRES(m_lock);
    const unsigned char* FindOfKind(unsigned int id, unsigned int kind, unsigned int& size) const X_REQUIRES(m_lock);
    unsigned char* Place(unsigned int id, unsigned int size, unsigned int kind) X_REQUIRES(m_lock);
    unsigned char* PlaceQuietly(unsigned int id, unsigned int size, unsigned int kind) X_REQUIRES(m_lock);
    static bool NoteNotSet(unsigned int kind) noexcept;
    unsigned char* PlaceCopy(unsigned int id, unsigned int room, const void* data, unsigned int size, unsigned int kind)
        X_REQUIRES(m_lock);
    bool SetChunk(unsigned int id, const void* data, unsigned int size, unsigned int kind) X_REQUIRES(m_lock);
    bool MakeRoom(unsigned __int64 needed, unsigned __int64 end) X_REQUIRES(m_lock);
    bool Reserve(unsigned __int64 needed) X_REQUIRES(m_lock);
    bool Reallocate(unsigned int size) X_REQUIRES(m_lock);
    bool EnterOffset(unsigned int id, unsigned int offset) X_REQUIRES(m_lock);
    bool RemoveChunk(unsigned int id) X_REQUIRES(m_lock);
    void Retire(unsigned int offset) X_REQUIRES(m_lock);
    void CloseGaps() const noexcept X_REQUIRES(m_lock);
    void ShrinkAfterRemoval() X_REQUIRES(m_lock);
    void Clear() noexcept X_REQUIRES(m_lock);
    static Outcome MapChunks(const unsigned char* block, unsigned int size, std::unique_ptr<OffsetMap>& offsets);
    static bool IsTaken(const char* operation, Outcome outcome) noexcept;
    Outcome TakeBlock(Block block, unsigned int size, unsigned int legacyMode) X_REQUIRES(m_lock);
    void TakeFrom(CCustomData& other);
    void CopyFrom(const CCustomData& other) X_REQUIRES(m_lock) X_REQUIRES(other.m_lock);
    void Touch() noexcept X_REQUIRES(m_lock);
    std::shared_ptr<tev::StoreListeners> GetListeners() const;

    template <class T>
    bool SetScalar(unsigned int id, T value, unsigned int kind);
    template <class T>
    bool GetScalar(unsigned int id, unsigned int kind, T& out, T defaultValue) const;

    template <class Strings>
    bool SetStrings(unsigned int id, const Strings& strings, std::size_t count);
    template <class Append>
    unsigned int ReadStrings(unsigned int id, Append append) const;

    void Load(CXArchive& archive) X_REQUIRES(m_lock);
    void LoadCurrent(CXArchive& archive) X_REQUIRES(m_lock);
    void ReadPreviousVersion(CXArchive& archive, unsigned int legacyMode) X_REQUIRES(m_lock);
    static CustomPrivateDataOld ReadPreviousRecord(CXArchive& archive, unsigned __int64 room);
    void ConvertPreviousData(const CustomPrivateDataOld& record) X_REQUIRES(m_lock);
    void ComposeHeader(unsigned char* header) const X_REQUIRES(m_lock);

    std::unique_ptr<OffsetMap> m_offsets X_GUARDED_BY(m_lock); ///< where each chunk begins; null until the first one
    unsigned int m_legacyMode X_GUARDED_BY(m_lock) = 0;        ///< 1 and 2: from an older layout, kinds are not checked
    mutable tev::ObjectLock m_lock;
    unsigned char* m_buffer X_GUARDED_BY(m_lock) = nullptr;
    unsigned int m_used X_GUARDED_BY(m_lock) = 0;
    unsigned int m_allocated X_GUARDED_BY(m_lock) = 0;
    unsigned __int64 m_timeStamp X_GUARDED_BY(m_lock) = 0;
    mutable unsigned int m_end X_GUARDED_BY(m_lock) = 0; ///< of the chunks with the gaps between them; m_used without
    unsigned int m_firstGap X_GUARDED_BY(m_lock) = 0;    ///< where there are gaps, none lies before it
    mutable unsigned int m_lastIndex X_GUARDED_BY(m_lock) = 0; ///< the last index of GetIDByIndex and its offset
    mutable unsigned int m_lastOffset X_GUARDED_BY(m_lock) = 0;
    mutable std::shared_ptr<tev::StoreListeners> m_listeners X_GUARDED_BY(m_lock); ///< null until the first one listens
};
