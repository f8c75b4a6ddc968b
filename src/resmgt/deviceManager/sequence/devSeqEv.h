// The events of the machine that every device runs.
#pragma once

#include "resmgt/export.h"

#include <cstdint>

namespace Zv {

/// The events of the sequence machine. Their values are the machine's own numbers.
class ZVRESMGT_EXPORT DevSeqEv
{
public:
    enum Event : std::int32_t
    {
        START,    ///< the caller, at the root; a parent, to its children
        READY,    ///< the device: it has started, or recovered
        SREADY,   ///< a child, to its parent: its whole subtree is ready
        PROCEED,  ///< the node, to itself: its subtree is ready, go on
        LOCK,     ///< the device: it has locked
        MLOCK,    ///< a parent, to its children: lock to my mark
        RECOVER,  ///< the device, whenever it wants to; a parent, to its children
        STOP,     ///< the caller, at the root; a parent, to its children
        STOPPED,  ///< the device: it has stopped
        SSTOPPED, ///< a child, to its parent: its whole subtree has stopped
        ABORT,    ///< the device, whenever it has to
        ABORTED   ///< the device: it has aborted
    };

    /// The events' names.
    struct Names
    {
        char const *start;
        char const *ready;
        char const *sready;
        char const *proceed;
        char const *lock;
        char const *mlock;
        char const *recover;
        char const *stop;
        char const *stopped;
        char const *sstopped;
        char const *abort;
        char const *aborted;
    };
    static Names const &getNames();

    DevSeqEv() = delete;
};

} // namespace Zv
