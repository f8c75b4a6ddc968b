// How a property tells of its changes.
#pragma once

#include "resmgt/deviceProtocol/devAEO.h"

namespace Zv {

/// The observer that a property holds. The manager implements it; the device calls it, from its own thread.
class ZVRESMGT_EXPORT DevMDPropertyAEO : public DevAEO
{
public:
    /// The word in which every event is set.
    static constexpr unsigned int ALL_EVENTS = 0xFFFFFFFFu;

    ~DevMDPropertyAEO() override;

    /// Notifies of all events.
    void performExecute() override;
    /// The bits of `events` mean what the device and its observers have agreed upon.
    virtual void performNotify(unsigned int events) = 0;
};

} // namespace Zv
