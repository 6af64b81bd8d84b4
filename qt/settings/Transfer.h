#pragma once

#include <QString>

#include <functional>

class CXException;
class QWidget;

namespace tev::browser
{
/// What a long operation asks and says while it runs.
class TransferState
{
public:
    virtual ~TransferState();
    /// From 0 to 100; a negative number where it is not known.
    virtual void SetProgress(int percent) = 0;
    virtual bool IsCancelled() const = 0;
    /// Begins what cannot be cancelled. False where it was cancelled before.
    [[nodiscard]] virtual bool StartLastStep() = 0;
};

/// Runs an operation on a thread, with a window that shows its progress and can cancel it once it takes long. Returns when it
/// has ended. Where no thread can be had it runs on this one. False when the operation ended by an exception.
[[nodiscard]] bool RunTransfer(QWidget* parent, const QString& title,
                               const std::function<void(TransferState& state)>& run);

/// Runs it on this thread, without a window.
void RunHere(const std::function<void(TransferState& state)>& run);

/// What was caught, as a person reads it; it is over then.
QString ReasonOf(CXException* failure);

/// The reason why it failed, empty for none. A cancelled one leaves everything as it was.
QString ExportRegistryKey(const QString& key, const QString& file, TransferState& state);
QString ImportRegistryText(const QString& file, TransferState& state);
} // namespace tev::browser
