#include "qt/toolkit/CQtUserInterface.h"

#include "crash/CCrashHandler.h"
#include "objects/CXException.h"
#include "qt/toolkit/Dialogs.h"
#include "qt/toolkit/QtText.h"
#include "qt/toolkit/ReportDialog.h"
#include "qt/toolkit/Theme.h"
#include "qt/toolkit/WindowThread.h"

#include <QApplication>
#include <QDir>
#include <QEvent>
#include <QFileDialog>
#include <QStandardPaths>

#include <exception>
#include <optional>

/// Also looks after the theme, which any thread may ask for.
class CQtUserInterface::Windows : public tev::WindowThread
{
public:
    Windows()
    {
        if (QCoreApplication::instance() != nullptr)
            QCoreApplication::instance()->installEventFilter(this);
        m_isDark.store(tev::IsDarkTheme());
    }

    bool IsDark() const noexcept { return m_isDark.load(); }

protected:
    bool eventFilter(QObject* watched, QEvent* event) override
    {
        if (event->type() == QEvent::ApplicationPaletteChange)
            m_isDark.store(tev::IsDarkTheme());
        return WindowThread::eventFilter(watched, event);
    }

private:
    std::atomic<bool> m_isDark{false};
};

namespace
{
using Text = CXTString<wchar_t>;

/// Is overwritten at its end.
struct SecretText
{
    SecretText() = default;
    ~SecretText()
    {
        volatile wchar_t* const characters = m_text.GetBufferSetLength(m_text.GetLength());
        for (int i = 0; i < m_text.GetLength(); ++i)
            characters[i] = 0;
    }
    SecretText(const SecretText&) = delete;
    SecretText& operator=(const SecretText&) = delete;

    Text m_text;
};

/// What `ask` answers; nothing where it throws.
template <class ASK>
auto AnswerOf(ASK&& ask) -> decltype(ask())
{
    try
    {
        return ask();
    }
    catch (CXException* exception)
    {
        exception->Delete();
    }
    catch (const std::exception&)
    {
    }
    return {};
}

/// The window at the pointer, where it still is one.
QWidget* ExistingWidget(const void* pointer)
{
    for (QWidget* const widget : QApplication::allWidgets())
    {
        if (widget == pointer)
            return widget;
    }
    return nullptr;
}

QFileDialog* MakeSaveDialog(const QString& filter, const QString& proposed)
{
    auto* const dialog = new QFileDialog(tev::WindowOfNow());
    dialog->setAcceptMode(QFileDialog::AcceptSave);
    dialog->setFileMode(QFileDialog::AnyFile);
    dialog->setNameFilter(filter);
    // That of "Zip files (*.zip)".
    dialog->setDefaultSuffix(filter.section(QStringLiteral("*."), 1, 1).section(u' ', 0, 0).section(u')', 0, 0));
    if (QFileInfo(proposed).isRelative())
        dialog->setDirectory(QStandardPaths::writableLocation(QStandardPaths::DocumentsLocation));
    dialog->selectFile(proposed);
    return dialog;
}
} // namespace

CQtUserInterface::CQtUserInterface() : m_windows(std::make_unique<Windows>())
{
    tev::FollowLanguage();
    XSetCrashDialog(true);
    // Once the event loop runs, which a host starts after it has installed this and the crash handler.
    QMetaObject::invokeMethod(
        m_windows.get(), [] { XOfferLeftReports(); }, Qt::QueuedConnection);
}

CQtUserInterface::~CQtUserInterface()
{
    XSetCrashDialog(false);
}

void CQtUserInterface::SetPatience(unsigned int milliseconds)
{
    m_windows->SetPatience(milliseconds);
}

void CQtUserInterface::ShowMessage(Severity severity, const Text& text)
{
    const auto shown = AnswerOf([&] {
        return m_windows->Ask<bool>([windows = m_windows.get(), severity, text]() -> std::optional<bool> {
            tev::FollowLanguage();
            windows->Exec(new tev::MessageDialog({severity, false, XToQString(text)}, QDialogButtonBox::Ok,
                                                 QDialogButtonBox::Ok, tev::WindowOfNow()));
            return true;
        });
    });
    if (!shown)
        CUserInterface::ShowMessage(severity, text);
}

