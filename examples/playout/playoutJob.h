// What the client and its devices share: the show, and how the recording went.
#pragma once

#include "cues.h"
#include "fault.h"
#include "memoryFigures.h"
#include "show.h"
#include "timeline.h"

#include <resmgt/deviceManager.h>
#include <resmgt/locks.h>

#include <map>
#include <memory>
#include <string>

/// One recording on its way. Any thread may call anything; nothing blocks but `wait`.
class PlayoutJob : public Zv::RCBase<Zv::LkCounter<long>>
{
public:
    /// The show outlives the job. `isFast`: its clock does not pace it.
    PlayoutJob(Show const &playedShow, std::string outputPath, int framesPerBlock, bool isFast,
               Faults askedFaults);

    /// The path of the picture that a show gets, beside its output; empty for a show without a clock.
    static std::string getPicturePath(Show const &show, std::string const &output);

    Show const &show;
    std::string const output;
    int const blockFrames;                          ///< where there is no timeline
    std::unique_ptr<Timeline const> const timeline; ///< null for a show without a clock
    std::string const picture;                      ///< of the waveform; empty for none
    bool const isPaced;
    Cues cues;
    MemoryFigures memoryFigures;
    Faults const faults;

    /// The recording has gone through. Comes too late after a failure.
    void complete();
    /// The recording has failed. The first reason stays; none comes after the completion.
    void fail(char const *reason);
    /// A device has failed, and with it the recording.
    void fail(std::string const &device, char const *reason);
    bool isComplete() const;
    bool hasFailed() const;
    std::string getFailure() const;
    /// Returns why a device has failed by its own account. Empty if it has not.
    std::string getFailure(std::string const &device) const;

    /// The device that is opened now.
    void setOpening(std::string const &device);
    std::string getOpening() const;

    /// Something has changed: wakes the client.
    void wake() { _changed.set(); }
    /// For the client: returns after `wake`, or after that many seconds.
    void wait(double seconds);

private:
    Zv::LkLock mutable _lock{"PlayoutJob"};
    Zv::LkEvent _changed{"PlayoutJob", false};
    bool _isComplete = false;
    bool _hasFailed = false;
    std::string _failure;
    std::map<std::string, std::string> _failures; // by device
    std::string _opening;
};
