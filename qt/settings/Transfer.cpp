#include "qt/settings/Transfer.h"

#include "files/CXMemFile.h"
#include "objects/CXException.h"
#include "objects/LastFailure.h"
#include "objects/ThreadException.h"
#include "qt/settings/RegistrySource.h"
#include "qt/toolkit/QtText.h"
#include "settings/RegistryText.h"
#include "text/TextDetection.h"
#include "text/TextEncoding.h"
#include "threads/CCustomThread.h"

#include <QEventLoop>
#include <QFile>
#include <QProgressDialog>
#include <QPushButton>
#include <QSaveFile>
#include <QTimer>

#include <algorithm>
#include <atomic>
#include <memory>
#include <vector>

namespace tev::browser
{
TransferState::~TransferState() = default;

namespace
{
constexpr qint64 kStep = 1 << 20;
constexpr qint64 kLargestText = qint64{1} << 30;

class TransferThread : public CCustomThread, public TransferState
{
public:
    explicit TransferThread(const std::function<void(TransferState& state)>& run) : m_run(run) {}

    void SetProgress(int percent) override { m_percent.store(percent); }
    bool IsCancelled() const override { return MustTerminate() || ShouldCancel(); }
    bool StartLastStep() override
    {
        m_isInLastStep.store(true); // first, so that the window never offers what would be ignored
        return !IsCancelled();
    }
    bool IsInLastStep() const { return m_isInLastStep.load(); }
    int Percent() const { return m_percent.load(); }

protected:
    bool Run() override
    {
        m_run(*this);
        return true;
    }

private:
    const std::function<void(TransferState& state)>& m_run;
    std::atomic<int> m_percent{-1};
    std::atomic<bool> m_isInLastStep{false};
};

/// For the thread of the window.
class PlainState : public TransferState
{
public:
    void SetProgress(int) override {}
    bool IsCancelled() const override { return false; }
    bool StartLastStep() override { return true; }
};

QString SaveBytes(const QString& path, const char* bytes, qint64 size, TransferState& state)
{
    QSaveFile file(path); // replaces the old one when all is written
    if (!file.open(QIODevice::WriteOnly))
        return file.errorString();
    for (qint64 done = 0; done < size; done += kStep)
    {
        if (state.IsCancelled())
        {
            file.cancelWriting();
            return {};
        }
        file.write(bytes + done, std::min(kStep, size - done));
        state.SetProgress(static_cast<int>(done * 100 / size));
    }
    return file.commit() ? QString() : file.errorString();
}

/// The reason why it cannot be read.
QString ReadText(const QString& path, CXTString<wchar_t>& text, TransferState& state)
{
    QFile file(path);
    if (!file.open(QIODevice::ReadOnly))
        return file.errorString();
    if (file.size() > kLargestText)
        return RegistryErrorText(1450); // too large
    QByteArray bytes;
    while (!state.IsCancelled())
    {
        const QByteArray step = file.read(kStep);
        if (step.isEmpty())
            break;
        bytes += step;
        state.SetProgress(static_cast<int>(bytes.size() * 50 / std::max<qint64>(file.size(), bytes.size())));
    }
    if (file.error() != QFileDevice::NoError)
        return file.errorString();
    const auto size = static_cast<std::size_t>(bytes.size());
    const XTextMark mark = XFindTextMark(bytes.constData(), size);
    const xStringEncoding encoding = mark.m_size != 0 ? mark.m_encoding : xEncodingUtf8;
    if (!XDecodeText(bytes.constData() + mark.m_size, size - mark.m_size, encoding, text))
        return XInLanguage(u"The encoding of the text is unknown.", u"L'encodage du texte est inconnu.");
    return {};
}
} // namespace

QString ReasonOf(CXException* failure)
{
    const QString reason = XToQString(XGetExceptionText(failure));
    failure->Delete();
    XDeleteThreadException();
    return reason;
}

void RunHere(const std::function<void(TransferState& state)>& run)
{
    PlainState state;
    run(state);
}

bool RunTransfer(QWidget* parent, const QString& title, const std::function<void(TransferState& state)>& run)
{
    auto* const thread = new TransferThread(run);
    if (CXThread::BeginThread(thread, xThreadPriorityNormal, CXThread::kBeginWithoutAutoDelete, 0) == nullptr)
    {
        RunHere(run);
        return true;
    }
    const std::unique_ptr<TransferThread> owner(thread);
    QProgressDialog progress(title, XInLanguage(u"Cancel", u"Annuler"), 0, 0, parent);
    progress.setWindowTitle(title);
    progress.setWindowModality(Qt::WindowModal);
    progress.setMinimumDuration(500);
    progress.setAutoClose(false);
    progress.setAutoReset(false);
    QObject::connect(&progress, &QProgressDialog::canceled, [&owner] { owner->SetCancel(); });
    QEventLoop loop;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, &loop, [&] {
        if (owner->IsTerminated())
            loop.quit();
        else if (!progress.wasCanceled())
        {
            if (auto* const cancel = progress.findChild<QPushButton*>())
                cancel->setEnabled(!owner->IsInLastStep());
            progress.setMaximum(owner->Percent() >= 0 ? 100 : 0);
            progress.setValue(std::max(owner->Percent(), 0));
        }
    });
    timer.start(20);
    loop.exec();
    owner->SetCancel(); // where the program ends before it has
    while (!owner->WaitForEnd(1000))
        continue;
    unsigned exitCode = 1;
    return owner->GetExitCode(exitCode) && exitCode == 0;
}

QString ExportRegistryKey(const QString& key, const QString& file, TransferState& state)
{
    try
    {
        CXMemFile text;
        int systemError = 0;
        if (!XExportRegistry(XFromQString(key), text, xEncodingUtf16, systemError))
            return RegistryErrorText(systemError);
        if (state.IsCancelled())
            return {};
        std::vector<char> bytes(static_cast<std::size_t>(text.GetLength()));
        text.SeekToBegin();
        bytes.resize(text.Read(bytes.data(), static_cast<unsigned>(bytes.size())));
        return SaveBytes(file, bytes.data(), static_cast<qint64>(bytes.size()), state);
    }
    catch (CXException* failure)
    {
        return ReasonOf(failure);
    }
}

QString ImportRegistryText(const QString& file, TransferState& state)
{
    try
    {
        CXTString<wchar_t> text;
        const QString fault = ReadText(file, text, state);
        if (!fault.isEmpty() || state.IsCancelled())
            return fault;
        state.SetProgress(-1);
        if (!state.StartLastStep())
            return {};
        XRegistryImport result;
        if (XImportRegistry(text, result))
            return {};
        const QString line = result.m_line != 0 ? XInLanguage(u"line ", u"ligne ") + QString::number(result.m_line) +
                                                      QStringLiteral(": ")
                                                : QString();
        return line + (result.m_fault == XRegistryFault::Registry ? RegistryErrorText(result.m_systemError)
                                                                  : XToQString(XGetText(result.m_fault)));
    }
    catch (CXException* failure)
    {
        return ReasonOf(failure);
    }
}
} // namespace tev::browser
