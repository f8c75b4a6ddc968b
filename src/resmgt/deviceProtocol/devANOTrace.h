// Shows the way of requests in a `TraceSession` (device writers).
#pragma once

#include "resmgt/deviceProtocol/devANO.h"
#include "resmgt/export.h"
#include "zvbase/traceEvents.h"

namespace Zv {

/// The slices of a request, which its flow connects. The queues and the standard threads of the
/// library record them. A thread with a loop of its own that takes requests from a `DevANOFifo` can
/// record the execution itself:
///
///     void execute(ObjPtr<DevANO> request)
///     {
///         DevANOTrace::Execution const execution(*request);
///         request->performExecute();
///         request->notify();
///     }
///
/// The flow ends when the completion is destroyed, which the device may detach and run later. If a
/// request has no completion, the flow ends by `notify` or with the request.
class ZVRESMGT_EXPORT DevANOTrace
{
public:
    class Sending;
    class Execution;

    DevANOTrace() = delete;

private:
    static TraceFlow &flowOf(DevANO const &ano)
    {
        return ano._aco.isNull() ? ano._flow : ano._aco->_flow;
    }
};

/// A slice in which the calling thread sends a request. It starts the flow.
///
/// **Threads**: one thread constructs and destroys it.
class ZVRESMGT_EXPORT DevANOTrace::Sending
{
public:
    /// The request is used by this constructor only.
    explicit Sending(DevANO const &ano) : _slice("request", "send")
    {
        if (_slice.isRecorded()) [[unlikely]]
            flowOf(ano).startIn(_slice);
    }

private:
    TraceEvents::Slice _slice;
};

/// A slice in which the calling thread executes a request and its completion.
///
/// **Threads**: one thread constructs and destroys it.
class ZVRESMGT_EXPORT DevANOTrace::Execution
{
public:
    /// The request is used by this constructor only.
    explicit Execution(DevANO const &ano) : _slice("request", "execute")
    {
        if (_slice.isRecorded()) [[unlikely]]
            flowOf(ano).passThrough(_slice);
    }

private:
    TraceEvents::Slice _slice;
};

} // namespace Zv
