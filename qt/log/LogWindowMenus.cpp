// Menus and bars of the window.

#include "qt/log/LogView.h"
#include "qt/log/LogWindow.h"
#include "qt/log/PatternField.h"
#include "qt/toolkit/QtText.h"
#include "qt/toolkit/Theme.h"

#include <QActionGroup>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QMenuBar>
#include <QStyle>
#include <QToolBar>
#include <QToolButton>

namespace
{
constexpr int kDepths = 4;

struct EncodingChoice
{
    xStringEncoding m_encoding;
    const char16_t* m_english;
    const char16_t* m_french;
};

constexpr EncodingChoice kEncodings[] = {
    {xEncodingUnknown, u"&Detected", u"&D\u00e9tect\u00e9"},
    {xEncodingUtf8, u"UTF-&8", u"UTF-&8"},
    {xEncodingUtf16, u"UTF-1&6", u"UTF-1&6"},
    {xEncodingUtf16BE, u"UTF-16 &big-endian", u"UTF-16 &gros-boutiste"},
    {xStringEncoding{1252}, u"&Western (1252)", u"&Occidental (1252)"},
};
} // namespace

QAction* LogWindow::FindAction(const char* name) const
{
    return findChild<QAction*>(QString::fromLatin1(name));
}

QAction* LogWindow::Add(QMenu& menu, const char* name, const QString& text, const QKeySequence& key, Handler handler)
{
    QAction* const action = menu.addAction(text);
    action->setObjectName(QString::fromLatin1(name));
    action->setShortcut(key);
    connect(action, &QAction::triggered, this, [handler = std::move(handler)] {
        if (!tev::RaiseDialog())
            handler();
    });
    return action;
}

QAction* LogWindow::AddChoice(QMenu& menu, QActionGroup& group, const QString& text, bool isChosen, Handler handler)
{
    QAction* const action = menu.addAction(text);
    action->setCheckable(true);
    action->setChecked(isChosen);
    group.addAction(action);
    connect(action, &QAction::triggered, this, std::move(handler));
    return action;
}

void LogWindow::MakeMenus()
{
    MakeFileMenu();
    MakeEditMenu();
    MakeViewMenu();
}

void LogWindow::MakeFileMenu()
{
    QMenu& menu = *menuBar()->addMenu(XInLanguage(u"&File", u"&Fichier"));
    Add(menu, "open", XInLanguage(u"&Open\u2026", u"&Ouvrir\u2026"), QKeySequence::Open, [this] { ChooseFile(); });
    m_recentMenu = menu.addMenu(XInLanguage(u"Open &Recent", u"Fichiers &r\u00e9cents"));
    connect(m_recentMenu, &QMenu::aboutToShow, this, &LogWindow::ShowRecent);
    Add(menu, "reload", XInLanguage(u"Re&load", u"Re&charger"), Qt::Key_F5, [this] { Reload(m_encoding); });
    QMenu& encodings = *menu.addMenu(XInLanguage(u"&Encoding", u"&Encodage"));
    auto* const group = new QActionGroup(this);
    for (const EncodingChoice& choice : kEncodings)
        AddChoice(encodings, *group, XInLanguage(choice.m_english, choice.m_french),
                  choice.m_encoding == xEncodingUnknown, [this, choice] { Reload(choice.m_encoding); })
            ->setObjectName(QStringLiteral("encoding%1").arg(&choice - kEncodings));
    menu.addSeparator();
    Add(menu, "quit", XInLanguage(u"&Quit", u"&Quitter"), QKeySequence(Qt::CTRL | Qt::Key_Q), [this] { close(); });
}

void LogWindow::ShowRecent()
{
    m_recentMenu->clear();
    for (const CXTString<wchar_t>& path : m_settings.m_recent)
    {
        QString text =
            fontMetrics().elidedText(XToQString(path), Qt::ElideMiddle, fontMetrics().averageCharWidth() * 60);
        QAction* const action = m_recentMenu->addAction(text.replace(u'&', QStringLiteral("&&")));
        action->setToolTip(XPlainToolTip(XToQString(path)));
        connect(action, &QAction::triggered, this, [this, path] { Open(path); });
    }
    m_recentMenu->setToolTipsVisible(true);
    if (m_settings.m_recent.empty())
        m_recentMenu->addAction(XInLanguage(u"(none)", u"(aucun)"))->setEnabled(false);
}

