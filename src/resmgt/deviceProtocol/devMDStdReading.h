// A value that a device shows.
#pragma once

#include "resmgt/deviceProtocol/devMDStdANOFactories.h"
#include "resmgt/deviceProtocol/devMDStdProperty.h"

namespace Zv {

/// A property that clients read and observe, but cannot set. It keeps the value itself; the device shows each new one:
///
///     _position = makeShd<DevMDStdReading<double>>("position", "In seconds", getFifo());
///     …
///     _position->show(_framesPlayed / _rate);
///
/// A device may show as often as it likes: see `DevMDStdProperty::changed`.
template <class T>
class DevMDStdReading : public DevMDStdProperty<T>
{
public:
    DevMDStdReading(LiString const &name, LiString const &description, RCShdPtr<DevMDStdFifo> fifo,
                    T initial = T())
        : DevMDStdProperty<T>(name, description, DevMDPropertyAny::READABLE,
                              makePropertyANOFactory<T>([this](T &value) { value = _value; }),
                              fifo),
          _value(std::move(initial))
    {}

    /// Must be called on the device's thread, or while that does not run yet. If it throws, the former value stays, so
    /// that showing the same value once more tells of it.
    void show(T const &value)
    {
        if (value == _value)
            return;
        this->changed(); // an observer gets the value by a request to this thread
        _value = value;
    }

private:
    T _value;
};

} // namespace Zv
