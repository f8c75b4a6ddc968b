// Requests and their completions, which travel between clients, the manager and devices (device
// writers).
#pragma once

#include "resmgt/export.h"
#include "zvbase/objPtr.h"
#include "zvbase/traceEvents.h"

#include <concepts>
#include <exception>
#include <type_traits>
#include <utility>

namespace Zv {

class DevANOTrace;
class DevMDStdAccessPrtcl;
class DevMDStdSyncSeqPrtcl;
template <class T>
class DevMDStdProperty;

/// An asynchronous execution object (AEO): the base class of requests and completions.
///
/// One thread makes the object and another one executes it. Two kinds travel through the queues. A
/// request (ANO, `DevANO`) asks a thread to do something. A completion (ACO, `DevACO`) is attached
/// to a request and runs after it.
///
/// **Threads**: one thread at a time. The thread that owns the object may use it, and passes it on
/// by moving it.
class ZVRESMGT_EXPORT DevAEO
{
public:
    DevAEO() = default;
    DevAEO(DevAEO const &) = default;
    DevAEO &operator=(DevAEO const &) = default;
    virtual ~DevAEO() noexcept(false);

    /// Does what the object was made for.
    virtual void performExecute() = 0;
};

/// An asynchronous completion object (ACO): what happens after a request has been executed.
///
/// `DevANO::setACO` attaches it to a request. It runs on the thread that has executed the request,
/// right after it. If the request is destroyed without having been executed, its completion is
/// destroyed without having run.
///
///     LkUnnamedSema done("capture", 0);
///     ObjPtr<DevANO> request = makeANO([] { std::puts("on the device's thread"); });
///     request->setACO(makeACO([&done] { done.post(); }));
class ZVRESMGT_EXPORT DevACO : public DevAEO
{
public:
    DevACO() = default;
    DevACO(DevACO const &) = default;
    DevACO &operator=(DevACO const &) = default;
    ~DevACO() override;

private:
    friend class DevANOTrace;

    TraceFlow mutable _flow; // of the request that has brought it
};

/// A completion that can be told of a failure. If a request throws on the thread of a standard
/// device, the device calls `performFail` instead of running the completion.
class ZVRESMGT_EXPORT DevFailableACO : public DevACO
{
public:
    ~DevFailableACO() override;

    /// Called with the exception that the request has thrown.
    virtual void performFail(std::exception_ptr const &failure) = 0;
};

/// An asynchronous notification object (ANO): a request to the thread that serves a queue.
///
/// The sender puts it into a queue as a `DevANOQueueEntry`. The thread that serves the queue takes
/// it out, calls `performExecute` and then `notify`, and destroys it.
///
/// If `performExecute` throws on the thread of a standard device, a `DevFailableACO` gets the
/// exception, and the device goes on. If the completion is of another class, it is destroyed
/// without having run, and the exception goes to `DevMDStdLoopThreadProtocol::performFailed`, which
/// ends the process unless the device has overridden it. On "DevMgr ANO" the exception goes to the
/// `DevMgrFailureHandler`.
///
/// On other threads `performExecute` must not throw. The exception would leave the loop of the
/// thread, and the completion would be destroyed without having run. A thread that waits for the
/// completion would wait without end.
class ZVRESMGT_EXPORT DevANO : public DevAEO
{
public:
    DevANO();
    DevANO(DevANO const &) = delete;
    DevANO &operator=(DevANO const &) = delete;
    /// Destroys a completion that has not run.
    ~DevANO() override;

    /// Runs the completion, if there is one, and destroys it. A completion that throws is destroyed
    /// with the request.
    void notify();
    /// Tells the completion that `performExecute` has thrown, and destroys it. Returns false, and
    /// does nothing, if there is no completion or if it is not a `DevFailableACO`.
    [[nodiscard]] bool notifyFailure(std::exception_ptr const &failure);
    /// Attaches a completion. Null means none. Destroys the one that was attached before.
    void setACO(ObjPtr<DevACO> aco);
    /// Detaches the completion and returns it. Never returns null: if there is none, the returned
    /// one does nothing.
    ObjPtrRet<DevACO> releaseACO();

private:
    friend class DevANOTrace;

    ObjPtr<DevACO> _aco;
    TraceFlow mutable _flow; // if there is no completion when the request is sent
};

/// A request that can be sent again. Its owner keeps it as a prototype and sends clones of it.
class ZVRESMGT_EXPORT DevClonableANO : public DevANO
{
public:
    ~DevClonableANO() override;

