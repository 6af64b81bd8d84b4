#pragma once

#include "objects/CXCriticalSection.h"
#include "qt/settings/PreferenceContent.h"

#include <memory>
#include <optional>

namespace tev::browser
{
/// Reads a large preference file on a thread, which exists only while there is something to read. The lists that it returns are
/// ready when they were read; what nobody waits for any more is not read.
class PreferenceReader
{
public:
    explicit PreferenceReader(const QString& path);
    /// What is being read is given up, and its thread ends soon; it is not waited for.
    ~PreferenceReader();
    PreferenceReader(const PreferenceReader&) = delete;
    PreferenceReader& operator=(const PreferenceReader&) = delete;

    std::unique_ptr<Lister> ListNodes(const Place& place) { return Ask(place, true); }
    std::unique_ptr<Lister> ListValues(const Place& place) { return Ask(place, false); }
    /// What is asked for from now on is read anew.
    void Refresh();
    /// Gives up what is asked for: the lists end, and their fault says why.
    void Cancel();
    /// In per cent, a negative number where it is not known. Nothing while nothing is read.
    std::optional<int> GetProgress() const;
    /// What was read last; null for nothing.
    std::shared_ptr<const PreferenceListing> GetListing() const;
    /// The store of a place, while a list of its values is held. Null where it was not read.
    std::shared_ptr<const CCustomData> GetStore(const Place& place) const;

private:
    struct Request;
    struct Work;
    class Thread;
    class Answer;

    std::unique_ptr<Lister> Ask(const Place& place, bool isOfNodes);

    const std::shared_ptr<Work> m_work; // of the thread, too
};
} // namespace tev::browser
