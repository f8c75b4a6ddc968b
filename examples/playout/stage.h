// The devices of a show, put together.
#pragma once

#include "playoutDevice.h"
#include "playoutJob.h"
#include "registration.h"

#include <resmgt/deviceManager.h>

#include <memory>
#include <string>
#include <utility>
#include <vector>

/// A manager with the tree of a show, its streams and its properties. What the library finds wrong in the show is
/// thrown as `PlayoutEx::Client`, with the place and the text that it is about. One thread at a time, if nothing else
/// is said.
class Stage
{
public:
    using Devices = std::vector<std::pair<std::string, Zv::RCShdPtr<PlayoutDevice>>>;

    explicit Stage(Zv::RCShdPtr<PlayoutJob> const &job);
    Stage(Stage const &) = delete;
    Stage &operator=(Stage const &) = delete;
    ~Stage() noexcept(false) = default;

    /// Makes the manager. Waits for no device.
    void create();
    /// Sets the clock, opens the devices, connects their streams and sets their properties. Waits for devices: `close`
    /// may be called meanwhile by another thread, and then this throws.
    void build();
    /// `setting` is "fader:levels:gain=0.5"; `where` stands before each reason.
    void setProperty(std::string const &where, std::string const &setting);
    /// The recording is given up: no device waits for another one from now on.
    void letGo();
    /// The devices get no cues from now on. Waits for a cue that a device has not taken yet.
    void stopCues() { _job->cues.stop(); }
    /// Closes the devices within a limit. Those that do not close in time are left behind, see the report. Their
    /// objects live on for their figures.
    Zv::DevMgrCloseReport close(double seconds);
    /// Ends what is left. Only for a stage that was closed, if nothing was left behind. Otherwise the stage must not be
    /// destroyed, because its threads run on.
    void release();

    Zv::DevMgrSeqSupervisor &sequence() const { return *_sequence; }
    Zv::DevMgrPropertyAcc &properties() const { return *_properties; }
    /// The root first.
    Devices const &getDevices() const { return _devices; }
    /// The names of the devices of a kind, in the same order.
    std::vector<std::string> findAll(std::string const &kind) const;
    /// The device that a device's first stream goes to; empty where there is none.
    std::string findNext(std::string const &device) const;
    /// Whether a device is of a kind.
    bool isA(std::string const &kind, std::string const &device) const;
    /// "( recorder ( fader ( player ) ) )"
    std::string const &getTree() const { return _tree; }

private:
    void configure();
    void connect();

    Zv::RCShdPtr<PlayoutJob> _job;
    std::vector<std::unique_ptr<Registration>> _registrations;
    Devices _devices;
    std::string _tree;
    // Destroyed in the reverse order.
    Zv::ObjPtr<Zv::DevMgr> _manager;
    Zv::ObjPtr<Zv::DevMgrStreamAcc> _streams;
    Zv::ObjPtr<Zv::DevMgrPropertyAcc> _properties;
    Zv::ObjPtr<Zv::DevMgrSeqSupervisor> _sequence; // null until the devices are open
};