void LogWindow::MakeEditMenu()
{
    QMenu& menu = *menuBar()->addMenu(XInLanguage(u"&Edit", u"&\u00c9dition"));
    Add(menu, "copy", XInLanguage(u"&Copy", u"&Copier"), QKeySequence::Copy, [this] { m_view->Copy(); });
    Add(menu, "all", XInLanguage(u"Select &All", u"&Tout s\u00e9lectionner"), QKeySequence::SelectAll,
        [this] { m_view->SelectAll(); });
    menu.addSeparator();
    Add(menu, "find", XInLanguage(u"&Find\u2026", u"&Rechercher\u2026"), QKeySequence::Find, [this] { ShowFind(); });
    Add(menu, "next", XInLanguage(u"Find &Next", u"Rechercher le &suivant"), Qt::Key_F3, [this] { Find(1); });
    Add(menu, "previous", XInLanguage(u"Find &Previous", u"Rechercher le &pr\u00e9c\u00e9dent"),
        QKeySequence(Qt::SHIFT | Qt::Key_F3), [this] { Find(-1); });
    Add(menu, "filter", XInLanguage(u"F&ilter", u"F&iltrer"), QKeySequence(Qt::CTRL | Qt::Key_L), [this] {
        m_filter->GetEdit().setFocus();
        m_filter->GetEdit().selectAll();
    });
    Add(menu, "line", XInLanguage(u"&Go to Line\u2026", u"&Aller \u00e0 la ligne\u2026"),
        QKeySequence(Qt::CTRL | Qt::Key_G), [this] { AskForLine(); });
    menu.addSeparator();
    Add(menu, "colors", XInLanguage(u"Co&lours of Lines\u2026", u"Cou&leurs des lignes\u2026"), {},
        [this] { EditColors(); });
}

void LogWindow::MakeViewMenu()
{
    QMenu& menu = *menuBar()->addMenu(XInLanguage(u"&View", u"&Affichage"));
    QAction* const follow = Add(menu, "follow", XInLanguage(u"&Follow the End", u"&Suivre la fin"),
                                QKeySequence(Qt::CTRL | Qt::Key_E), [] {});
    follow->setCheckable(true);
    follow->setChecked(m_settings.m_isFollowing);
    connect(follow, &QAction::toggled, this, [this](bool isOn) {
        m_settings.m_isFollowing = isOn;
        m_view->SetFollowing(isOn);
    });
    connect(m_view, &LogView::FollowingChanged, follow, &QAction::setChecked);
    QAction* const numbers = Add(menu, "numbers", XInLanguage(u"&Line Numbers", u"&Num\u00e9ros de ligne"), {}, [] {});
    numbers->setCheckable(true);
    numbers->setChecked(m_settings.m_hasLineNumbers);
    connect(numbers, &QAction::toggled, this, [this](bool isOn) {
        m_settings.m_hasLineNumbers = isOn;
        m_view->SetLineNumbersVisible(isOn);
    });
    menu.addSeparator();
    Add(menu, "fold", XInLanguage(u"F&old", u"&Replier"), QKeySequence(Qt::CTRL | Qt::Key_Minus),
        [this] { m_view->Fold(); });
    Add(menu, "unfold", XInLanguage(u"&Unfold", u"&D\u00e9plier"), QKeySequence(Qt::CTRL | Qt::Key_Plus),
        [this] { m_view->Unfold(); });
    QMenu& depths = *menu.addMenu(XInLanguage(u"&Depth", u"Pro&fondeur"));
    auto* const depthGroup = new QActionGroup(this);
    for (int depth = 0; depth <= kDepths; ++depth)
    {
        const QString text =
            depth == 0 ? XInLanguage(u"&All Lines", u"&Toutes les lignes")
                       : XInLanguage(u"Indented by Fewer Than &%1 Tabs", u"Moins de &%1 tabulations").arg(depth);
        AddChoice(depths, *depthGroup, text, depth == 0, [this, depth] {
            m_columns = depth * kTabColumns;
            ApplyFilter();
        })->setObjectName(QStringLiteral("depth%1").arg(depth));
    }
    menu.addSeparator();
    const auto zoom = [this](int by) {
        return [this, by] { SetFontSize(qBound(6, m_view->fontInfo().pointSize() + by, 48)); };
    };
    Add(menu, "larger", XInLanguage(u"L&arger", u"&Agrandir"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Up),
        zoom(1));
    Add(menu, "smaller", XInLanguage(u"&Smaller", u"Ra&petisser"), QKeySequence(Qt::CTRL | Qt::SHIFT | Qt::Key_Down),
        zoom(-1));
    QMenu& themes = *menu.addMenu(XInLanguage(u"&Theme", u"&Th\u00e8me"));
    auto* const themeGroup = new QActionGroup(this);
    const std::pair<tev::ColorTheme, QString> choices[] = {
        {tev::ColorTheme::System, XInLanguage(u"As the &System", u"Celui du &syst\u00e8me")},
        {tev::ColorTheme::Light, XInLanguage(u"&Light", u"&Clair")},
        {tev::ColorTheme::Dark, XInLanguage(u"&Dark", u"Som&bre")}};
    for (const auto& [theme, text] : choices)
        AddChoice(themes, *themeGroup, text, theme == m_settings.m_theme, [this, theme = theme] {
            SetTheme(theme);
        })->setObjectName(QStringLiteral("theme%1").arg(static_cast<int>(theme)));
}

