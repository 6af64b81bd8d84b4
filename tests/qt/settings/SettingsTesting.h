#pragma once

#include "qt/settings/PreferenceSource.h"
#include "qt/settings/RegistrySource.h"
#include "qt/toolkit/QtText.h"
#include "settings/CCustomData.h"
#include "settings/CRegUtil.h"

#include <QFile>
#include <QTemporaryDir>
#include <gmock/gmock.h>

namespace tev::browser::test
{
/// A folder with a preference file, which other programs change, too.
struct PreferenceFolder
{
    QTemporaryDir m_folder;
    QString m_file = m_folder.filePath(QStringLiteral("view.prefs"));

    template <class Change>
    bool Save(unsigned key1, unsigned key2, Change change) const
    {
        CCustomData store;
        store.LoadFromPrefs(XFromQString(m_file), key1, key2, false);
        change(store);
        return store.SaveToPrefs(XFromQString(m_file), key1, key2);
    }
    CCustomData Load(unsigned key1, unsigned key2) const
    {
        CCustomData store;
        store.LoadFromPrefs(XFromQString(m_file), key1, key2, false);
        return store;
    }
    QByteArray Bytes() const { return BytesOf(m_file); }
    static QByteArray BytesOf(const QString& path)
    {
        QFile file(path);
        return file.open(QIODevice::ReadOnly) ? file.readAll() : QByteArray();
    }
    void Write(const QByteArray& bytes) const
    {
        QFile file(m_file);
        ASSERT_TRUE(file.open(QIODevice::WriteOnly) && file.write(bytes) == bytes.size());
    }
};

/// Registry keys of the test's own, which are deleted with it.
class RegistryKey
{
public:
    explicit RegistryKey(const wchar_t* path) : m_path(path) { CRegUtil(CRegUtil::kReadWrite).SetPath(m_path, true); }
    ~RegistryKey() { CRegUtil(CRegUtil::kReadWrite).DeleteKey(m_path, true); }
    RegistryKey(const RegistryKey&) = delete;
    RegistryKey& operator=(const RegistryKey&) = delete;

    /// Of a program of its own.
    CRegUtil Open() const
    {
        CRegUtil registry(CRegUtil::kReadWrite);
        registry.SetPath(m_path, false);
        return registry;
    }
    Place GetPlace() const { return RegistrySource::ParsePlace(QString::fromWCharArray(m_path)); }

private:
    const wchar_t* m_path;
};

inline QStringList TextsOf(Lister& list)
{
    QStringList texts;
    Item item;
    while (list.Next(item))
        texts << item.m_text + (item.m_hasMore ? QStringLiteral("+") : QString()) +
                     (item.m_fault.isEmpty() ? QString() : QStringLiteral("!"));
    return texts;
}

inline Value TextValue(unsigned kind, const QString& text)
{
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.utf16());
    return {kind, Bytes(bytes, bytes + (text.size() + 1) * 2)};
}

inline Value IntValue(unsigned kind, unsigned char number)
{
    return {kind, {number, 0, 0, 0}};
}
} // namespace tev::browser::test
