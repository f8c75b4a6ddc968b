// Faults that devices have on request, to show how the program handles them.
#pragma once

#include <optional>
#include <string>
#include <vector>

/// One device, a phase of its life, and how it misbehaves then: "recorder:start:hangs".
struct Fault
{
    enum class Phase
    {
        OPEN,
        START,
        READY, ///< it is asked for its latency
        SYNC,
        LOCK,    ///< it runs, and works on its first block
        RECOVER, ///< it loses its lock at its first block, and is told to recover
        STOP,
        ABORT, ///< it reports an abort at its first block, and is told to abort
        CLOSE
    };
    enum class Kind
    {
        FAILS,           ///< throws a `PlayoutEx`
        FAILS_OTHERWISE, ///< throws an exception that is no `Zv::ExBase`
        HANGS,           ///< does not return until the process ends
        SLOW,            ///< returns late
        SILENT,          ///< returns, and never runs its completion
        DROPS,           ///< destroys the completion instead of running it
        TWICE,           ///< runs its completion twice
        RECOVERS,        ///< reports that it has lost its lock
        ABORTS           ///< reports an abort
    };

    /// Throws `std::invalid_argument` with a text that says what is wrong and what is possible.
    static Fault parse(std::string const &text);

    /// Returns the name of a phase on the command line.
    static char const *getName(Phase phase);

    std::string device;
    Phase phase;
    Kind kind;
};

/// The faults of a run.
class Faults
{
public:
    /// Throws `std::invalid_argument` as `Fault::parse` does, and if the device already has a fault
    /// in that phase.
    void add(std::string const &text);
    bool isEmpty() const { return _faults.empty(); }
    std::vector<Fault> const &getAll() const { return _faults; }
    std::optional<Fault::Kind> find(std::string const &device, Fault::Phase phase) const;

private:
    std::vector<Fault> _faults;
};

/// Carries out a fault that takes effect when the phase begins: throws, does not return, or returns
/// late. The exception names `device`. The caller must carry out the other kinds.
void beginFault(std::optional<Fault::Kind> kind, std::string const &device, Fault::Phase phase);
