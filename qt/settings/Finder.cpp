#include "qt/settings/Finder.h"

#include "qt/settings/ValueText.h"

namespace tev::browser
{
namespace
{
constexpr unsigned __int64 kLargestSearched = 1 << 20;
} // namespace

/// A node whose values, and then whose nodes, are looked at.
struct Finder::Level
{
    Place m_place;
    std::unique_ptr<Lister> m_values;
    std::unique_ptr<Lister> m_nodes;
};

Finder::Finder(SettingsSource& source, QObject* parent) : QObject(parent), m_source(source)
{
    connect(&m_timer, &QTimer::timeout, this, &Finder::Step);
}

Finder::~Finder() = default;

Place Finder::GetPlace() const
{
    return m_levels.empty() ? Place() : m_levels.back().m_place;
}

void Finder::Start(const QString& text)
{
    Stop();
    m_matches.clear();
    m_text = text;
    if (text.isEmpty())
        return;
    Enter({});
    m_timer.start(0);
}

void Finder::Stop()
{
    m_timer.stop();
    m_levels.clear();
}

void Finder::Enter(Place place)
{
    std::unique_ptr<Lister> values = m_source.ListValues(place);
    m_levels.push_back({std::move(place), std::move(values), nullptr});
}

void Finder::Step()
{
    const QDeadlineTimer slice(kSliceMilliseconds);
    const std::size_t before = m_matches.size();
    while (!slice.hasExpired() && IsReady())
    {
        if (Visit() && m_matches.size() < kMostMatches)
            continue;
        Stop();
        break;
    }
    m_timer.setInterval(IsReady() ? 0 : kWaitMilliseconds);
    if (m_matches.size() != before || !IsRunning())
        Q_EMIT Changed();
}

bool Finder::IsReady() const
{
    const Level* const level = m_levels.empty() ? nullptr : &m_levels.back();
    return level == nullptr || (level->m_values != nullptr ? level->m_values : level->m_nodes)->IsReady();
}

/// Looks at one value or node; false when there are no more.
bool Finder::Visit()
{
    if (m_levels.empty())
        return false;
    Level& level = m_levels.back();
    const auto isFound = [this](const QString& text) { return text.contains(m_text, Qt::CaseInsensitive); };
    Item item;
    if (level.m_values != nullptr)
    {
        if (level.m_values->Next(item))
        {
            bool isMatch = isFound(Escaped(item.m_text));
            if (!isMatch)
            {
                const Reading reading = m_source.Read(level.m_place, item.m_id, kLargestSearched);
                isMatch = reading.m_value && isFound(ValueLine(m_source, *reading.m_value));
            }
            if (isMatch)
                m_matches.push_back({level.m_place, item.m_id});
            return true;
        }
        level.m_values.reset();
        level.m_nodes = m_source.ListNodes(level.m_place);
        return true;
    }
    if (!level.m_nodes->Next(item))
    {
        m_levels.pop_back();
        return true;
    }
    Place place = level.m_place;
    place.push_back(item.m_id);
    if (isFound(Escaped(item.m_text)))
        m_matches.push_back({place, {}});
    Enter(std::move(place));
    return true;
}
} // namespace tev::browser
