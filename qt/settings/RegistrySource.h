#pragma once

#include "qt/settings/SettingsSource.h"

#include "settings/CRegUtil.h"

namespace tev::browser
{
/// The registry. Its nodes are the roots and keys.
class RegistrySource : public SettingsSource
{
public:
    /// Takes a path apart as CRegUtil does. Without the name of a root it is below HKEY_CURRENT_USER.
    static Place ParsePlace(const QString& path);
    /// Opens a key, with the library's code as the result.
    static int OpenKey(CRegUtil& registry, const Place& place, bool create = false);

    bool TakesLong() const override;
    QString GetName() const override;
    QString GetPlaceText(const Place& place) const override;
    QString GetFile(const Place& place) const override;
    const std::vector<Kind>& GetKinds() const override;
    void Refresh() override { m_open.reset(); }
    QString GetFault() override { return {}; }
    std::unique_ptr<Lister> ListNodes(const Place& place) override;
    std::unique_ptr<Lister> ListValues(const Place& place) override;
    Reading Read(const Place& place, const std::wstring& id, unsigned __int64 largest) override;
    QString WhyReadOnly(const Place& place) override;
    bool CanHaveNodes(const Place& place) const override { return !place.empty(); }
    bool HasNode(const Place& place) override;
    bool IsNode(const Place& place) const override { return place.size() > 1; }
    std::optional<std::wstring> ParseValueId(const QString& text) const override;
    std::optional<std::wstring> ParseNodeId(const QString& text) const override;
    QString GetValueName(const std::wstring& id) const override;
    Result Apply(const ValueEdit& edit) override;
    Result Apply(const NodeEdit& edit) override;
    std::optional<Bytes> Snapshot(const Place& place, QString& reason) override;
    Bytes EmptySnapshot(const Place& place) const override;

protected:
    std::unique_ptr<SettingsSource> Clone() const override { return std::make_unique<RegistrySource>(); }

private:
    Place m_openPlace; ///< of m_open
    std::unique_ptr<CRegUtil> m_open;
};

/// The text of one of the registry's codes, as a person reads it.
QString RegistryErrorText(int systemError);
} // namespace tev::browser
