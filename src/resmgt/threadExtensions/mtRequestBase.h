// The base of requests.
#pragma once

#include "resmgt/threadExtensions/mtRequestTag.h"

namespace Zv {

/// Something that is to be done elsewhere, counted under a tag. The sender must count it up in an `MtRequestMgr`, and
/// the thread that has done it must count it down.
class ZVRESMGT_EXPORT MtRequestBase
{
public:
    MtRequestBase();
    explicit MtRequestBase(MtRequestTag tag);
    MtRequestBase(MtRequestBase const &);
    MtRequestBase &operator=(MtRequestBase const &);
    virtual ~MtRequestBase() noexcept(false);

    MtRequestTag getTag() const { return _tag; }
    void setTag(MtRequestTag tag) { _tag = tag; }

private:
    MtRequestTag _tag;
};

} // namespace Zv
