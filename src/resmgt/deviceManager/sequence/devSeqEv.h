// Events of the sequence machine (extenders).
#pragma once

#include "resmgt/export.h"

#include <cstdint>

namespace Zv {

/// The events of the sequence machine, and their names. The values are the numbers in the machine's
/// table.
class ZVRESMGT_EXPORT DevSeqEv
{
public:
    /// The events. Their values are the numbers in the table.
    enum Event : std::int32_t
    {
        START,    ///< from the client to the root, and from a parent to its children
        READY,    ///< from the device, when it has started or recovered
        SREADY,   ///< from a child to its parent, when its whole subtree is ready
        PROCEED,  ///< from a node to itself, when its whole subtree is ready
        LOCK,     ///< from the device, when it has locked
        MLOCK,    ///< from a parent to its children, which then lock to its mark
        RECOVER,  ///< from the device, at any time, and from a parent to its children
        STOP,     ///< from the client to the root, and from a parent to its children
        STOPPED,  ///< from the device, when it has stopped
        SSTOPPED, ///< from a child to its parent, when its whole subtree has stopped
        ABORT,    ///< from the device, at any time
        ABORTED   ///< from the device, when it has aborted
    };

    /// The names of the events.
    struct Names
    {
        char const *start;    ///< name of `START`
        char const *ready;    ///< name of `READY`
        char const *sready;   ///< name of `SREADY`
        char const *proceed;  ///< name of `PROCEED`
        char const *lock;     ///< name of `LOCK`
        char const *mlock;    ///< name of `MLOCK`
        char const *recover;  ///< name of `RECOVER`
        char const *stop;     ///< name of `STOP`
        char const *stopped;  ///< name of `STOPPED`
        char const *sstopped; ///< name of `SSTOPPED`
        char const *abort;    ///< name of `ABORT`
        char const *aborted;  ///< name of `ABORTED`
    };
    /// Returns the names. They stay valid until the process ends.
    static Names const &getNames();

    DevSeqEv() = delete;
};

} // namespace Zv
