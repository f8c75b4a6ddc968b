// What passes along a connection.
#pragma once

#include "resmgt/export.h"
#include "resmgt/locks/lkCounter.h"
#include "resmgt/smartPtrs/rcBase.h"
#include "resmgt/smartPtrs/rcShdPtr.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// The payload of stream elements. The devices that share a stream derive from it.
class ZVRESMGT_EXPORT DevMDStreamBuf : public RCBase<LkCounter<long>>
{
protected:
    ~DevMDStreamBuf() override;
};

/// One element of a stream: a payload and an event. It travels as `ObjPtr<DevMDStreamElem>`; copies share the payload.
class ZVRESMGT_EXPORT DevMDStreamElem
{
public:
    /// The devices that share a stream give the values their meaning: `DevMDStreamElem::Ev{1}`.
    enum class Ev : int
    {
    };

    DevMDStreamElem(RCShdPtr<DevMDStreamBuf> const &buf, Ev ev);

    RCShdPtr<DevMDStreamBuf> getBuf() const { return _buf; }
    Ev getEv() const { return _ev; }

private:
    RCShdPtr<DevMDStreamBuf> _buf;
    Ev _ev;
};

} // namespace Zv
