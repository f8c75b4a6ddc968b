// The sequence machine as a table: its states, its transitions, and what each event leads to.
#pragma once

namespace Zv::SeqMachine {

/// In a state, an event runs a transition, which leads to the next state. Several rows of one state
/// and event are a choice. They are tried in this order.
struct Row
{
    char const *state;
    char const *event;
    char const *transition;
    char const *next;
};

inline constexpr char const *states[] = {"init", "start",   "wsr", "ready", "wml",   "sync",
                                         "lock", "recover", "wss", "stop",  "abort", "final"};

inline constexpr char const *transitions[] = {
    "start", "psready", "wsr",  "wsrret", "ready",   "wml",   "sync",    "lock",  "recover",
    "wss",   "wssret",  "stop", "pstop",  "stopped", "abort", "aborted", "ignore"};

inline constexpr Row rows[] = {
    {"init", "start", "start", "start"},
    {"start", "ready", "ready", "ready"},
    {"start", "ready", "wsr", "wsr"},
    {"start", "sready", "psready", "start"},
    {"start", "stop", "pstop", "start"},
    {"wsr", "sready", "wsrret", "wsr"},
    {"wsr", "sready", "ready", "ready"},
    {"wsr", "stop", "pstop", "wsr"},
    {"ready", "proceed", "sync", "sync"},
    {"ready", "proceed", "wml", "wml"},
    {"ready", "stop", "pstop", "ready"},
    {"wml", "mlock", "sync", "sync"},
    {"wml", "stop", "pstop", "wml"},
    {"sync", "lock", "lock", "lock"},
    {"sync", "stop", "pstop", "sync"},
    {"lock", "stop", "stop", "stop"},
    {"lock", "stop", "wss", "wss"},
    {"lock", "recover", "recover", "recover"},
    {"lock", "sready", "lock", "lock"},
    {"lock", "mlock", "ignore", "lock"},
    {"recover", "ready", "ready", "ready"},
    {"recover", "ready", "wsr", "wsr"},
    {"recover", "sready", "psready", "recover"},
    {"recover", "stop", "pstop", "recover"},
    {"wss", "sstopped", "wssret", "wss"},
    {"wss", "sstopped", "stop", "stop"},
    {"stop", "stopped", "stopped", "final"},
    {"abort", "aborted", "aborted", "final"},
};

inline constexpr char const *abortable[] = {"start", "wsr",     "ready", "wml", "sync",
                                            "lock",  "recover", "wss",   "stop"};

} // namespace Zv::SeqMachine
