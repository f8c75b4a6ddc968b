// Completion of an asynchronous operation (extenders).
#pragma once

#include "resmgt/export.h"

namespace Zv {

/// Reports the result of an asynchronous operation.
///
///     class FrameHandle : public Zv::LkAsyncHandle
///     {
///     public:
///         void performSucceeded() override { _loaded.set(); }
///         void performFailed() override { _loaded.set(); }
///
///     private:
///         Zv::LkEvent _loaded{"frame loaded", false};
///     };
///
/// The code that carries out the operation must call exactly one of the two functions, exactly
/// once. It may do so from any thread, even before the call that started the operation has
/// returned.
///
/// **Owns**: nothing. The code that passed the handle on keeps it alive until one of the two
/// functions has returned.
class ZVRESMGT_EXPORT LkAsyncHandle
{
public:
    LkAsyncHandle();
    LkAsyncHandle(LkAsyncHandle const &);
    LkAsyncHandle &operator=(LkAsyncHandle const &);
    virtual ~LkAsyncHandle() noexcept(false);

    /// Called when the operation has been carried out.
    virtual void performSucceeded() = 0;
    /// Called when the operation has failed.
    virtual void performFailed() = 0;
};

} // namespace Zv
