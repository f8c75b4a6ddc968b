// Registry of device kinds (device writers).
#pragma once

#include "resmgt/deviceProtocol/devMDPrtcl.h"
#include "resmgt/export.h"
#include "resmgt/literals/liString.h"
#include "zvbase/objPtr.h"
#include "zvbase/sequenceContainers.h"

#include <concepts>
#include <utility>

namespace Zv {

/// A kind of device: its name, its description, and a function that creates the device. A device
/// writer derives from it, or uses `makeRegistryEntry`, and adds an instance to the registry.
class ZVRESMGT_EXPORT DevRegistryEntry
{
public:
    DevRegistryEntry(LiString const &name, LiString const &description);
    virtual ~DevRegistryEntry() noexcept(false);

    /// Creates a device of this kind. Must not return null. Called once for each manager that uses
    /// the device, on the thread that names it first. Several threads may call it at the same time,
    /// for different managers. The manager's configuration lock is held, so the function must not
    /// wait for another thread that configures that manager.
    virtual RCShdPtr<DevMDPrtcl> createPrtcl() = 0;

    LiString getName() const { return _name; }
    LiString getDescription() const { return _description; }

private:
    LiString _name;
    LiString _description;
};

/// Returns an entry that calls `maker` with its name to create a device:
///
///     #include <resmgt/deviceProtocol.h>
///
///     class Camera : public DevMDStdDevice
///     {
///     public:
///         explicit Camera(LiString const &name) : DevMDStdDevice(name) {}
///     };
///     auto const addCamera = [] {
///         DevRegistry::getInstance().add(makeRegistryEntry(
///             "camera", "Takes pictures",
///             [](LiString const &name) { return makeShd<Camera>(name); }));
///     };
template <std::invocable<LiString const &> Maker>
[[nodiscard]] ObjPtrRet<DevRegistryEntry>
makeRegistryEntry(LiString const &name, LiString const &description, Maker maker)
{
    class Entry final : public DevRegistryEntry
    {
    public:
        Entry(LiString const &name, LiString const &description, Maker &&maker)
            : DevRegistryEntry(name, description), _maker(std::move(maker))
        {}

        RCShdPtr<DevMDPrtcl> createPrtcl() override { return _maker(getName()); }

    private:
        Maker _maker;
    };
    return makeObj<Entry>(name, description, std::move(maker));
}

/// The registry of all device kinds in the process. Their names are unique. All managers share it.
///
/// **Threads**: `getInstance` is thread-safe. Any threads may call the operations other than `add`
/// and `remove` at the same time. Managers call them when a client names a device. While a thread
/// is in `add` or `remove`, no other thread may call an operation. So add and remove entries while
/// packages are started, or while no manager is in use.
class ZVRESMGT_EXPORT DevRegistry
{
public:
    /// Returns the only instance. It is created at its first use and never destroyed.
    static DevRegistry &getInstance();

    virtual ~DevRegistry() noexcept(false);

    /// Adds an entry and owns it. If its name is in use, destroys the entry and throws
    /// `DevPrtclEx::ExNameNotUnique`. Throws `RCEx::ExNullPtr` if the entry is null.
    virtual void add(ObjPtr<DevRegistryEntry> entry) = 0;
    /// Returns true if there is an entry of that name.
    virtual bool isRegistered(LiString const &name) = 0;
    /// Returns the number of entries.
    virtual int getCount() = 0;
    /// Returns all names, in no particular order.
    virtual ObjPtrRet<Vector<LiString>> getNames() = 0;
    /// Returns the description. Throws `DevPrtclEx::ExNameNotRegistered` if there is no such entry.
    virtual LiString getDescription(LiString const &name) = 0;
    /// Removes and destroys the entry. Devices that it has created stay. Throws
    /// `DevPrtclEx::ExNameNotRegistered` if there is no such entry.
    virtual void remove(LiString const &name) = 0;
    /// Calls the entry's `createPrtcl`. Throws `DevPrtclEx::ExNameNotRegistered` if there is no
    /// such entry.
    virtual RCShdPtr<DevMDPrtcl> createPrtcl(LiString const &name) = 0;

protected:
    DevRegistry() = default;
};

} // namespace Zv
