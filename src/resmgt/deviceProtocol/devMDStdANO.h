// The requests that the standard protocols send to a device's thread.
#pragma once

#include "resmgt/deviceProtocol/devANO.h"

#include <concepts>
#include <functional>
#include <type_traits>
#include <utility>

namespace Zv {

class DevMDStdAccessPrtcl;
class DevMDStdSyncSeqPrtcl;
template <class T>
class DevMDStdProperty;

/// The base of the requests that a device's factories make. The factory runs on the caller's thread, the request on
/// the device's. The standard protocols set the ACO; a device leaves it alone.
class ZVRESMGT_EXPORT DevMDStdANO : public DevANO
{
public:
    ~DevMDStdANO() override;

private:
    friend class DevMDStdAccessPrtcl;
    friend class DevMDStdSyncSeqPrtcl;
    template <class T>
    friend class DevMDStdProperty;

    void setBaseACO(ObjPtr<DevACO> aco) { setACO(aco); }
};

/// What a request can call: a function without arguments, or one that takes the request itself.
template <class Function>
concept DevMDRequestFunction = std::invocable<Detail::Stored<Function>> ||
    std::invocable<Detail::Stored<Function>, DevMDStdANO &>;

namespace Detail {

template <class Function>
class CallableANO final : public DevMDStdANO
{
public:
    explicit CallableANO(Function function) : _function(std::move(function)) {}

    void performExecute() override
    {
        if constexpr (std::invocable<Function &>)
            std::invoke(_function);
        else
            std::invoke(_function, static_cast<DevMDStdANO &>(*this));
    }

private:
    Function _function;
};

} // namespace Detail

/// A request that calls `function` on the thread that executes it:
///
///     return makeANO([this] { _shutter.open(); });
///
/// A function that needs its request takes it as argument, to take out the completion for instance and run it later:
///
///     return makeANO([this](DevMDStdANO &request) { _whenOpen = request.releaseACO(); });
///
/// What the function holds is moved into the request and destroyed with it, executed or not.
template <DevMDRequestFunction Function>
ObjPtrRet<DevMDStdANO> makeANO(Function &&function)
{
    return ObjPtrRet<DevMDStdANO>(
        new Detail::CallableANO<std::decay_t<Function>>(std::forward<Function>(function)));
}

} // namespace Zv
