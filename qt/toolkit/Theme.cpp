#include "qt/toolkit/Theme.h"

#include "qt/toolkit/QtText.h"
#include "services/ApplicationName.h"
#include "text/Language.h"
#include "ui/CLogInfo.h"

#include <QApplication>
#include <QIcon>
#include <QLibraryInfo>
#include <QLocale>
#include <QPalette>
#include <QTranslator>
#include <QWidget>

#include <cstdio>
#include <cstdlib>

namespace
{
struct PaletteRow
{
    QPalette::ColorRole m_role;
    QRgb m_light;
    QRgb m_dark;
};

constexpr PaletteRow kPalette[] = {
    {QPalette::Window, 0xFFEFEFEF, 0xFF2B2B2B},      {QPalette::WindowText, 0xFF000000, 0xFFE6E6E6},
    {QPalette::Base, 0xFFFFFFFF, 0xFF1E1E1E},        {QPalette::AlternateBase, 0xFFF7F7F7, 0xFF262626},
    {QPalette::Text, 0xFF000000, 0xFFE6E6E6},        {QPalette::PlaceholderText, 0xFF6E6E6E, 0xFF9A9A9A},
    {QPalette::Button, 0xFFEFEFEF, 0xFF3A3A3A},      {QPalette::ButtonText, 0xFF000000, 0xFFE6E6E6},
    {QPalette::BrightText, 0xFFFFFFFF, 0xFFFFFFFF},  {QPalette::Light, 0xFFFFFFFF, 0xFF555555},
    {QPalette::Midlight, 0xFFCACACA, 0xFF484848},    {QPalette::Mid, 0xFFB8B8B8, 0xFF333333},
    {QPalette::Dark, 0xFF9F9F9F, 0xFF151515},        {QPalette::Shadow, 0xFF767676, 0xFF000000},
    {QPalette::Highlight, 0xFF2A6FC9, 0xFF2F6CB3},   {QPalette::HighlightedText, 0xFFFFFFFF, 0xFFFFFFFF},
    {QPalette::Link, 0xFF0B57C4, 0xFF6CB2FF},        {QPalette::LinkVisited, 0xFF7A3EB1, 0xFFC39BEF},
    {QPalette::ToolTipBase, 0xFFFFFFDC, 0xFF3A3A3A}, {QPalette::ToolTipText, 0xFF000000, 0xFFE6E6E6},
};

QPalette PaletteOf(bool isDark)
{
    QPalette palette;
    for (const PaletteRow& row : kPalette)
    {
        const QColor color = QColor::fromRgb(isDark ? row.m_dark : row.m_light);
        palette.setColor(QPalette::All, row.m_role, color);
    }
    const QColor disabled = QColor::fromRgb(isDark ? 0xFF808080 : 0xFF9A9A9A);
    for (const QPalette::ColorRole role : {QPalette::WindowText, QPalette::Text, QPalette::ButtonText})
        palette.setColor(QPalette::Disabled, role, disabled);
    return palette;
}
} // namespace

namespace tev
{
void SetColorTheme(ColorTheme theme)
{
    QApplication::setPalette(theme == ColorTheme::System ? QPalette() : PaletteOf(theme == ColorTheme::Dark));
}

bool IsDark(const QPalette& palette)
{
    return palette.color(QPalette::Text).lightness() > palette.color(QPalette::Base).lightness();
}

bool IsDarkTheme()
{
    return qobject_cast<QApplication*>(QCoreApplication::instance()) != nullptr && IsDark(QApplication::palette());
}

QColor LevelColor(unsigned int level, bool isDark)
{
    CRGBColor color;
    return CLogInfo::GetColor(level, isDark, color) ? QColor(color[0], color[1], color[2]) : QColor();
}

void FollowLanguage()
{
    static bool isFrench = false;
    static QTranslator* translator = nullptr; // owned by the application
    QCoreApplication* const application = QCoreApplication::instance();
    const bool wantsFrench = XGetLanguage() == XLanguage::French;
    if (application == nullptr || (wantsFrench == isFrench && translator != nullptr))
        return;
    delete translator;
    isFrench = wantsFrench;
    translator = new QTranslator(application);
    QObject::connect(translator, &QObject::destroyed, [] { translator = nullptr; });
    const QString file = isFrench ? QStringLiteral("qtbase_fr") : QStringLiteral("qtbase_en");
    if (translator->load(file, QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
        QCoreApplication::installTranslator(translator);
    QLocale::setDefault(isFrench ? QLocale(QLocale::French) : QLocale(QLocale::English));
}

void EndWithoutDisplay()
{
    qInstallMessageHandler([](QtMsgType type, const QMessageLogContext&, const QString& message) {
        std::fprintf(stderr, "%s\n", qUtf8Printable(message));
        if (type == QtFatalMsg)
            std::_Exit(1);
    });
}

bool RaiseDialog()
{
    QWidget* const dialog = QApplication::activeModalWidget();
    if (dialog == nullptr)
        return false;
    dialog->raise();
    dialog->activateWindow();
    return true;
}

void SetUpProgram(const QString& name, const QString& title)
{
    XSetApplicationName(XFromQString(name));
    QApplication::setApplicationName(name);
    QApplication::setApplicationDisplayName(title);
    QApplication::setDesktopFileName(name);
    QApplication::setWindowIcon(QIcon::fromTheme(name));
    FollowLanguage();
}
} // namespace tev
