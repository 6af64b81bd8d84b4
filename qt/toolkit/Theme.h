#pragma once

#include "qt/toolkit/QtExport.h"

#include <QColor>
#include <QString>

class QPalette;

// What the windows of the desktop have in common. For the window thread only.
namespace tev
{
enum class ColorTheme
{
    System,
    Light,
    Dark
};

/// Gives the whole application the colours of a theme; those of the system come back with ColorTheme::System.
TEVTOOLS_QT_API void SetColorTheme(ColorTheme theme);

/// Whether texts are lighter than their background.
TEVTOOLS_QT_API bool IsDark(const QPalette& palette);
/// That of the application. False without one.
TEVTOOLS_QT_API bool IsDarkTheme();

/// The colour of a line with this level (IoLogInfo) in the theme; invalid for a level that has none.
TEVTOOLS_QT_API QColor LevelColor(unsigned int level, bool isDark);

/// Loads Qt's own texts, such as those of its buttons and of the dialogs for files, in the library's language. To be called
/// again where that may have changed; does nothing where it has not.
TEVTOOLS_QT_API void FollowLanguage();

/// Has a program end with exit code 1 and the reason on the standard error where it finds no display; Qt would abort. To be
/// called before its QApplication is made.
TEVTOOLS_QT_API void EndWithoutDisplay();

/// Brings a dialog that is open to the front; false where none is.
TEVTOOLS_QT_API bool RaiseDialog();

/// Sets up a program of the desktop: its names, icon and desktop file, and the language of Qt's texts. `name` is that of the
/// program and its icon, `title` is for people.
TEVTOOLS_QT_API void SetUpProgram(const QString& name, const QString& title);
} // namespace tev
