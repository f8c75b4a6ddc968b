// The client of the device manager.
#pragma once

#include "display.h"
#include "observers.h"
#include "options.h"
#include "stage.h"

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

    /// Returns when the recording has gone through and everything is closed. Throws what went wrong, when everything is
    /// closed as well; returns false where a signal has stopped it.
    bool run();

private:
    void show();
    void setProperties();
    void observe();
    void play();
    void followStates();
    void followCues();
    bool haveAll(char const *state) const;
    bool hasEnded() const;
    bool mayStop() const;
    bool isRootRunning() const;
    void tellFailure(double failedAt);
    void showProgress(bool isLast);
    void showResult();

    Options const &_options;
    Zv::RCShdPtr<PlayoutJob> _job;
    Display _display;
    Stage _stage;
    std::string _player;              // by name
    std::vector<std::string> _faders; // the first one's peak is shown
    Zv::RCShdPtr<PropertyObserver> _observer;
    Zv::RCShdPtr<StateObserver> _stateObserver;

    std::map<std::string, std::string> _states; // by device
    double _startedAt = 0;                      // moments of the monotonic clock
    double _stoppedAt = 0;
    double _shownAt = 0;
    double _position = 0;
    double _peak = -1;
};
