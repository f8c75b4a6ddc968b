// The form in which an ANO passes through a queue.
#pragma once

#include "resmgt/deviceProtocol/devANO.h"

namespace Zv {

/// Owns one ANO, or none. Copying moves, also from a source that is const: that is how an entry passes by value
/// through a standard queue while the ANO has one owner only.
class ZVRESMGT_EXPORT DevANOQueueEntry
{
public:
    DevANOQueueEntry() noexcept = default;
    explicit DevANOQueueEntry(ObjPtr<DevANO> ano) noexcept : _ano(ano) {}
    /// Leaves the source empty.
    DevANOQueueEntry(DevANOQueueEntry const &source) noexcept : _ano(source._ano) {}
    /// Destroys what is held and leaves the source empty; assigned to itself an entry keeps its ANO.
    DevANOQueueEntry &operator=(DevANOQueueEntry const &source)
    {
        _ano = source._ano;
        return *this;
    }
    ~DevANOQueueEntry() noexcept(false) = default;

    bool isNull() const noexcept { return _ano.isNull(); }
    /// The ANO, which stays; null if the entry is empty.
    DevANO const *get() const noexcept { return _ano.get(); }
    /// Hands the ANO out and leaves the entry empty.
    ObjPtrRet<DevANO> release() noexcept { return _ano; }

private:
    ObjPtr<DevANO> mutable _ano;
};

} // namespace Zv