void LogWindow::MakeToolBars()
{
    const QString filterName = XInLanguage(u"Filter", u"Filtre");
    auto* const tools = new QToolBar(filterName, this);
    tools->setMovable(false);
    tools->setContextMenuPolicy(Qt::PreventContextMenu);
    auto* const label = new QLabel(filterName + u' ', tools);
    m_filter = new PatternField(filterName, tools);
    m_filter->GetEdit().setPlaceholderText(
        XInLanguage(u"Show only the lines that match", u"N'afficher que les lignes qui correspondent"));
    label->setBuddy(&m_filter->GetEdit());
    tools->addWidget(label);
    tools->addWidget(m_filter);
    addToolBar(tools);
    connect(m_filter, &PatternField::PatternChanged, &m_filterTimer, qOverload<>(&QTimer::start));
    connect(&m_filter->GetEdit(), &QLineEdit::returnPressed, this, [this] {
        ApplyFilter();
        m_view->setFocus();
    });

    const QString findName = XInLanguage(u"Find", u"Rechercher");
    auto* const finds = new QToolBar(findName, this);
    finds->setMovable(false);
    finds->setContextMenuPolicy(Qt::PreventContextMenu);
    m_findBar = finds;
    m_find = new PatternField(findName, finds);
    m_matches = new QLabel(finds);
    finds->addWidget(new QLabel(findName + u' ', finds));
    finds->addWidget(m_find);
    const auto addButton = [&](const QString& text, QStyle::StandardPixmap icon, Handler handler) {
        auto* const button = new QToolButton(finds);
        button->setIcon(style()->standardIcon(icon));
        button->setToolTip(text);
        button->setAccessibleName(text);
        button->setFocusPolicy(Qt::TabFocus);
        connect(button, &QToolButton::clicked, this, std::move(handler));
        finds->addWidget(button);
    };
    addButton(XInLanguage(u"Previous", u"Pr\u00e9c\u00e9dent"), QStyle::SP_ArrowUp, [this] { Find(-1); });
    addButton(XInLanguage(u"Next", u"Suivant"), QStyle::SP_ArrowDown, [this] { Find(1); });
    finds->addWidget(m_matches);
    addButton(XInLanguage(u"Close", u"Fermer"), QStyle::SP_TitleBarCloseButton, [this] { HideFind(); });
    addToolBar(Qt::BottomToolBarArea, finds);
    finds->hide();
    connect(m_find, &PatternField::PatternChanged, this, &LogWindow::ApplySearch);
    connect(&m_find->GetEdit(), &QLineEdit::returnPressed, this, [this] { Find(1); });
}
