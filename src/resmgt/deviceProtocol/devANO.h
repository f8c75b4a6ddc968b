// A request on its way to a thread.
#pragma once

#include "resmgt/deviceProtocol/devACO.h"
#include "zvbase/objPtr.h"

namespace Zv {

/// A request to a thread. Its sender makes it and puts it into a queue as a `DevANOQueueEntry`; the thread that
/// serves the queue takes it out, calls `performExecute`, then `notify`, and destroys it.
///
/// If `performExecute` throws, the exception leaves the thread's loop as well. The ACO is destroyed with the ANO and
/// does not run, so that a thread that waits for it waits for ever. Such a request must not throw. A standard device
/// tells a `DevFailableACO` of the exception, and goes on.
class ZVRESMGT_EXPORT DevANO : public DevAEO
{
public:
    DevANO();
    DevANO(DevANO const &) = delete;
    DevANO &operator=(DevANO const &) = delete;
    /// Destroys an ACO that has not run.
    ~DevANO() override;

    /// Runs the ACO, if one is held, and destroys it. One that throws stays, and is destroyed with the ANO.
    void notify();
    /// Tells the ACO that `performExecute` has thrown, and destroys the ACO. Returns false, and does nothing, if none
    /// is held or if it is no `DevFailableACO`.
    [[nodiscard]] bool notifyFailure(std::exception_ptr const &failure);
    /// Takes the ACO over and destroys the one that was held.
    void setACO(ObjPtr<DevACO> aco);
    /// Hands the ACO out. Never null: where none is held it is a new one that does nothing.
    ObjPtrRet<DevACO> releaseACO();

private:
    ObjPtr<DevACO> _aco;
};

/// A request that can be sent again and again: its owner keeps it as a prototype and sends clones.
class ZVRESMGT_EXPORT DevClonableANO : public DevANO
{
public:
    ~DevClonableANO() override;

    /// A new ANO of the same dynamic type with the same request and no ACO.
    virtual ObjPtrRet<DevClonableANO> clone() const = 0;
};

} // namespace Zv
