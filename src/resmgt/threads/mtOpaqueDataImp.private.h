// The platform seam of thread-specific data.
#pragma once

namespace Zv {

class MtOpaqueDataImp
{
public:
    MtOpaqueDataImp() = default;
    MtOpaqueDataImp(MtOpaqueDataImp const &) = delete;
    MtOpaqueDataImp &operator=(MtOpaqueDataImp const &) = delete;
    virtual ~MtOpaqueDataImp() noexcept(false);

    virtual void *getSpecific() const = 0;
    virtual void setSpecific(void *value) const = 0;
};

} // namespace Zv
