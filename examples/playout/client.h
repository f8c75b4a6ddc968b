// The client of the device manager.
#pragma once

#include "display.h"
#include "options.h"
#include "playoutDevice.h"
#include "playoutJob.h"

#include <resmgt/deviceManager.h>

#include <atomic>
#include <map>
#include <string>
#include <utility>
#include <vector>

/// Builds the tree, runs it once, and takes it down. For one thread.
class Client
{
public:
    explicit Client(Options const &options);
    Client(Client const &) = delete;
    Client &operator=(Client const &) = delete;
    ~Client() noexcept(false);

    /// Returns when the recording has gone through and everything is closed. Throws what went wrong, when everything is
    /// closed as well; returns false where a signal has stopped it.
    bool run();

private:
    class Observer;
    class StateObserver;

    /// A device has come to a state.
    struct Move
    {
        double time;
        std::string device;
        std::string state;
    };

    void checkFiles() const;
    void configure();
    void setProperties();
    void observe();
    void play();
    void followStates();
    bool haveAll(char const *state) const;
    bool hasEnded() const;
    bool mayStop() const;
    bool isRootRunning() const;
    void tellFailure(double failedAt);
    void showProgress(bool isLast);
    void showResult();
    void close();
    bool isInSequence(char const *device) const;
    /// Runs a step; what the library finds wrong in it bears the step's name.
    template <class Step>
    void inContext(std::string const &context, Step step);

    Options const _options;
    Zv::RCShdPtr<PlayoutJob> _job;
    Display _display;
    // Closed in the reverse order, the devices with the manager; their objects live on for their figures.
    std::vector<std::pair<std::string, Zv::RCShdPtr<PlayoutDevice>>> _devices; // root first
    Zv::ObjPtr<Zv::DevMgr> _manager;
    Zv::ObjPtr<Zv::DevMgrSyncSeqAcc> _sequence;
    Zv::ObjPtr<Zv::DevMgrStreamAcc> _streams;
    Zv::ObjPtr<Zv::DevMgrPropertyAcc> _properties;
    Zv::RCShdPtr<Observer> _observer;
    Zv::RCShdPtr<StateObserver> _stateObserver;

    std::map<std::string, std::string> _states; // by device
    double _startedAt = 0;                      // moments of the monotonic clock
    double _stoppedAt = 0;
    double _shownAt = 0;
    double _position = 0;
    double _peak = -1;
};
