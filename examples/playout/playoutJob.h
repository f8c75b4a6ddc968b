// State of a recording, shared by the client and the devices.
#pragma once

#include "cues.h"
#include "fault.h"
#include "journal.h"
#include "memoryFigures.h"
#include "show.h"
#include "soundCard.h"
#include "timeline.h"

#include <resmgt/deviceManager.h>
#include <resmgt/locks.h>
#include <resmgt/syncEngine.h>

#include <map>
#include <memory>
#include <string>

/// State of one recording: its show, its options and its result. Thread-safe. Only `wait` blocks.
class PlayoutJob : public Zv::RCBase<Zv::LkCounter<long>>
{
public:
    /// `playedShow` must outlive the job. If `isFast` is set, the show's clock does not pace it.
    PlayoutJob(Show const &playedShow, std::string outputPath, int framesPerBlock, bool isFast,
               Faults askedFaults);

    /// Returns the path of the picture of a show, beside its output. It is empty for a show without
    /// a clock or without an output.
    static std::string getPicturePath(Show const &show, std::string const &output);

    Show const &show;
    std::string const output;                       ///< empty if a speaker plays the show
    int const blockFrames;                          ///< if there is no timeline
    std::unique_ptr<Timeline const> const timeline; ///< null for a show without a clock
    std::string const picture;                      ///< of the waveform; empty for none
    bool const isPaced;
    Cues cues;
    MemoryFigures memoryFigures;
    /// Null if the show has none. Set before the devices are opened, and not changed afterwards.
    std::unique_ptr<SoundCard> card;
    Faults const faults;
    /// Null if there is no report. Set before the devices are opened, and not changed afterwards.
    std::unique_ptr<Journal> journal;

    /// Begins a journal. Must be called before the devices are opened.
    void keepJournal();
    /// Returns the source of the beats that pace the show: the sound card, else the library's clock.
    Zv::SeSourceProtocol &getBeats() const;

    /// Marks the recording as complete, unless it has failed.
    void complete();
    /// Marks the recording as failed, unless it is complete. Only the first reason is kept.
    void fail(char const *reason);
    /// Marks a device, and with it the recording, as failed.
    void fail(std::string const &device, char const *reason);
    bool isComplete() const;
    /// Returns whether all was recorded or played, even if another device had failed before.
    bool isWritten() const;
    bool hasFailed() const;
    std::string getFailure() const;
    /// Returns the reason that a device gave for its own failure. Empty if it gave none.
    std::string getFailure(std::string const &device) const;

    /// Sets the name of the device that is being opened.
    void setOpening(std::string const &device);
    std::string getOpening() const;

    /// Wakes the client.
    void wake() { _changed.set(); }
    /// Waits for `wake`, at most that many seconds. Called by the client.
    void wait(double seconds);

private:
    Zv::LkLock mutable _lock{"PlayoutJob"};
    Zv::LkEvent _changed{"PlayoutJob", false};
    bool _isWritten = false;
    bool _isComplete = false;
    bool _hasFailed = false;
    std::string _failure;
    std::map<std::string, std::string> _failures; // by device
    std::string _opening;
};
