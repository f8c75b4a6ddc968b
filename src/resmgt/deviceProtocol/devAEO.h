// What can be executed: the root of all objects that travel between clients, manager and devices.
#pragma once

#include "resmgt/export.h"

namespace Zv {

/// One operation, made to be run by another thread than the one that made the object.
///
/// Two kinds travel through the queues: an ANO (`DevANO`) carries a request to a thread, an ACO (`DevACO`) rides in
/// an ANO and says what shall happen once the request has been executed.
///
/// None of these objects is locked: at any moment exactly one thread owns one.
class ZVRESMGT_EXPORT DevAEO
{
public:
    DevAEO() = default;
    DevAEO(DevAEO const &) = default;
    DevAEO &operator=(DevAEO const &) = default;
    virtual ~DevAEO() noexcept(false);

    virtual void performExecute() = 0;
};

} // namespace Zv
