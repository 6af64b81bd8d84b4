#include "qt/settings/ValueText.h"

#include "base/LittleEndian.h"
#include "qt/toolkit/QtText.h"
#include "text/TextEncoding.h"

#include <QDateTime>
#include <QTimeZone>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

namespace tev::browser
{
namespace
{
constexpr std::size_t kShownBytes = 48;
constexpr qsizetype kShownCharacters = 300;
constexpr std::size_t kBytesInALine = 16;

qint64 SignedOf(const Bytes& data)
{
    quint64 number = 0;
    for (std::size_t i = data.size(); i-- != 0;)
        number = number << 8 | data[i];
    const int unused = 64 - static_cast<int>(data.size()) * 8;
    return static_cast<qint64>(number << unused) >> unused;
}

quint64 UnsignedOf(const Bytes& data)
{
    quint64 number = 0;
    for (std::size_t i = data.size(); i-- != 0;)
        number = number << 8 | data[i];
    return number;
}

Bytes BytesOfNumber(quint64 number, std::size_t size)
{
    Bytes bytes(size);
    for (unsigned char& byte : bytes)
    {
        byte = static_cast<unsigned char>(number);
        number >>= 8;
    }
    return bytes;
}

template <class T>
QString FloatText(const Bytes& data)
{
    T value;
    std::memcpy(&value, data.data(), sizeof value);
    char text[64];
    return QString::fromLatin1(text, std::to_chars(text, text + sizeof text, value).ptr - text);
}

template <class T>
std::optional<Bytes> ParseFloat(const QString& text)
{
    const QByteArray latin = text.trimmed().toLatin1();
    T value = 0;
    const auto [stop, error] = std::from_chars(latin.data(), latin.data() + latin.size(), value);
    if (error != std::errc() || stop != latin.data() + latin.size())
        return {};
    Bytes bytes(sizeof value);
    std::memcpy(bytes.data(), &value, sizeof value);
    return bytes;
}

std::optional<Bytes> ParseInteger(const QString& typed, std::size_t size, bool isSigned)
{
    const QString text = typed.trimmed();
    const int bits = static_cast<int>(size) * 8;
    bool isNumber = false;
    if (text.startsWith(u"0x", Qt::CaseInsensitive))
    {
        const quint64 number = text.mid(2).toULongLong(&isNumber, 16);
        const bool fits = bits == 64 || number >> bits == 0;
        return isNumber && fits ? std::optional(BytesOfNumber(number, size)) : std::nullopt;
    }
    if (isSigned)
    {
        const qint64 number = text.toLongLong(&isNumber, 10);
        const Bytes bytes = BytesOfNumber(static_cast<quint64>(number), size);
        return isNumber && SignedOf(bytes) == number ? std::optional(bytes) : std::nullopt;
    }
    const quint64 number = text.toULongLong(&isNumber, 10);
    return isNumber && (bits == 64 || number >> bits == 0) ? std::optional(BytesOfNumber(number, size)) : std::nullopt;
}

QString TimeText(qint64 seconds)
{
    constexpr qint64 kLast = 253402300799; // the end of the year 9999
    if (seconds < -62135596800 || seconds > kLast)
        return QString::number(seconds);
    return QDateTime::fromSecsSinceEpoch(seconds, Qt::UTC).toString(QStringLiteral("yyyy-MM-ddTHH:mm:ssZ"));
}

std::optional<Bytes> ParseTime(const QString& typed)
{
    const QString text = typed.trimmed();
    bool isNumber = false;
    qint64 seconds = text.toLongLong(&isNumber);
    if (!isNumber)
    {
        QDateTime time = QDateTime::fromString(text, QStringLiteral("yyyy-MM-ddTHH:mm:ssZ"));
        time.setTimeSpec(Qt::UTC);
        if (!time.isValid())
            return {};
        seconds = time.toSecsSinceEpoch();
    }
    return BytesOfNumber(static_cast<quint64>(seconds), 8);
}

QString UtcText(const Bytes& data)
{
    int fields[6];
    for (std::size_t i = 0; i < 6; ++i)
        fields[i] = LoadLittleEndian<int>(data.data() + i * 4);
    return QString::asprintf("%lld-%02lld-%02dT%02d:%02d:%02dZ", 1900LL + fields[5], fields[4] + 1LL, fields[3],
                             fields[2], fields[1], fields[0]);
}

QString Utf16Text(const unsigned char* data, std::size_t units)
{
    QString text(static_cast<qsizetype>(units), Qt::Uninitialized);
    for (std::size_t i = 0; i < units; ++i)
        text[static_cast<qsizetype>(i)] = QChar(LoadLittleEndian<std::uint16_t>(data + i * 2));
    return text;
}

void AppendUtf16(Bytes& data, QStringView text)
{
    for (const QChar unit : text)
    {
        data.push_back(static_cast<unsigned char>(unit.unicode() & 0xFF));
        data.push_back(static_cast<unsigned char>(unit.unicode() >> 8));
    }
}

/// The text without its terminator.
std::optional<QString> TerminatedText(const Bytes& data)
{
    QString text = Utf16Text(data.data(), data.size() / 2);
    if (data.size() % 2 != 0 || !text.endsWith(QChar(u'\0')))
        return {};
    text.chop(1);
    return text;
}

std::optional<QString> AnsiText(const Bytes& data)
{
    CXTString<wchar_t> text;
    if (data.empty() || data.back() != 0 || !XDecodeText(data.data(), data.size() - 1, xEncodingAnsi, text))
        return {};
    return XToQString(text);
}

Bytes BytesOfAnsi(const QString& text)
{
    const CXTString<wchar_t> wide = XFromQString(text);
    CXTString<char> bytes;
    static_cast<void>(XEncodeText(wide.GetConstBuffer(), wide.GetLength64(), xEncodingAnsi, bytes));
    Bytes data(bytes.GetConstBuffer(), bytes.GetConstBuffer() + bytes.GetLength64());
    data.push_back(0);
    return data;
}

std::optional<QStringList> TextsOfList(const Bytes& data)
{
    if (data.size() < 4)
        return {};
    QStringList texts;
    std::size_t at = 4;
    for (unsigned left = LoadLittleEndian<unsigned>(data.data()); left != 0; --left)
    {
        if (data.size() - at < 4)
            return {};
        const unsigned units = LoadLittleEndian<unsigned>(data.data() + at);
        at += 4;
        if (units > (data.size() - at) / 2)
            return {};
        texts << Utf16Text(data.data() + at, units);
        at += std::size_t{units} * 2;
    }
    return texts;
}

Bytes BytesOfList(const QStringList& texts)
{
    Bytes data(4);
    StoreLittleEndian(data.data(), static_cast<unsigned>(texts.size()));
    for (const QString& text : texts)
    {
        data.resize(data.size() + 4);
        StoreLittleEndian(data.data() + data.size() - 4, static_cast<unsigned>(text.size()));
        AppendUtf16(data, text);
    }
    return data;
}

std::optional<QStringList> TextsOfMulti(const Bytes& data)
{
    std::optional<QString> text = TerminatedText(data);
    if (!text || (!text->isEmpty() && !text->endsWith(QChar(u'\0'))))
        return {};
    text->chop(1);
    return text->isEmpty() ? QStringList() : text->split(QChar(u'\0'));
}

Bytes BytesOfMulti(const QStringList& texts)
{
    Bytes data;
    for (const QString& text : texts)
        AppendUtf16(data, text + QChar(u'\0'));
    AppendUtf16(data, QString(QChar(u'\0')));
    return data;
}

QString HexText(const Bytes& data, std::size_t most, bool inLines)
{
    QString text;
    text.reserve(static_cast<qsizetype>(std::min(data.size(), most)) * 3);
    constexpr char16_t kDigits[] = u"0123456789abcdef";
    for (std::size_t i = 0; i < data.size() && i < most; ++i)
    {
        if (i != 0)
            text += inLines && i % kBytesInALine == 0 ? u'\n' : u' ';
        text += QChar(kDigits[data[i] >> 4]);
        text += QChar(kDigits[data[i] & 15]);
    }
    return most < data.size() ? text + QChar(u'\u2026') : text;
}

std::optional<Bytes> ParseHex(const QString& text)
{
    Bytes bytes;
    int high = -1;
    for (const QChar character : text)
    {
        if (character.isSpace() && high < 0)
            continue;
        const char16_t c = character.unicode() | 0x20;
        const int digit = c >= u'0' && c <= u'9' ? c - u'0' : c >= u'a' && c <= u'f' ? c - u'a' + 10 : -1;
        if (digit < 0 || (character.unicode() < u'0'))
            return {};
        if (high >= 0)
            bytes.push_back(static_cast<unsigned char>(high << 4 | digit));
        high = high >= 0 ? -1 : digit;
    }
    return high < 0 ? std::optional(bytes) : std::nullopt;
}

/// The value in its form, without escapes; none where it has not that form. Lists have a line for each text.
std::optional<QString> PlainText(const Kind& kind, const Bytes& data)
{
    const bool hasSize = kind.m_size == data.size();
    switch (kind.m_form)
    {
    case Form::kSigned:
        return hasSize ? std::optional(QString::number(SignedOf(data))) : std::nullopt;
    case Form::kUnsigned:
        return hasSize ? std::optional(QString::number(UnsignedOf(data))) : std::nullopt;
    case Form::kBool:
        return hasSize ? std::optional(QString::fromLatin1(UnsignedOf(data) != 0 ? "true" : "false")) : std::nullopt;
    case Form::kFloat:
        if (!hasSize)
            return {};
        return kind.m_size == 4 ? FloatText<float>(data) : FloatText<double>(data);
    case Form::kTime:
        return hasSize ? std::optional(TimeText(SignedOf(data))) : std::nullopt;
    case Form::kUtcTime:
        return hasSize ? std::optional(UtcText(data)) : std::nullopt;
    case Form::kText:
        return TerminatedText(data);
    case Form::kAnsiText:
        return AnsiText(data);
    default:
        return {};
    }
}

bool IsList(Form form)
{
    return form == Form::kTextList || form == Form::kMultiText;
}

std::optional<QStringList> Texts(Form form, const Bytes& data)
{
    return form == Form::kTextList ? TextsOfList(data) : TextsOfMulti(data);
}

std::optional<QString> Unescaped(const QString& text)
{
    QString plain;
    for (qsizetype i = 0; i < text.size(); ++i)
    {
        if (text[i] != u'\\')
        {
            plain += text[i];
            continue;
        }
        if (i + 1 < text.size() && text[i + 1] == u'\\')
        {
            plain += text[++i];
            continue;
        }
        bool isNumber = false;
        const QString digits = text.mid(i + 2, 4);
        const ushort unit = digits.toUShort(&isNumber, 16);
        if (i + 1 >= text.size() || text[i + 1] != u'u' || digits.size() != 4 || !isNumber)
            return {};
        plain += QChar(unit);
        i += 5;
    }
    return plain;
}

bool IsTroublesome(QStringView text, qsizetype at)
{
    const QChar c = text[at];
    if (c.isHighSurrogate())
        return at + 1 == text.size() || !text[at + 1].isLowSurrogate();
    if (c.isLowSurrogate())
        return at == 0 || !text[at - 1].isHighSurrogate();
    const char16_t unit = c.unicode();
    return (unit < 0x20 && unit != u'\n' && unit != u'\t') || (unit >= 0x7F && unit <= 0xA0) || unit == 0x2028 ||
           unit == 0x2029 || unit == 0xFEFF || (unit >= 0xFDD0 && unit <= 0xFDEF) || unit >= 0xFFF9;
}

QString EscapedAs(const QString& text, bool alsoLineEnds)
{
    QString escaped;
    for (qsizetype i = 0; i < text.size(); ++i)
    {
        if (text[i] == u'\\')
            escaped += QStringLiteral("\\\\");
        else if (IsTroublesome(text, i) || (alsoLineEnds && text[i] == u'\n'))
            escaped += QStringLiteral("\\u%1").arg(text[i].unicode(), 4, 16, QLatin1Char('0'));
        else
            escaped += text[i];
    }
    return escaped;
}

std::optional<Bytes> ParseTexts(Form form, const EditText& text, QString& reason)
{
    const QStringList lines = text.m_text.isEmpty() ? QStringList() : text.m_text.split(u'\n');
    QStringList texts;
    for (const QString& line : lines)
    {
        const std::optional<QString> plain = text.m_isEscaped ? Unescaped(line) : line;
        if (!plain)
        {
            reason = XInLanguage(u"A backslash must be followed by \\ or uXXXX.",
                                 u"Une barre oblique inverse doit être suivie de \\ ou de uXXXX.");
            return {};
        }
        if (form == Form::kMultiText && (plain->isEmpty() || plain->contains(QChar(u'\0'))))
        {
            reason = XInLanguage(u"An empty text would end the list.", u"Un texte vide terminerait la liste.");
            return {};
        }
        texts << *plain;
    }
    return form == Form::kTextList ? BytesOfList(texts) : BytesOfMulti(texts);
}

std::optional<Bytes> ParseText(const EditText& text, QString& reason)
{
    const std::optional<QString> plain = text.m_isEscaped ? Unescaped(text.m_text) : text.m_text;
    if (!plain)
    {
        reason = XInLanguage(u"A backslash must be followed by \\ or uXXXX.",
                             u"Une barre oblique inverse doit être suivie de \\ ou de uXXXX.");
        return {};
    }
    if (text.m_form == Form::kAnsiText)
        return BytesOfAnsi(*plain);
    Bytes data;
    AppendUtf16(data, *plain);
    AppendUtf16(data, QString(QChar(u'\0')));
    return data;
}

std::optional<Bytes> ParseScalar(const Kind& kind, const QString& text)
{
    switch (kind.m_form)
    {
    case Form::kBool:
        if (text != u"true" && text != u"false")
            return {};
        return BytesOfNumber(text == u"true" ? 1 : 0, kind.m_size);
    case Form::kFloat:
        return kind.m_size == 4 ? ParseFloat<float>(text) : ParseFloat<double>(text);
    case Form::kTime:
        return ParseTime(text);
    case Form::kSigned:
    case Form::kUnsigned:
        return ParseInteger(text, kind.m_size, kind.m_form == Form::kSigned);
    default:
        return {};
    }
}
} // namespace

const Kind* FindKind(const SettingsSource& source, unsigned code)
{
    const std::vector<Kind>& kinds = source.GetKinds();
    const auto found = std::find_if(kinds.begin(), kinds.end(), [=](const Kind& kind) { return kind.m_code == code; });
    return found == kinds.end() ? nullptr : &*found;
}

QString KindName(const SettingsSource& source, unsigned code)
{
    const Kind* const kind = FindKind(source, code);
    return kind != nullptr ? QString::fromLatin1(kind->m_name) : CodeText(code);
}

bool NeedsEscapes(const QString& text)
{
    for (qsizetype i = 0; i < text.size(); ++i)
    {
        if (IsTroublesome(text, i))
            return true;
    }
    return false;
}

QString Escaped(const QString& text)
{
    return NeedsEscapes(text) ? EscapedAs(text, false) : text;
}

QString ValueLine(const SettingsSource& source, const Value& value)
{
    const Kind* const kind = FindKind(source, value.m_kind);
    if (kind != nullptr && kind->m_form == Form::kStore)
        return XInLanguage(u"(store, shown in the tree)", u"(magasin, montré dans l'arborescence)");
    QString line;
    if (kind != nullptr && IsList(kind->m_form))
    {
        const std::optional<QStringList> texts = Texts(kind->m_form, value.m_data);
        if (!texts)
            return HexText(value.m_data, kShownBytes, false);
        for (const QString& text : *texts)
        {
            line += (line.isEmpty() ? QString() : QStringLiteral(", ")) + u'"' + text.left(kShownCharacters) + u'"';
            if (line.size() > kShownCharacters)
                break;
        }
    }
    else
    {
        const std::optional<QString> text = kind != nullptr ? PlainText(*kind, value.m_data) : std::nullopt;
        if (!text)
            return HexText(value.m_data, kShownBytes, false);
        line = *text;
    }
    const bool isCut = line.size() > kShownCharacters;
    line = line.left(kShownCharacters);
    line.replace(u'\n', QChar(u'\u21B5'));
    line.replace(u'\t', u' ');
    return Escaped(line) + (isCut ? QString(QChar(u'\u2026')) : QString());
}

EditText ToEditText(const SettingsSource& source, const Value& value)
{
    const Kind* const kind = FindKind(source, value.m_kind);
    EditText edit;
    if (kind != nullptr && IsList(kind->m_form))
    {
        if (const std::optional<QStringList> texts = Texts(kind->m_form, value.m_data))
        {
            edit = {kind->m_form, texts->join(u'\n'), false};
            edit.m_isEscaped =
                NeedsEscapes(edit.m_text) || edit.m_text.count(u'\n') != std::max<qsizetype>(texts->size(), 1) - 1;
            QStringList escaped;
            for (const QString& text : *texts)
                escaped << EscapedAs(text, true);
            if (edit.m_isEscaped)
                edit.m_text = escaped.join(u'\n');
        }
    }
    else if (kind != nullptr)
    {
        if (const std::optional<QString> text = PlainText(*kind, value.m_data))
        {
            const bool isText = kind->m_form == Form::kText || kind->m_form == Form::kAnsiText;
            edit = {kind->m_form, *text, isText && NeedsEscapes(*text)};
            if (edit.m_isEscaped)
                edit.m_text = EscapedAs(*text, false);
        }
    }
    QString reason;
    if (edit.m_form != Form::kBytes && FromEditText(kind, edit, reason) == value.m_data)
        return edit;
    return {Form::kBytes, HexText(value.m_data, value.m_data.size(), true), false};
}

std::optional<Bytes> FromEditText(const Kind* kind, const EditText& text, QString& reason)
{
    std::optional<Bytes> data;
    if (text.m_form == Form::kBytes || kind == nullptr)
    {
        data = ParseHex(text.m_text);
        reason = data ? QString()
                      : XInLanguage(u"Bytes are pairs of hexadecimal digits.",
                                    u"Les octets sont des paires de chiffres hexadécimaux.");
        return data;
    }
    reason.clear();
    if (IsList(text.m_form))
        return ParseTexts(text.m_form, text, reason);
    if (text.m_form == Form::kText || text.m_form == Form::kAnsiText)
        return ParseText(text, reason);
    data = ParseScalar(*kind, text.m_text);
    if (!data)
        reason = XInLanguage(u"This is no value of the kind.", u"Ce n'est pas une valeur de ce type.");
    return data;
}

QString RangeText(const Kind* kind)
{
    if (kind == nullptr)
        return {};
    const int bits = static_cast<int>(kind->m_size) * 8;
    const QString dash = QStringLiteral(" \u2026 ");
    switch (kind->m_form)
    {
    case Form::kSigned:
        return QString::number(std::numeric_limits<qint64>::min() >> (64 - bits)) + dash +
               QString::number(std::numeric_limits<qint64>::max() >> (64 - bits));
    case Form::kUnsigned:
        return u'0' + dash + QString::number(std::numeric_limits<quint64>::max() >> (64 - bits));
    case Form::kFloat:
        return kind->m_size == 4 ? QStringLiteral("\u00B13.4e38") : QStringLiteral("\u00B11.8e308");
    case Form::kTime:
        return QStringLiteral("1999-12-31T23:59:59Z") +
               XInLanguage(u", or seconds since 1970", u", ou des secondes depuis 1970");
    case Form::kMultiText:
    case Form::kTextList:
        return XInLanguage(u"one text a line", u"un texte par ligne");
    default:
        return {};
    }
}
} // namespace tev::browser
