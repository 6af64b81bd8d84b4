#include "qt/toolkit/Dialogs.h"

#include "qt/toolkit/ElidedLabel.h"
#include "qt/toolkit/QtText.h"

#include <QApplication>
#include <QCheckBox>
#include <QDesktopServices>
#include <QFileInfo>
#include <QFontDatabase>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QScreen>
#include <QStyle>
#include <QTextBlock>
#include <QUrl>
#include <QVBoxLayout>

#include <algorithm>

namespace
{
constexpr int kMessageColumns = 64;
constexpr int kLogColumns = 90;
constexpr int kLogRows = 26;

QIcon IconOf(const tev::MessageDialog::Content& content, const QStyle& style)
{
    using Severity = CUserInterface::Severity;
    if (content.m_isQuestion)
        return style.standardIcon(QStyle::SP_MessageBoxQuestion);
    switch (content.m_severity)
    {
    case Severity::Information:
        return style.standardIcon(QStyle::SP_MessageBoxInformation);
    case Severity::Warning:
        return style.standardIcon(QStyle::SP_MessageBoxWarning);
    case Severity::Error:
        break;
    }
    return style.standardIcon(QStyle::SP_MessageBoxCritical);
}

QSize SizeOfMessage(const QPlainTextEdit& view, const QString& text, int mostLines)
{
    constexpr int kMeasured = 4000;
    const QFontMetrics metrics = view.fontMetrics();
    const int width = metrics.averageCharWidth() * kMessageColumns;
    const QRect rectangle = metrics.boundingRect(QRect(0, 0, width, QWIDGETSIZE_MAX),
                                                 Qt::TextWordWrap | Qt::TextWrapAnywhere, text.left(kMeasured));
    const int margin = 2 * static_cast<int>(view.document()->documentMargin()) + 2 * view.frameWidth();
    const int height = std::min(rectangle.height() + metrics.lineSpacing() / 2, metrics.lineSpacing() * mostLines);
    return {std::clamp(rectangle.width() + 2 * metrics.averageCharWidth(), width / 2, width) + margin, height + margin};
}

/// Overwrites the characters where they are, also for those who share them.
void Wipe(const QString& text)
{
    volatile char16_t* const characters = reinterpret_cast<char16_t*>(const_cast<QChar*>(text.constData()));
    for (qsizetype i = 0; i < text.size(); ++i)
        characters[i] = 0;
}

/// What may be opened; empty for anything else, which could be a program.
QUrl TargetOf(const QString& link)
{
    const QString explore = QStringLiteral("explore:");
    if (link.startsWith(explore))
        return QUrl::fromLocalFile(QFileInfo(link.mid(explore.size())).absolutePath());
    const QUrl url(link);
    const QStringList opened = {QStringLiteral("http"), QStringLiteral("https"), QStringLiteral("mailto")};
    return opened.contains(url.scheme()) ? url : QUrl();
}
} // namespace

