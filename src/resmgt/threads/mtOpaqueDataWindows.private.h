// A slot of the system's thread-local storage.
#pragma once

#include "resmgt/threads/mtOpaqueDataImp.private.h"
#include "zvbase/platform/types.h"

namespace Zv {

class MtOpaqueDataWindows final : public MtOpaqueDataImp
{
public:
    MtOpaqueDataWindows();
    ~MtOpaqueDataWindows() noexcept(false) override;

    void *getSpecific() const override;
    void setSpecific(void *data) const override;

private:
    std::uint32_t _tlsIndex;
};

} // namespace Zv