bool CQtUserInterface::AskYesNo(const Text& question, bool safeAnswer)
{
    const auto answer = AnswerOf([&] {
        return m_windows->Ask<bool>([windows = m_windows.get(), question, safeAnswer]() -> std::optional<bool> {
            tev::FollowLanguage();
            const auto safe = safeAnswer ? QDialogButtonBox::Yes : QDialogButtonBox::No;
            const int button = windows->Exec(new tev::MessageDialog({Severity::Information, true, XToQString(question)},
                                                                    QDialogButtonBox::Yes | QDialogButtonBox::No, safe,
                                                                    tev::WindowOfNow()));
            return button == 0 ? safeAnswer : button == QDialogButtonBox::Yes;
        });
    });
    return answer ? *answer : CUserInterface::AskYesNo(question, safeAnswer);
}

XReportAnswer CQtUserInterface::AskAboutReport(const Text& introduction, const std::vector<XReportFile>& files)
{
    const auto answer = AnswerOf([&] {
        return m_windows->Ask<XReportAnswer>(
            [windows = m_windows.get(), introduction, files]() -> std::optional<XReportAnswer> {
                tev::FollowLanguage();
                auto* const dialog = new tev::ReportDialog(introduction, files, tev::WindowOfNow());
                XReportAnswer given;
                windows->Exec(dialog, [&](int) { given = dialog->Answer(); });
                return given;
            });
    });
    return answer ? *answer : CUserInterface::AskAboutReport(introduction, files);
}

bool CQtUserInterface::AskForSavePath(const Text& filter, CPathString& path)
{
    const auto answer = AnswerOf([&] {
        return m_windows->Ask<Text>([windows = m_windows.get(), filter, path]() -> std::optional<Text> {
            tev::FollowLanguage();
            QFileDialog* const dialog = MakeSaveDialog(XToQString(filter), XToQString(path));
            Text chosen;
            windows->Exec(dialog, [&](int result) {
                if (result == QDialog::Accepted && !dialog->selectedFiles().isEmpty())
                    chosen = XFromQString(dialog->selectedFiles().constFirst());
            });
            return chosen;
        });
    });
    if (!answer)
        return CUserInterface::AskForSavePath(filter, path);
    if (answer->IsEmpty())
        return false;
    path = *answer;
    return true;
}

void CQtUserInterface::Notify(const Text& title, const Text& text, const Text& link)
{
    const auto posted = AnswerOf([&] {
        const bool isPosted = m_windows->Post([title, text, link] {
            tev::FollowLanguage();
            (new tev::Notification(XToQString(title), XToQString(text), XToQString(link)))->show();
        });
        return isPosted ? std::optional<bool>(true) : std::nullopt;
    });
    if (!posted)
        CUserInterface::Notify(title, text, link);
}

void CQtUserInterface::ShowLines(const std::vector<XColoredLine>& lines, void* parent)
{
    const auto shown = AnswerOf([&] {
        return m_windows->Ask<bool>([windows = m_windows.get(), lines, parent]() -> std::optional<bool> {
            tev::FollowLanguage();
            QWidget* const owner = ExistingWidget(parent);
            windows->Exec(new tev::LinesDialog(lines, owner != nullptr ? owner : tev::WindowOfNow()));
            return true;
        });
    });
    if (!shown)
        CUserInterface::ShowLines(lines, parent);
}

bool CQtUserInterface::IsDarkTheme()
{
    return m_windows->IsDark();
}

bool CQtUserInterface::AskForPassword(const CPathString& file, Text& password)
{
    using Secret = std::shared_ptr<SecretText>; // one copy, which is overwritten
    const auto answer = AnswerOf([&] {
        return m_windows->Ask<Secret>([windows = m_windows.get(), file]() -> std::optional<Secret> {
            tev::FollowLanguage();
            auto* const dialog = new tev::PasswordDialog(XToQString(file), tev::WindowOfNow());
            const auto given = std::make_shared<SecretText>();
            windows->Exec(dialog, [&](int result) {
                if (result == QDialog::Accepted)
                    dialog->TakePassword(given->m_text);
            });
            return given;
        });
    });
    if (!answer)
        return CUserInterface::AskForPassword(file, password);
    if ((*answer)->m_text.IsEmpty())
        return false;
    password = (*answer)->m_text;
    return true;
}

bool CQtUserInterface::CanAsk()
{
    return m_windows->IsReady();
}
