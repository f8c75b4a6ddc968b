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
/// thrown as `PlayoutEx::Client`, with the place and the text that it is about. For one thread.
class Stage
{
public:
    using Devices = std::vector<std::pair<std::string, Zv::RCShdPtr<PlayoutDevice>>>;

    explicit Stage(Zv::RCShdPtr<PlayoutJob> const &job);
    Stage(Stage const &) = delete;
    Stage &operator=(Stage const &) = delete;
    ~Stage() noexcept(false);

    /// Sets the clock, opens the devices, connects their streams and sets their properties.
    void build();
    /// `setting` is "fader:levels:gain=0.5"; `where` stands before each reason.
    void setProperty(std::string const &where, std::string const &setting);
    /// Ends the devices. Their objects live on for their figures.
    void close();

    Zv::DevMgrSyncSeqAcc &sequence() const { return *_sequence; }
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
    // Closed in the reverse order, the devices with the manager.
    Zv::ObjPtr<Zv::DevMgr> _manager;
    Zv::ObjPtr<Zv::DevMgrSyncSeqAcc> _sequence;
    Zv::ObjPtr<Zv::DevMgrStreamAcc> _streams;
    Zv::ObjPtr<Zv::DevMgrPropertyAcc> _properties;
};
