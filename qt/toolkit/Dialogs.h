#pragma once

#include "qt/toolkit/QtExport.h"
#include "ui/CUserInterface.h"

#include <QDialog>
#include <QDialogButtonBox>
#include <QPlainTextEdit>

class QLineEdit;

// The dialogs of the library. Each has the title of the application, and can be used by keyboard alone.
namespace tev
{
/// Resizes a window to so many characters of its font, where the screen has room for them.
TEVTOOLS_QT_API void ResizeToCharacters(QWidget& window, int columns, int rows);

/// The window that a new dialog belongs to; null for none.
QWidget* WindowOfNow();

/// A text to be read, selected and copied: wrapped wherever it is necessary, in colours where it has some.
class TEVTOOLS_QT_API TextView : public QPlainTextEdit
{
    Q_OBJECT

public:
    explicit TextView(const QString& accessibleName, QWidget* parent = nullptr);

    void SetLines(const std::vector<XColoredLine>& lines);
};

/// A view of a message, as high as the text, which is scrolled where it has more lines.
TextView* MakeMessageView(const QString& text, int mostLines = 20);

/// A text with buttons; a long one is scrolled. Pressing Escape or closing the window is `escape`.
class MessageDialog : public QDialog
{
    Q_OBJECT

public:
    struct Content
    {
        CUserInterface::Severity m_severity = CUserInterface::Severity::Information;
        bool m_isQuestion = false;
        QString m_text;
    };

    MessageDialog(const Content& content, QDialogButtonBox::StandardButtons buttons,
                  QDialogButtonBox::StandardButton escape, QWidget* parent);
};

/// Lines in their colours.
class LinesDialog : public QDialog
{
    Q_OBJECT

public:
    LinesDialog(const std::vector<XColoredLine>& lines, QWidget* parent);
};

class PasswordDialog : public QDialog
{
    Q_OBJECT

public:
    PasswordDialog(const QString& path, QWidget* parent);
    ~PasswordDialog() override;

    /// Makes no other copy of it.
    void TakePassword(CXTString<wchar_t>& password) const;

private:
    QLineEdit* m_password;
};

/// A small window in the corner of the screen, which nobody waits for.
class Notification : public QDialog
{
    Q_OBJECT

public:
    Notification(const QString& title, const QString& text, const QString& link);

protected:
    void showEvent(QShowEvent* event) override;
};
} // namespace tev
