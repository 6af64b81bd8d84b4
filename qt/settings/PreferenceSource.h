#pragma once

#include "qt/settings/PreferenceReader.h"

namespace tev::browser
{
/// A preference file. Its nodes are the stores, each by its two keys, and below them the stores within. A large one is read in
/// the background: until it is read anew, what was read before is shown.
class PreferenceSource : public SettingsSource
{
public:
    /// A file that is larger than `largest` is read in the background.
    explicit PreferenceSource(const QString& path, __int64 largest = kLargeFile);

    bool TakesLong() const override { return m_reader != nullptr; }
    std::optional<int> GetReadProgress() const override;
    void CancelReading() override;
    void SetState(TransferState* state) override { m_content.SetState(state); }
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
    bool HasNode(const Place& place) override;
    bool IsNode(const Place& place) const override { return place.size() == 1; }
    std::optional<std::wstring> ParseValueId(const QString& text) const override;
    /// The two keys with a space or a comma between them.
    std::optional<std::wstring> ParseNodeId(const QString& text) const override;
    QString GetValueName(const std::wstring& id) const override;
    Result Apply(const ValueEdit& edit) override;
    Result Apply(const NodeEdit& edit) override;
    std::optional<Bytes> Snapshot(const Place& place, QString& reason) override;
    Bytes EmptySnapshot(const Place& place) const override;

protected:
    std::unique_ptr<SettingsSource> Clone() const override;

private:
    std::shared_ptr<const PreferenceListing> List();
    /// Null where it cannot be loaded.
    std::shared_ptr<const CCustomData> Load(const Place& place);
    template <class Change>
    Result Update(const std::wstring& id, Change change);
    bool MayRepair();

    const QString m_path;
    const __int64 m_largest;
    PreferenceContent m_content;
    std::unique_ptr<PreferenceReader> m_reader; ///< of a large file
};
} // namespace tev::browser
