#include "qt/settings/SettingsSource.h"

namespace tev::browser
{
Lister::~Lister() = default;
SettingsSource::~SettingsSource() = default;

std::unique_ptr<SettingsSource> SettingsSource::ForThread()
{
    std::unique_ptr<SettingsSource> source = Clone();
    source->m_isRepairPermitted = TakeRepairPermission();
    return source;
}

ItemList::ItemList(std::vector<Item> items, QString fault) : m_items(std::move(items))
{
    m_fault = std::move(fault);
}

bool ItemList::Next(Item& item)
{
    if (m_next == m_items.size())
        return false;
    item = m_items[m_next++];
    return true;
}

QString CodeText(unsigned code)
{
    QString letters;
    for (int shift = 24; shift >= 0; shift -= 8)
    {
        const unsigned letter = code >> shift & 0xFF;
        if (letter < ' ' || letter > '~')
            return QString::number(code);
        letters += QChar(letter);
    }
    return u'\'' + letters + u'\'';
}

std::optional<unsigned> ParseCode(const QString& text)
{
    const bool isQuoted = text.size() == 6 && text.front() == u'\'' && text.back() == u'\'';
    bool isNumber = false;
    const bool isHexadecimal = text.startsWith(u"0x", Qt::CaseInsensitive);
    const unsigned number = isHexadecimal ? text.mid(2).toUInt(&isNumber, 16) : text.toUInt(&isNumber, 10);
    if (isNumber)
        return number;
    const QString letters = isQuoted ? text.mid(1, 4) : text;
    if (letters.size() != 4 || (!isQuoted && letters.front().isDigit()))
        return {};
    unsigned code = 0;
    for (const QChar letter : letters)
    {
        if (letter < u' ' || letter > u'~')
            return {};
        code = code << 8 | letter.unicode();
    }
    return code;
}
} // namespace tev::browser
