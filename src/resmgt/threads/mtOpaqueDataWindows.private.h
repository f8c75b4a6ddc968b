// Slot of the operating system's thread-local storage.
#pragma once

#include <cstdint>

namespace Zv {

/// The part of thread-specific data that depends on the platform.
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

/// A slot of the platform's services.
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
