#include "qt/settings/RegistrySource.h"

#include "files/CXMemFile.h"
#include "objects/LastFailure.h"
#include "qt/toolkit/QtText.h"
#include "settings/RegistryText.h"
#include "text/TextDetection.h"
#include "text/TextEncoding.h"

#include <QFileInfo>

namespace tev::browser
{
namespace
{
constexpr int kDone = 0;
constexpr int kNotFound = 2;
constexpr int kAlreadyExists = 183;
constexpr int kMoreData = 234;
constexpr int kNoMoreItems = 259;
constexpr int kDamaged = 1009;
constexpr int kKeyDeleted = 1018;
constexpr int kChangedMeanwhile = 1237;
constexpr unsigned long kKeyNameRoom = 256;
constexpr unsigned long kLongestName = 16384; // the terminator included

constexpr const wchar_t* kRootNames[] = {L"HKEY_CLASSES_ROOT", L"HKEY_CURRENT_USER",   L"HKEY_LOCAL_MACHINE",
                                         L"HKEY_USERS",        L"HKEY_CURRENT_CONFIG", L"HKEY_DYN_DATA"};

bool IsGone(int systemError)
{
    return systemError == kNotFound || systemError == kKeyDeleted;
}

Place Below(const Place& place, const std::wstring& name)
{
    Place below = place;
    below.push_back(name);
    return below;
}

bool HasKeysBelow(const Place& place)
{
    CRegUtil registry(CRegUtil::kRead);
    wchar_t name[kKeyNameRoom];
    return RegistrySource::OpenKey(registry, place) == kDone && registry.StartSubKeyEnum() &&
           registry.GetNextSubKeyName(name, kKeyNameRoom);
}

/// The keys below a key, or its values. The key is held open, so that each name takes the same time.
class NameLister : public Lister
{
public:
    NameLister(const Place& place, bool isOfKeys) : m_place(place), m_isOfKeys(isOfKeys)
    {
        m_name.resize(isOfKeys ? kKeyNameRoom : kLongestName);
        const int error = RegistrySource::OpenKey(m_registry, place);
        m_isOpen = error == kDone && (isOfKeys ? m_registry.StartSubKeyEnum() : m_registry.StartValueSection(L""));
        Note(error != kDone ? error : m_registry.GetLastError());
    }

    bool Next(Item& item) override
    {
        if (!m_isOpen)
            return false;
        const auto room = static_cast<unsigned long>(m_name.size());
        m_isOpen = m_isOfKeys ? m_registry.GetNextSubKeyName(m_name.data(), room)
                              : m_registry.GetNextValueName(m_name.data(), room);
        if (!m_isOpen)
        {
            Note(m_registry.GetLastError());
            return false;
        }
        item = {m_name.data(), XToQString(CXTString<wchar_t>(m_name.data())), {}, false};
        if (m_isOfKeys)
            item.m_hasMore = HasKeysBelow(Below(m_place, item.m_id));
        else if (item.m_id.empty())
            item.m_text = XInLanguage(u"(default)", u"(par défaut)");
        return true;
    }

private:
    void Note(int error)
    {
        if (error != kDone && error != kNoMoreItems && !IsGone(error))
            m_fault = RegistryErrorText(error);
    }

