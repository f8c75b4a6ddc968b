#include "resmgt/deviceManager/devRegistry.h"

#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "resmgt/locks/lkSingleton.imp.h"
#include "zvbase/containers.h"
#include "zvbase/failures.h"

namespace Zv {

/// Owns its entries. Those that are still registered when the process ends are not destroyed.
class DevRegistryImp : public DevRegistry, private HashMap<LiString, DevRegistryEntry *>
{
public:
    void add(ObjPtr<DevRegistryEntry> entry) override
    {
        if (!try_emplace(entry->getName(), entry.get()).second)
            ZV_THROW(DevPrtclEx::ExNameNotUnique);
        static_cast<void>(entry.release());
    }

    bool isRegistered(LiString const &name) override { return contains(name); }

    int getCount() override { return static_cast<int>(size()); }

    ObjPtrRet<Vector<LiString>> getNames() override
    {
        auto names = makeObj<Vector<LiString>>();
        ObjPtr<Vector<LiString>> result(std::move(names));
        for (auto const &[name, entry] : *this)
            result->push_back(name);
        return result;
    }

    LiString getDescription(LiString const &name) override { return get(name).getDescription(); }

    void remove(LiString const &name) override
    {
        ObjPtr<DevRegistryEntry> const entry(&get(name));
        erase(name);
    }

    RCShdPtr<DevMDPrtcl> createPrtcl(LiString const &name) override
    {
        return get(name).createPrtcl();
    }

private:
    DevRegistryEntry &get(LiString const &name)
    {
        if (!isRegistered(name))
            ZV_THROW(DevPrtclEx::ExNameNotRegistered);
        return *find(name)->second;
    }
};

ZV_DEFINE_SINGLETON(DevRegistryImp, DevRegistryImp);

DevRegistryEntry::DevRegistryEntry(LiString const &name, LiString const &description)
    : _name(name), _description(description)
{}

DevRegistryEntry::~DevRegistryEntry() noexcept(false) = default;

DevRegistry::~DevRegistry() noexcept(false) = default;

DevRegistry &DevRegistry::getInstance()
{
    return LkSingleton<DevRegistryImp>::getInstance();
}

} // namespace Zv
