#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <unordered_map>
#include <vector>

#include <sys/inotify.h>

namespace tev::platform
{
/// Events in the order of the queue, read together so that what follows a rename can be looked up. One thread at a time.
class EventBatch
{
public:
    static constexpr std::size_t kNone = ~std::size_t{0};

    /// Replaces the batch by all events that wait.
    void Read(int descriptor);

    std::size_t Size() const noexcept { return m_events.size(); }
    const inotify_event& operator[](std::size_t index) const noexcept { return *m_events[index]; }

    bool HasRenamedFolders() const;
    /// The second half of a rename, kNone when it is not in the batch.
    std::size_t ArrivalOf(std::uint32_t cookie) const;
    /// The next half of a rename in one of two folders after an event, among the events that follow closely; else kNone.
    std::size_t NextRename(std::size_t index, int number, int otherNumber) const;
    /// Whether an event after the given one is about that name.
    bool IsNamedAfter(std::size_t index, int number, const std::string& name) const;
    /// The first of two folders that reports its own move after an event and before the next rename; -1 for neither.
    int FirstMovedAfter(std::size_t index, int number, int otherNumber) const;

private:
    bool Append(int descriptor);
    void Index();
    bool MayBeIncomplete() const;

    std::vector<char> m_bytes;
    std::vector<const inotify_event*> m_events;
    std::unordered_map<std::uint32_t, std::size_t> m_arrivals; // by cookie
};

/// A folder that the system watches under a number. All of them are WatchedFolder objects.
struct NumberedFolder
{
    int m_number = -1; ///< -1 while the system does not watch it
};

/// The one event queue of the process, since the system allows a user few of them, and the folders by the system's numbers.
/// One folder may be part of several trees. Used with the lock of all watches held.
class InotifyQueue
{
public:
    bool Open();
    /// Which ends all that the system watches.
    void Close() noexcept;

    void Read(EventBatch& batch) const { batch.Read(m_descriptor); }

    /// The system's number of the folder at a path, which it watches from now on; -1 with the error in errno.
    int NumberOf(const char* path, std::uint32_t mask);
    void Bind(NumberedFolder& folder, int number);
    /// The system watches the folder until ReleaseUnused, so that it may be bound again.
    void Unbind(NumberedFolder& folder) noexcept;
    /// Replaces the folders by those that are bound to the number.
    void FoldersOf(int number, std::vector<NumberedFolder*>& folders) const;
    bool IsBound(int number, const NumberedFolder* folder) const;
    /// Ends the watches of numbers to which no folder is bound.
    void ReleaseUnused() noexcept;

private:
    void ReserveUnused();

    int m_descriptor = -1;
    std::unordered_multimap<int, NumberedFolder*> m_folders;
    std::vector<int> m_unused; // numbers that may have no folder
};
} // namespace tev::platform
