// Snapshot: lets a process run many schedules that all begin with the same memory (extenders).
#pragma once

namespace Zv::Simulated {

/// The memory of the process at one moment, which can be restored.
///
/// All private memory is made read-only, except the stack of the first thread. The first write to a
/// page raises a signal, whose handler copies the page and makes it writable. It stays writable, so
/// the schedules that follow write to it without a signal. `restore` copies all such pages back. A
/// hundred pages take less time than the fork of a process, which has to copy them as well.
///
/// What a system call writes must be in memory that the process has written to before.
class Snapshot
{
public:
    /// Makes the snapshot. There must be one thread of the system. The first thread, on whose stack
    /// the caller must be, owns the snapshot.
    Snapshot();
    Snapshot(Snapshot const &) = delete;
    Snapshot &operator=(Snapshot const &) = delete;

    /// Restores the memory, except the stack of the first thread. Returns false if something else
    /// has changed since the snapshot: the memory that is mapped, or the files that are open. Then
    /// the process must not be used again.
    [[nodiscard]] bool restore();

private:
    struct Pages;

    Pages *_pages;
};

} // namespace Zv::Simulated
