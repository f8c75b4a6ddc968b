// The catalogue of device kinds.
#pragma once

#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/containers.h"
#include "zvbase/objPtr.h"

#include <concepts>
#include <functional>
#include <utility>

namespace Zv {

/// One kind of device: a name, a description, and the making of the device's protocol object. The device writer
/// derives from it and adds an instance to the registry.
class ZVRESMGT_EXPORT DevRegistryEntry
{
public:
    DevRegistryEntry(LiString const &name, LiString const &description);
    virtual ~DevRegistryEntry() noexcept(false);

    /// A new protocol object of this kind. Called once for each manager that uses the device, on the client's thread
    /// that names it first, under the manager's configuration lock: it must not configure that manager.
    virtual RCShdPtr<DevMDPrtcl> createPrtcl() = 0;

    LiString getName() const { return _name; }
    LiString getDescription() const { return _description; }

private:
    LiString _name;
    LiString _description;
};

/// An entry that makes its devices by calling `maker` with its name:
///
///     DevRegistry::getInstance().add(makeRegistryEntry("camera", "Takes pictures", [](LiString const &name) {
///         return makeShd<Camera>(name);
///     }));
template <std::invocable<LiString const &> Maker>
ObjPtrRet<DevRegistryEntry> makeRegistryEntry(LiString const &name, LiString const &description,
                                              Maker maker)
{
    class Entry final : public DevRegistryEntry
    {
    public:
        Entry(LiString const &name, LiString const &description, Maker &&maker)
            : DevRegistryEntry(name, description), _maker(std::move(maker))
        {}

        RCShdPtr<DevMDPrtcl> createPrtcl() override { return std::invoke(_maker, getName()); }

    private:
        Maker _maker;
    };
    return makeObj<Entry>(name, description, std::move(maker));
}

/// The process-wide catalogue of device kinds, by unique names. All managers share it.
///
/// It has no lock of its own: entries are added while packages come up, or where no manager is at work.
class ZVRESMGT_EXPORT DevRegistry
{
public:
    /// Made on first use, and never destroyed. Any thread.
    static DevRegistry &getInstance();

    virtual ~DevRegistry() noexcept(false);

    /// Takes the entry over. Where its name is taken, the entry is destroyed and `DevPrtclEx::ExNameNotUnique` thrown.
    virtual void add(ObjPtr<DevRegistryEntry> entry) = 0;
    virtual bool isRegistered(LiString const &name) = 0;
    virtual int getCount() = 0;
    /// All names, in no particular order.
    virtual ObjPtrRet<Vector<LiString>> getNames() = 0;
    /// The three below throw `DevPrtclEx::ExNameNotRegistered` for a name that is not there.
    virtual LiString getDescription(LiString const &name) = 0;
    /// Destroys the entry. Devices that it made live on.
    virtual void remove(LiString const &name) = 0;
    /// What the entry's `createPrtcl` returns.
    virtual RCShdPtr<DevMDPrtcl> createPrtcl(LiString const &name) = 0;

protected:
    DevRegistry() = default;
};

} // namespace Zv
