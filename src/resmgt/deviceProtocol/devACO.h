// What happens when a request has been executed.
#pragma once

#include "resmgt/deviceProtocol/devAEO.h"
#include "zvbase/objPtr.h"

#include <concepts>
#include <exception>
#include <functional>
#include <type_traits>
#include <utility>

namespace Zv {

/// A completion. It is set into a `DevANO` and runs on the thread that executed the ANO, directly after it. One
/// whose ANO is destroyed without having been executed is destroyed without running.
class ZVRESMGT_EXPORT DevACO : public DevAEO
{
public:
    DevACO() = default;
    DevACO(DevACO const &) = default;
    DevACO &operator=(DevACO const &) = default;
    ~DevACO() override;
};

/// A completion that can be told of a failure. If a request throws on the thread of a standard device, the device tells
/// its completion instead of running it.
class ZVRESMGT_EXPORT DevFailableACO : public DevACO
{
public:
    ~DevFailableACO() override;

    virtual void performFail(std::exception_ptr const &failure) = 0;
};

namespace Detail {

/// A function as the object that keeps it calls it.
template <class Function>
using Stored = std::decay_t<Function> &;

template <class Function>
class CallableACO final : public DevACO
{
public:
    explicit CallableACO(Function function) : _function(std::move(function)) {}

    void performExecute() override { std::invoke(_function); }

private:
    Function _function;
};

} // namespace Detail

/// What a completion can call: a function without arguments.
template <class Function>
concept DevCompletionFunction = std::invocable<Detail::Stored<Function>>;

/// A completion that calls `function`, for use where a class of one's own would say no more.
template <DevCompletionFunction Function>
ObjPtrRet<DevACO> makeACO(Function &&function)
{
    return ObjPtrRet<DevACO>(
        new Detail::CallableACO<std::decay_t<Function>>(std::forward<Function>(function)));
}

} // namespace Zv
