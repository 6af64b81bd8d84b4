#pragma once

#include "qt/settings/SettingsSource.h"

#include "settings/CCustomData.h"
#include "settings/PreferenceFile.h"

#include <map>

namespace tev::browser
{
/// A preference file. Its nodes are the stores, each by its two keys, and below them the stores within.
class PreferenceSource : public SettingsSource
{
public:
    explicit PreferenceSource(const QString& path);

    QString GetName() const override { return m_path; }
    QString GetPlaceText(const Place& place) const override;
    QString GetFile(const Place&) const override { return m_path; }
    const std::vector<Kind>& GetKinds() const override;
    void Refresh() override;
    QString GetFault() override;
    std::unique_ptr<Lister> ListNodes(const Place& place) override;
    std::unique_ptr<Lister> ListValues(const Place& place) override;
    Reading Read(const Place& place, const std::wstring& id, unsigned __int64 largest) override;
    QString WhyReadOnly(const Place& place) override;
    bool CanHaveNodes(const Place& place) const override { return place.empty(); }
    bool IsNode(const Place& place) const override { return place.size() == 1; }
    std::optional<std::wstring> ParseValueId(const QString& text) const override;
    /// The two keys with a space or a comma between them.
    std::optional<std::wstring> ParseNodeId(const QString& text) const override;
    QString GetValueName(const std::wstring& id) const override;
    Result Apply(const ValueEdit& edit) override;
    Result Apply(const NodeEdit& edit) override;
    std::optional<Bytes> Snapshot(const Place& place, QString& reason) override;
    Bytes EmptySnapshot(const Place& place) const override;

private:
    class StoreLister;
    struct Record
    {
        std::wstring m_id;
        XPreferenceRecord m_record;
        bool m_isHidden = false; ///< an earlier one has the same keys
    };

    void List();
    const Record* FindRecord(const std::wstring& id);
    /// Null where it cannot be loaded.
    const CCustomData* Load(const Place& place);
    bool LoadRecord(const Record& record, CCustomData& store) const;
    Bytes ReadBytes(unsigned __int64 offset, unsigned __int64 size) const;
    template <class Change>
    Result Update(const std::wstring& id, Change change);
    bool MayRepair();

    QString m_path;
    bool m_isListed = false;
    bool m_isSound = true;
    QString m_fault;
    std::vector<Record> m_records;
    std::map<std::wstring, std::size_t> m_places; ///< of the records
    std::map<std::wstring, std::unique_ptr<CCustomData>> m_stores;
    Place m_openPlace; ///< of m_open
    std::unique_ptr<CCustomData> m_open;
};
} // namespace tev::browser
