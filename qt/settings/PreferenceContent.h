#pragma once

#include "qt/settings/SettingsSource.h"

#include "settings/CCustomData.h"
#include "settings/PreferenceFile.h"

#include <map>

namespace tev::browser
{
class TransferState;

constexpr wchar_t kDamageMark = L'@'; // the identifier of a damaged record is its offset

std::wstring IdOf(unsigned number);
unsigned NumberOf(const std::wstring& id, std::size_t at = 0);
QString PreferencePlaceText(const Place& place);

/// The records of a preference file.
struct PreferenceListing
{
    struct Record
    {
        std::wstring m_id;
        XPreferenceRecord m_record;
        bool m_isHidden = false; ///< an earlier one has the same keys
    };

    /// Null where it is not there.
    const Record* Find(const std::wstring& id) const;

    bool m_isSound = true;
    QString m_fault;
    std::vector<Record> m_records;
    std::map<std::wstring, std::size_t> m_places; ///< of the records
};

/// What is read of a preference file, in so far as it is asked for. One thread at a time; what it returns may be used on others.
class PreferenceContent
{
public:
    explicit PreferenceContent(const QString& path) : m_path(path) {}

    /// What is to be told how far reading has come, and asked whether it is to go on; null for nobody.
    void SetState(TransferState* state) { m_state = state; }
    void Forget();
    std::shared_ptr<const PreferenceListing> List();
    /// A store, or one within it. Null where it cannot be loaded.
    std::shared_ptr<const CCustomData> Load(const Place& place);
    std::unique_ptr<Lister> ListNodes(const Place& place);
    std::unique_ptr<Lister> ListValues(const Place& place);
    Bytes ReadBytes(unsigned __int64 offset, unsigned __int64 size) const;

private:
    class StoreLister;

    bool LoadRecord(const PreferenceListing::Record& record, CCustomData& store) const;

    QString m_path;
    TransferState* m_state = nullptr;
    std::shared_ptr<const PreferenceListing> m_listing;
    std::map<std::wstring, std::shared_ptr<const CCustomData>> m_stores;
    Place m_openPlace; ///< of m_open
    std::shared_ptr<const CCustomData> m_open;
};
} // namespace tev::browser
