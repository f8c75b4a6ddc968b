// Sets up the devices of a show.
#pragma once

#include "playoutDevice.h"
#include "playoutJob.h"
#include "registration.h"

#include <resmgt/deviceManager.h>

#include <map>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// Device manager with the tree, the streams and the properties of a show. Throws
/// `PlayoutEx::Client`, with the place and the text in question, if the show is wrong. One thread
/// at a time, if an operation does not say otherwise.
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
    /// Sets the clock, opens the devices, connects their streams and sets their properties. Waits
    /// for devices. Another thread may call `close` at the same time. Then this call throws.
    void build();
    /// Sets a property. `setting` is like "fader:levels:gain=0.5". `where` is put before the reason
    /// of a failure.
    void setProperty(std::string const &where, std::string const &setting);
    /// Gives up the recording. No device waits for another device from now on.
    void letGo();
    /// Ends the cues. Waits for a cue whose action is running.
    void stopCues() { _job->cues.stop(); }
    /// Closes the devices within a limit. Devices that do not close in time are left behind, see
    /// the report. The objects of all devices are kept for their figures.
    Zv::DevMgrCloseReport close(double seconds);
    /// Destroys the manager and stops the clock. The stage must be closed and nothing left behind.
    /// If something was left behind, the stage must not be destroyed, because its threads still
    /// run.
    void release();

    Zv::DevMgrSeqSupervisor &sequence() const { return *_sequence; }
    Zv::DevMgrPropertyAcc &properties() const { return *_properties; }
    /// Returns the devices, with the root first.
    Devices const &getDevices() const { return _devices; }
    /// Returns the name of the player or microphone.
    std::string const &getSource() const { return _source; }
    /// Returns the names of the devices of a kind, in the order of `getDevices`.
    std::vector<std::string> findAll(std::string const &kind) const;
    /// Returns the device to which the first stream of a device leads. Empty if there is none.
    std::string findNext(std::string const &device) const;
    /// Returns whether a device is of a kind.
    bool isA(std::string const &kind, std::string const &device) const;
    /// Returns how many devices are above a device in the tree.
    int getDepth(std::string const &device) const;
    /// Returns the tree as text: "( recorder ( fader ( player ) ) )".
    std::string const &getTree() const { return _tree; }

private:
    void configure();
    bool isUsed(std::string const &device) const;
    std::string findOne(std::string const &context, std::string const &kind,
                        std::string const &otherKind) const;
    std::string describe(std::vector<std::string> const &devices) const;
    void connect();

    Zv::RCShdPtr<PlayoutJob> _job;
    std::vector<std::unique_ptr<Registration>> _registrations;
    Devices _devices;
    std::map<std::string, int> _depths; // by device
    std::string _tree;
    std::string _source; // its name
    // The order matters: these are destroyed in the reverse order.
    Zv::ObjPtr<Zv::DevMgr> _manager;
    Zv::ObjPtr<Zv::DevMgrStreamAcc> _streams;
    Zv::ObjPtr<Zv::DevMgrPropertyAcc> _properties;
    Zv::ObjPtr<Zv::DevMgrSeqSupervisor> _sequence; // null until the devices are open
};
