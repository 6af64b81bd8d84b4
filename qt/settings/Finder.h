#pragma once

#include "qt/settings/ListSteps.h"

#include <QObject>
#include <QTimer>

namespace tev::browser
{
/// Where a text was found: a node, or a value in it.
struct Match
{
    Place m_place;
    std::optional<std::wstring> m_id;
};

/// Searches a source for a text in the names of nodes and values and in the values, in slices. Upper and lower case do not count.
class Finder : public QObject
{
    Q_OBJECT
public:
    static constexpr std::size_t kMostMatches = 10000;

    explicit Finder(SettingsSource& source, QObject* parent = nullptr);
    ~Finder() override;

    void Start(const QString& text);
    void Stop();
    bool IsRunning() const { return m_timer.isActive(); }
    const std::vector<Match>& GetMatches() const { return m_matches; }
    /// The node that is being searched.
    Place GetPlace() const;

Q_SIGNALS:
    /// There are more matches, or the search is over.
    void Changed();

private:
    struct Level;

    void Step();
    bool IsReady() const;
    bool Visit();
    void Enter(Place place);

    SettingsSource& m_source;
    QString m_text;
    std::vector<Level> m_levels;
    std::vector<Match> m_matches;
    QTimer m_timer;
};
} // namespace tev::browser
