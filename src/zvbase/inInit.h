// Packages that are described by tags (extenders).
#pragma once

#include "zvbase/inPackage.h"
#include "zvbase/platform/shared.h"

namespace Zv {

template <class Tag>
class InInit;

/// Lists the tags of the packages that a package needs, in the order in which they are added.
template <class... Tags>
struct InDependencies
{
    /// Adds the dependencies to a package.
    static void addTo([[maybe_unused]] InPackageInit &package)
    {
        (package.addDependency(&InInit<Tags>::getType()), ...);
    }
};

/// The package of a tag.
///
/// A tag is an empty struct in namespace `ZvInit`, which has the name of the package and its
/// dependencies, and is exported from the library of the package:
///
///     namespace Zv {
///
///     namespace ZvInit {
///     struct mixer
///     {
///         static constexpr char const *NAME = "mixer";
///         using DependsOn = InDependencies<base>;
///     };
///     } // namespace ZvInit
///
///     template <> // if the package has something to do
///     void InInit<ZvInit::mixer>::initPackage();
///
///     extern template class InInit<ZvInit::mixer>; // up to here in the header
///
///     template class InInit<ZvInit::mixer>; // in a source
///     static Immortal<InInit<ZvInit::mixer>> mixerPackage;
///
///     } // namespace Zv
///
/// The last line registers the package when its library is loaded.
template <class Tag>
class ZVBASE_TEMPLATE_EXPORT InInit : public InPackageInit
{
public:
    /// Registers the package, then adds its dependencies.
    InInit();
    ~InInit() override;

    void initPackage() override;
    void cleanupPackage() override;
    void setInitialized(bool initialized) override;

    /// Returns the type that identifies the package. Its object need not exist yet.
    static std::type_info const &getType();
    /// Returns true if the package is up. Thread-safe. It changes only while the packages are run.
    static bool isInitialized();

private:
    static ZvPlatform::Shared<bool> _initialized;
};

template <class Tag>
constinit ZvPlatform::Shared<bool> InInit<Tag>::_initialized{false};

template <class Tag>
InInit<Tag>::InInit() : InPackageInit(Tag::NAME)
{
    registerPackage();
    Tag::DependsOn::addTo(*this);
}

template <class Tag>
InInit<Tag>::~InInit() = default;

template <class Tag>
void InInit<Tag>::initPackage()
{}

template <class Tag>
void InInit<Tag>::cleanupPackage()
{}

template <class Tag>
void InInit<Tag>::setInitialized(bool initialized)
{
    _initialized.store(initialized, ZvPlatform::Order::RELEASE);
}

template <class Tag>
std::type_info const &InInit<Tag>::getType()
{
    return typeid(InInit<Tag>);
}

template <class Tag>
bool InInit<Tag>::isInitialized()
{
    return _initialized.load(ZvPlatform::Order::ACQUIRE);
}

/// The tags of the packages.
namespace ZvInit {

/// The tag of the base library's package, which needs no other one.
struct ZVBASE_EXPORT base
{
    /// The name of the package.
    static constexpr char const *NAME = "base";
    /// The packages that it needs.
    using DependsOn = InDependencies<>;
};

} // namespace ZvInit

extern template class ZVBASE_EXPORT InInit<ZvInit::base>;

} // namespace Zv
