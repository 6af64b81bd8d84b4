#include "qt/toolkit/Theme.h"

#include "text/Language.h"

#include <QApplication>
#include <QPalette>
#include <gmock/gmock.h>

TEST(Theme, DarkLightAndBackToThatOfTheSystem)
{
    const QPalette before = QApplication::palette();
    tev::SetColorTheme(tev::ColorTheme::Dark);
    EXPECT_TRUE(tev::IsDarkTheme());
    tev::SetColorTheme(tev::ColorTheme::Light);
    EXPECT_FALSE(tev::IsDarkTheme());
    tev::SetColorTheme(tev::ColorTheme::System);
    EXPECT_EQ(QApplication::palette(), before);
}

TEST(Theme, LevelsHaveTheDocumentedColours)
{
    EXPECT_EQ(QColor(0, 0, 192), tev::LevelColor(1, false));
    EXPECT_EQ(QColor(255, 128, 0), tev::LevelColor(6, false));
    EXPECT_EQ(QColor(245, 87, 98), tev::LevelColor(4, true));
    EXPECT_NE(QColor(160, 213, 52), tev::LevelColor(1, true)); // darkened
    EXPECT_FALSE(tev::LevelColor(8, false).isValid());
}

TEST(Theme, QtsOwnTextsFollowTheLanguage)
{
    const XLanguage before = XGetLanguage();
    const auto cancel = [](XLanguage language) {
        XSetLanguage(language);
        tev::FollowLanguage();
        return QCoreApplication::translate("QPlatformTheme", "Cancel");
    };
    EXPECT_EQ(QStringLiteral("Annuler"), cancel(XLanguage::French));
    EXPECT_EQ(QStringLiteral("Cancel"), cancel(XLanguage::English));
    EXPECT_EQ(QStringLiteral("Annuler"), cancel(XLanguage::French));
    cancel(before);
}