    Place m_place;
    bool m_isOfKeys;
    bool m_isOpen = false;
    CRegUtil m_registry{CRegUtil::kRead};
    std::wstring m_name;
};

QString PathOf(const Place& place)
{
    QString path;
    for (const std::wstring& name : place)
        path += (path.isEmpty() ? QString() : QStringLiteral("\\")) + XToQString(CXTString<wchar_t>(name));
    return path;
}

/// The functions for texts take keys apart at these, too.
bool HasSeparator(const Place& place)
{
    for (std::size_t i = 1; i < place.size(); ++i)
    {
        if (place[i].find_first_of(L"\\/:") != std::wstring::npos)
            return true;
    }
    return false;
}

HKEY RootOf(const Place& place)
{
    return place.empty() ? nullptr : CRegUtil::StrToRootKey(place.front().c_str());
}

CXTString<wchar_t> TextIn(const Bytes& snapshot)
{
    CXTString<wchar_t> text;
    const XTextMark mark = XFindTextMark(snapshot.data(), snapshot.size());
    static_cast<void>(XDecodeText(snapshot.data() + mark.m_size, snapshot.size() - mark.m_size, xEncodingUtf16, text));
    return text;
}

Result ResultOf(int error)
{
    if (error == kDone)
        return {};
    return {error == kChangedMeanwhile || IsGone(error) ? Outcome::kChanged : Outcome::kFailed,
            RegistryErrorText(error)};
}
} // namespace

QString RegistryErrorText(int systemError)
{
    return XToQString(XGetSystemErrorText(static_cast<unsigned>(systemError)));
}

Place RegistrySource::ParsePlace(const QString& path)
{
    constexpr const wchar_t* kSeparators = L"\\/:";
    const CXTString<wchar_t> text = XFromQString(path);
    const std::wstring_view wide = text;
    Place place;
    for (std::size_t start = wide.find_first_not_of(kSeparators); start != wide.npos;)
    {
        const std::size_t end = wide.find_first_of(kSeparators, start);
        place.emplace_back(wide.substr(start, end - start));
        start = wide.find_first_not_of(kSeparators, end);
    }
    if (RootOf(place) == nullptr)
        place.insert(place.begin(), L"HKEY_CURRENT_USER");
    return place;
}

int RegistrySource::OpenKey(CRegUtil& registry, const Place& place, bool create)
{
    std::vector<const wchar_t*> names;
    for (std::size_t i = 1; i < place.size(); ++i)
        names.push_back(place[i].c_str());
    const bool isOpen = registry.SetPath(names.data(), static_cast<int>(names.size()), RootOf(place), create) &&
                        registry.OpenBase(create);
    return isOpen ? kDone : registry.GetLastError();
}

// Of a database that is large, a single key may be.
bool RegistrySource::TakesLong() const
{
    const QString file = GetFile({});
    return QFileInfo(file).size() + QFileInfo(file + QStringLiteral("-wal")).size() > kLargeFile;
}

QString RegistrySource::GetName() const
{
    return XInLanguage(u"Registry", u"Registre");
}

QString RegistrySource::GetPlaceText(const Place& place) const
{
    return PathOf(place);
}

QString RegistrySource::GetFile(const Place& place) const
{
    HKEY const root = RootOf(place);
    return XToQString(CRegUtil::GetFilePath(root != nullptr ? root : CRegUtil::StrToRootKey(L"HKEY_CURRENT_USER")));
}

const std::vector<Kind>& RegistrySource::GetKinds() const
{
    static const std::vector<Kind> kKinds = {
        {CRegUtil::kTypeString, "string", Form::kText, 0},
        {CRegUtil::kTypeExpandString, "expand", Form::kText, 0},
        {CRegUtil::kTypeMultiString, "multi", Form::kMultiText, 0},
        {CRegUtil::kTypeInt, "int", Form::kUnsigned, 4},
        {CRegUtil::kTypeInt64, "int64", Form::kUnsigned, 8},
        {CRegUtil::kTypeBinary, "binary", Form::kBytes, 0},
        {CRegUtil::kTypeNone, "none", Form::kBytes, 0},
    };
    return kKinds;
}

std::unique_ptr<Lister> RegistrySource::ListNodes(const Place& place)
{
    if (!place.empty())
        return std::make_unique<NameLister>(place, true);
    std::vector<Item> roots;
    for (const wchar_t* const name : kRootNames)
        roots.push_back({name, QString::fromWCharArray(name), {}, HasKeysBelow({name})});
    return std::make_unique<ItemList>(std::move(roots));
}

std::unique_ptr<Lister> RegistrySource::ListValues(const Place& place)
{
    if (place.empty())
        return std::make_unique<ItemList>(std::vector<Item>());
    return std::make_unique<NameLister>(place, false);
}

Reading RegistrySource::Read(const Place& place, const std::wstring& id, unsigned __int64 largest)
{
    Reading reading;
    int error = kKeyDeleted; // a key that was deleted and made anew is opened again
    unsigned long size = 0;
    for (int attempt = 0; attempt < 2 && error == kKeyDeleted; ++attempt)
    {
        if (attempt != 0 || m_open == nullptr || m_openPlace != place)
        {
            m_open = std::make_unique<CRegUtil>(CRegUtil::kRead);
            m_openPlace = place;
            error = OpenKey(*m_open, place);
            if (error != kDone)
                continue;
        }
        size = 0;
        error = m_open->GetKeyBin(id.c_str(), nullptr, size) ? kDone : m_open->GetLastError();
    }
    if (error == kMoreData)
        error = kDone;
    reading.m_isThere = !IsGone(error);
    reading.m_size = size;
    if (error == kDone && size <= largest)
    {
        unsigned long type = 0;
        Value value;
        if (m_open->ReadValue(id.c_str(), type, value.m_data))
        {
            value.m_kind = static_cast<unsigned>(type);
            reading.m_value = std::move(value);
        }
        else
            error = m_open->GetLastError();
    }
    if (error != kDone && reading.m_isThere)
        reading.m_fault = error == kDamaged ? XInLanguage(u"damaged: its checksum does not match",
                                                          u"endommagé : la somme de contrôle ne correspond pas")
                                            : RegistryErrorText(error);
    return reading;
}

QString RegistrySource::WhyReadOnly(const Place& place)
{
    if (place.empty())
        return XInLanguage(u"Choose a key first.", u"Choisissez d'abord une clé.");
    const QFileInfo file(GetFile(place));
    if (file.exists() && !file.isWritable())
        return XInLanguage(u"The file of the registry may not be written.",
                           u"Le fichier du registre ne peut pas être modifié.");
    return {};
}

bool RegistrySource::HasNode(const Place& place)
{
    CRegUtil registry(CRegUtil::kRead);
    return OpenKey(registry, place) == kDone;
}

std::optional<std::wstring> RegistrySource::ParseValueId(const QString& text) const
{
    return std::wstring(std::wstring_view(XFromQString(text)));
}

std::optional<std::wstring> RegistrySource::ParseNodeId(const QString& text) const
{
    const std::wstring name(std::wstring_view(XFromQString(text)));
    if (name.empty() || name.find_first_of(L"\\/:") != name.npos)
        return {};
    return name;
}

QString RegistrySource::GetValueName(const std::wstring& id) const
{
    return XToQString(CXTString<wchar_t>(id));
}

// Conditions and changes are one batch: what another program changes meanwhile is not lost.
Result RegistrySource::Apply(const ValueEdit& edit)
{
    CRegUtil registry(CRegUtil::kReadWrite);
    const int error = OpenKey(registry, edit.m_place);
    if (error != kDone)
        return ResultOf(error);
    bool isGood = registry.StartBatch();
    for (const ValueChange& change : edit.m_changes)
    {
        const wchar_t* const name = change.m_id.c_str();
        const std::optional<Value>& before = change.m_before;
        if (before)
            isGood = isGood && registry.ExpectValue(name, before->m_kind, before->m_data.data(), before->m_data.size());
        else if (!change.m_wasUnreadable)
            isGood = isGood && registry.ExpectNoValue(name);
        const std::optional<Value>& after = change.m_after;
        if (after)
            isGood = isGood && registry.WriteValue(name, after->m_kind, after->m_data.data(), after->m_data.size());
        else
            isGood = isGood && registry.DeleteValue(L"", name);
    }
    isGood = isGood && registry.EndBatch();
    Refresh();
    return ResultOf(isGood ? kDone : registry.GetLastError());
}

std::optional<Bytes> RegistrySource::Snapshot(const Place& place, QString& reason)
{
    CXMemFile file;
    int error = 0;
    if (HasSeparator(place))
        reason = XInLanguage(u"The name of the key holds a separator of paths.",
                             u"Le nom de la clé contient un séparateur de chemins.");
    else if (!XExportRegistry(XFromQString(PathOf(place)), file, xEncodingUtf16, error))
        reason = RegistryErrorText(error);
    else
    {
        Bytes text(static_cast<std::size_t>(file.GetLength()));
        file.SeekToBegin();
        text.resize(file.Read(text.data(), static_cast<unsigned>(text.size())));
        return text;
    }
    return {};
}

Bytes RegistrySource::EmptySnapshot(const Place& place) const
{
    const QString text = QStringLiteral("\uFEFFWindows Registry Editor Version 5.00\r\n\r\n[") + PathOf(place) +
                         QStringLiteral("]\r\n\r\n");
    const auto* const bytes = reinterpret_cast<const unsigned char*>(text.utf16());
    return Bytes(bytes, bytes + text.size() * 2);
}

Result RegistrySource::Apply(const NodeEdit& edit)
{
    Refresh();
    const CXTString<wchar_t> before = edit.m_before ? TextIn(*edit.m_before) : CXTString<wchar_t>();
    int error = kDone;
    if (edit.m_before && !edit.m_after)
        return ResultOf(XRemoveRegistryKey(XFromQString(PathOf(edit.m_place)), before, error) ? kDone : error);
    CRegUtil registry(CRegUtil::kReadWrite);
    error = OpenKey(registry, edit.m_place);
    if (!edit.m_after)
        return ResultOf(registry.DeleteKey(L"", true) ? kDone : registry.GetLastError());
    if (!edit.m_isForced && edit.m_before.has_value() != (error == kDone))
        return ResultOf(error == kDone ? kAlreadyExists : error);
    QString reason;
    if (edit.m_before && Snapshot(edit.m_place, reason) != edit.m_before)
        return ResultOf(kChangedMeanwhile);
    XRegistryImport result;
    if (XImportRegistry(TextIn(*edit.m_after), result))
        return {};
    return {Outcome::kFailed, RegistryErrorText(result.m_systemError)};
}
} // namespace tev::browser
