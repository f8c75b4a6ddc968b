// The client of the device manager.
#pragma once

#include "display.h"
#include "errands.h"
#include "observers.h"
#include "options.h"
#include "stage.h"

#include <functional>
#include <map>
#include <string>
#include <vector>

/// Plays a show once, and tells of it. For one thread.
class Client
{
public:
    /// Options and show outlive the client. Throws `PlayoutEx`.
    Client(Options const &options, Show const &show, std::string const &output);
    Client(Client const &) = delete;
    Client &operator=(Client const &) = delete;

    /// Returns when the recording has gone through and everything is closed. Throws what went
    /// wrong, when everything is closed as well; returns false if a signal has stopped it. A device
    /// that hangs is left behind: then it throws `PlayoutEx::NoAnswer`, unless a signal has stopped
    /// it.
    bool run();
    /// Whether threads still run that may use this object. Then it must not be destroyed.
    bool hasLeftBehind() const { return _hasLeftBehind; }

private:
    void prepare();
    void perform(std::function<void()> call);
    void show();
    void setProperties();
    void observe();
    void play();
    bool mustEnd();
    void watch();
    void watch(Zv::DevSeqDeviceStatus const &device, double moment);
    void endSequence();
    void stopAfterSignal();
    void noteQuestions();
    std::string getUnanswered(Zv::DevSeqDeviceStatus const &device) const;
    void awaitStates();
    bool settleErrand(double seconds);
    void close();
    void followStates();
    void followCues();
    bool haveAll(char const *state) const;
    void showProgress();
    void readProgress();
    void showReadProgress();
    void showEnds();
    std::string describeEnd(Zv::DevSeqDeviceStatus const &device) const;
    void showReason(Zv::DevSeqDeviceStatus const &device);
    void showReason(Zv::DevMgrCloseReport::Device const &device);
    Zv::DevMgrCloseReport::Device const *findClosed(Zv::LiString const &name) const;
    void findCulprit();
    std::string describeOutput() const;
    void showResult();

    Options const &_options;
    Zv::RCShdPtr<PlayoutJob> _job;
    Display _display;
    Stage _stage;
    Errands _errands;
    std::string _player;              // by name
    std::vector<std::string> _faders; // the first one's peak is shown
    Zv::RCShdPtr<PropertyObserver> _observer;
    Zv::RCShdPtr<StateObserver> _stateObserver;

    std::map<std::string, std::string> _states; // by device
    double _startedAt = 0;                      // moments of the monotonic clock
    double _stoppedAt = 0;
    double _shownAt = 0;
    double _watchedAt = 0;
    // What an errand has read.
    struct Reading
    {
        double position = 0;
        double place = 0;
        double peak = -1;
    };
    Reading _reading; // the errand's while it is under way
    double _position = 0;

    std::map<std::string, std::string>
        _questions;           // that devices have not answered for long, by device
    std::string _failure;     // of a device; empty while there is none
    bool _isNoAnswer = false; // the same, because it hangs
    Zv::DevSeqStatus _status; // at the end of the sequence
    Zv::DevMgrCloseReport _closed;
    bool _isComplete = false;
    bool _hasLeftBehind = false;
};
