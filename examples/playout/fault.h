// Devices that misbehave on request, to show what the program does about them.
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
        SILENT,          ///< returns, and never answers
        DROPS,           ///< destroys the completion instead of running it
        TWICE,           ///< answers twice
        RECOVERS,        ///< reports that it has lost its lock
        ABORTS           ///< reports an abort
    };

    /// Throws `std::invalid_argument` with a text that says what is wrong and what is possible.
    static Fault parse(std::string const &text);

    /// The word for a phase in a command line.
    static char const *getName(Phase phase);

    std::string device;
    Phase phase;
    Kind kind;
};

/// The faults of a run.
class Faults
{
public:
    /// Throws `std::invalid_argument` as `Fault::parse`, and if a device has a fault at that phase
    /// already.
    void add(std::string const &text);
    bool isEmpty() const { return _faults.empty(); }
    std::vector<Fault> const &getAll() const { return _faults; }
    std::optional<Fault::Kind> find(std::string const &device, Fault::Phase phase) const;

private:
    std::vector<Fault> _faults;
};

/// Does what a fault asks for as soon as the phase begins: throws, does not return, or returns
/// late. `device` is named in what is thrown. Other kinds are the caller's.
void beginFault(std::optional<Fault::Kind> kind, std::string const &device, Fault::Phase phase);
