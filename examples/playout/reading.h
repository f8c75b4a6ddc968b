// A value that a device shows.
#pragma once

#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>

/// A property that clients read and observe.
///
/// A notification carries no value, so one that nobody has answered by reading says all that there is to say: at most
/// one is under way, however often the value changes. Thus a client that is slow cannot fill the manager's queue, and
/// the device never waits there. An observer reads once when it has attached.
class Reading : public Zv::DevMDStdProperty<double>
{
public:
    Reading(Zv::LiString const &name, Zv::LiString const &description,
            Zv::RCShdPtr<Zv::DevMDStdFifo> fifo);

    /// On the device's thread.
    void show(double value);

private:
    double _value = 0;
    bool _isUnread = false; // notified, and not read since
};