    /// Returns a new request of the same dynamic type that does the same. It has no completion.
    virtual ObjPtrRet<DevClonableANO> clone() const = 0;
};

/// The base class of the requests that the factories of a device make. The factory runs on the
/// caller's thread, the request on the device's. The standard protocols attach the completion. The
/// device must not call `setACO`.
class ZVRESMGT_EXPORT DevMDStdANO : public DevANO
{
public:
    ~DevMDStdANO() override;

private:
    friend class DevMDStdAccessPrtcl;
    friend class DevMDStdSyncSeqPrtcl;
    template <class T>
    friend class DevMDStdProperty;

    void setBaseACO(ObjPtr<DevACO> aco) { setACO(std::move(aco)); }
};

/// A request on its way through a queue. Owns one request, or none.
///
/// A copy takes the request away from its source, also from a const one. That is how an entry
/// passes by value through a standard queue while the request has one owner.
class ZVRESMGT_EXPORT DevANOQueueEntry
{
public:
    DevANOQueueEntry() noexcept = default;
    /// Takes the request over.
    explicit DevANOQueueEntry(ObjPtr<DevANO> ano) noexcept : _ano(std::move(ano)) {}
    /// Leaves the source empty.
    DevANOQueueEntry(DevANOQueueEntry const &source) noexcept : _ano(std::move(source._ano)) {}
    /// Destroys the request that it holds, and leaves the source empty. Assigning an entry to
    /// itself changes nothing.
    DevANOQueueEntry &operator=(DevANOQueueEntry const &source)
    {
        _ano = std::move(source._ano);
        return *this;
    }
    ~DevANOQueueEntry() noexcept(false) = default;

    bool isNull() const noexcept { return _ano.isNull(); }
    /// Returns the request, which the entry still owns, or null if the entry is empty.
    DevANO const *get() const noexcept { return _ano.get(); }
    /// Returns the request and leaves the entry empty.
    ObjPtrRet<DevANO> release() noexcept { return std::move(_ano); }

private:
    ObjPtr<DevANO> mutable _ano;
};

namespace Detail {

/// A function as the object that stores it calls it.
template <class Function>
using Stored = std::decay_t<Function> &;

template <class Function>
class CallableACO final : public DevACO
{
public:
    explicit CallableACO(Function function) : _function(std::move(function)) {}

    void performExecute() override { _function(); }

private:
    Function _function;
};

template <class Function>
class CallableANO final : public DevMDStdANO
{
public:
    explicit CallableANO(Function function) : _function(std::move(function)) {}

    void performExecute() override
    {
        if constexpr (std::invocable<Function &>)
            _function();
        else
            _function(static_cast<DevMDStdANO &>(*this));
    }

private:
    Function _function;
};

} // namespace Detail

/// A function that a completion can call: it takes no argument.
template <class Function>
concept DevCompletionFunction = std::invocable<Detail::Stored<Function>>;

/// Returns a completion that calls `function`. The function is destroyed with the completion,
/// whether it has run or not.
template <DevCompletionFunction Function>
[[nodiscard]] ObjPtrRet<DevACO> makeACO(Function &&function)
{
    return ObjPtrRet<DevACO>(
        new Detail::CallableACO<std::decay_t<Function>>(std::forward<Function>(function)));
}

/// A function that a request can call: it takes no argument, or the request itself.
template <class Function>
concept DevMDRequestFunction = std::invocable<Detail::Stored<Function>> ||
    requires(Detail::Stored<Function> function, DevMDStdANO &request)
{
    function(request);
};

/// Returns a request that calls `function` on the thread that executes it:
///
///     ObjPtr<DevMDStdANO> const request = makeANO([] { std::puts("open the shutter"); });
///
/// A function that takes the request as its argument can detach the completion and run it later:
///
///     ObjPtr<DevACO> whenOpen;
///     ObjPtr<DevMDStdANO> const request =
///         makeANO([&whenOpen](DevMDStdANO &self) { whenOpen = self.releaseACO(); });
///
/// The function is destroyed with the request, whether it was executed or not.
template <DevMDRequestFunction Function>
[[nodiscard]] ObjPtrRet<DevMDStdANO> makeANO(Function &&function)
{
    return ObjPtrRet<DevMDStdANO>(
        new Detail::CallableANO<std::decay_t<Function>>(std::forward<Function>(function)));
}

} // namespace Zv