namespace tev
{
void ResizeToCharacters(QWidget& window, int columns, int rows)
{
    constexpr int kFrame = 48; // title and borders of the window
    const QFontMetrics metrics = window.fontMetrics();
    const QSize room = window.screen()->availableSize() - QSize(kFrame, kFrame);
    window.resize(QSize(metrics.averageCharWidth() * columns, metrics.lineSpacing() * rows).boundedTo(room));
}

QWidget* WindowOfNow()
{
    QWidget* const modal = QApplication::activeModalWidget();
    return modal != nullptr ? modal : QApplication::activeWindow();
}

TextView::TextView(const QString& accessibleName, QWidget* parent) : QPlainTextEdit(parent)
{
    setReadOnly(true);
    setTabChangesFocus(true);
    setTextInteractionFlags(Qt::TextSelectableByMouse | Qt::TextSelectableByKeyboard);
    setWordWrapMode(QTextOption::WrapAtWordBoundaryOrAnywhere);
    setUndoRedoEnabled(false);
    setAccessibleName(accessibleName);
}

void TextView::SetLines(const std::vector<XColoredLine>& lines)
{
    clear();
    QTextCursor cursor(document());
    cursor.beginEditBlock();
    bool isFirst = true;
    for (const XColoredLine& line : lines)
    {
        QTextCharFormat format;
        if (line.m_hasColor)
            format.setForeground(QColor(line.m_color[0], line.m_color[1], line.m_color[2]));
        if (!isFirst)
            cursor.insertBlock();
        isFirst = false;
        cursor.insertText(XToQString(line.m_text), format);
    }
    cursor.endEditBlock();
}

TextView* MakeMessageView(const QString& text, int mostLines)
{
    auto* const view = new TextView(text);
    view->setFrameShape(QFrame::NoFrame);
    view->viewport()->setAutoFillBackground(false);
    view->setPlainText(text);
    const QSize size = SizeOfMessage(*view, text, mostLines);
    view->setMinimumWidth(size.width());
    view->setFixedHeight(size.height());
    return view;
}

MessageDialog::MessageDialog(const Content& content, QDialogButtonBox::StandardButtons buttons,
                             QDialogButtonBox::StandardButton escape, QWidget* parent)
    : QDialog(parent)
{
    setWindowTitle(QApplication::applicationDisplayName());
    auto* const icon = new QLabel;
    const int iconSize = style()->pixelMetric(QStyle::PM_MessageBoxIconSize, nullptr, this);
    icon->setPixmap(IconOf(content, *style()).pixmap(iconSize));
    icon->setAlignment(Qt::AlignTop);

    auto* const box = new QDialogButtonBox(buttons);
    for (QAbstractButton* const button : box->buttons())
    {
        const int result = box->standardButton(button);
        connect(button, &QAbstractButton::clicked, this, [this, result] { done(result); });
    }
    connect(this, &QDialog::rejected, this, [this, escape] { setResult(escape); });
    auto* const row = new QHBoxLayout;
    row->addWidget(icon);
    row->addWidget(MakeMessageView(content.m_text), 1);
    auto* const layout = new QVBoxLayout(this);
    layout->setSizeConstraint(QLayout::SetFixedSize);
    layout->addLayout(row);
    layout->addWidget(box);
    if (QPushButton* const usual = box->button(escape)) // known as a button of this dialog only now
    {
        usual->setDefault(true);
        usual->setFocus();
    }
}

LinesDialog::LinesDialog(const std::vector<XColoredLine>& lines, QWidget* parent) : QDialog(parent)
{
    setWindowTitle(QApplication::applicationDisplayName());
    auto* const view = new TextView(XInLanguage(u"Messages", u"Messages"));
    view->SetLines(lines);
    auto* const box = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(box, &QDialogButtonBox::rejected, this, &QDialog::reject);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(view);
    layout->addWidget(box);
    ResizeToCharacters(*this, kLogColumns, kLogRows);
}

PasswordDialog::PasswordDialog(const QString& path, QWidget* parent) : QDialog(parent), m_password(new QLineEdit)
{
    setWindowTitle(QApplication::applicationDisplayName());
    m_password->setEchoMode(QLineEdit::Password);
    m_password->setInputMethodHints(Qt::ImhHiddenText | Qt::ImhSensitiveData | Qt::ImhNoPredictiveText);
    auto* const label = new QLabel(XInLanguage(u"&Password of this file:", u"&Mot de passe de ce fichier :"));
    label->setBuddy(m_password);
    m_password->setAccessibleName(XInLanguage(u"Password", u"Mot de passe"));
    auto* const show = new QCheckBox(XInLanguage(u"&Show the password", u"&Afficher le mot de passe"));
    connect(show, &QCheckBox::toggled, m_password,
            [this](bool isShown) { m_password->setEchoMode(isShown ? QLineEdit::Normal : QLineEdit::Password); });
    auto* const box = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel);
    connect(box, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(box, &QDialogButtonBox::rejected, this, &QDialog::reject);
    QPushButton* const accept = box->button(QDialogButtonBox::Ok);
    accept->setEnabled(false);
    connect(m_password, &QLineEdit::textChanged, accept,
            [accept](const QString& text) { accept->setEnabled(!text.isEmpty()); });

    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(label);
    layout->addWidget(new ElidedLabel(path));
    layout->addWidget(m_password);
    layout->addWidget(show);
    layout->addWidget(box);
    m_password->setFocus();
}

PasswordDialog::~PasswordDialog()
{
    Wipe(m_password->text());
    m_password->clear();
}

void PasswordDialog::TakePassword(CXTString<wchar_t>& password) const
{
    const QString text = m_password->text();
    wchar_t* const characters = password.GetBufferSetLength(static_cast<int>(text.size()));
    const qsizetype count = text.toWCharArray(characters);
    password.ReleaseBuffer(static_cast<int>(count));
}

Notification::Notification(const QString& title, const QString& text, const QString& link)
    : QDialog(nullptr, Qt::Dialog | Qt::WindowStaysOnTopHint)
{
    setAttribute(Qt::WA_DeleteOnClose);
    setAttribute(Qt::WA_ShowWithoutActivating);
    setAttribute(Qt::WA_QuitOnClose, true);
    connect(QCoreApplication::instance(), &QCoreApplication::aboutToQuit, this, &QWidget::close);
    setWindowTitle(title);
    auto* const layout = new QVBoxLayout(this);
    layout->addWidget(MakeMessageView(text));
    auto* const box = new QDialogButtonBox(QDialogButtonBox::Close);
    connect(box, &QDialogButtonBox::rejected, this, &QWidget::close);
    const QUrl target = TargetOf(link);
    if (!link.isEmpty())
        layout->addWidget(new ElidedLabel(target.isLocalFile() ? target.toLocalFile() : link));
    if (target.isValid())
    {
        const QString name = target.isLocalFile() ? XInLanguage(u"&Open the folder", u"&Ouvrir le dossier")
                                                  : XInLanguage(u"&Open", u"&Ouvrir");
        QPushButton* const open = box->addButton(name, QDialogButtonBox::ActionRole);
        connect(open, &QPushButton::clicked, this, [target] { QDesktopServices::openUrl(target); });
    }
    layout->addWidget(box);
}

void Notification::showEvent(QShowEvent* event)
{
    QDialog::showEvent(event);
    const QRect place = screen()->availableGeometry();
    int others = 0;
    for (const QWidget* const window : QApplication::topLevelWidgets())
        others += window != this && window->isVisible() && qobject_cast<const Notification*>(window) != nullptr;
    const int step = fontMetrics().lineSpacing() * 2;
    move(place.right() - frameGeometry().width() - step,
         place.bottom() - frameGeometry().height() - step * (others + 1));
}
} // namespace tev
