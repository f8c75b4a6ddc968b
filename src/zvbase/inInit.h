// A package and its place among the others, written down as a tag.
#pragma once

#include "zvbase/inPackage.h"
#include "zvbase/platform/interlocked.h"

namespace Zv {

template <class Tag>
class InInit;

/// The packages that a package needs, in the order in which they are entered.
template <class... Tags>
struct InDependencies
{
    static void addTo([[maybe_unused]] InPackageInit &package)
    {
        (package.addDependency(&InInit<Tags>::getType()), ...);
    }
};

/// The package of a tag. A tag is an empty class of namespace `ZvInit`, exported like the package's library, that
/// tells the name and the packages needed:
///
///     namespace ZvInit {
///     struct ZVRESMGT_EXPORT locks
///     {
///         static constexpr char const *NAME = "locks";
///         using DependsOn = InDependencies<base>;
///     };
///     }
///     extern template class ZVRESMGT_EXPORT InInit<ZvInit::locks>;   // in the header
///     template class InInit<ZvInit::locks>;                          // in a source
///     static Immortal<InInit<ZvInit::locks>> locksPackage;           // in a source: enters it
///
/// A package that has something to do specialises `initPackage` and `cleanupPackage` ahead of the instantiation.
template <class Tag>
class ZVBASE_TEMPLATE_EXPORT InInit : public InPackageInit
{
public:
    /// Enters the package, then its dependencies.
    InInit();
    ~InInit() override;

    void initPackage() override;
    void cleanupPackage() override;
    void setInitialized(bool initialized) override;

    /// Names the package, also before its object exists.
    static std::type_info const &getType();
    /// Whether the package is up. Any thread; it changes only while the packages are run.
    static bool isInitialized();

private:
    static bool _initialized;
};

template <class Tag>
bool InInit<Tag>::_initialized = false;

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
    ZvPlatform::Interlocked::storeRelease(_initialized, initialized);
}

template <class Tag>
std::type_info const &InInit<Tag>::getType()
{
    return typeid(InInit<Tag>);
}

template <class Tag>
bool InInit<Tag>::isInitialized()
{
    return ZvPlatform::Interlocked::loadAcquire(_initialized);
}

namespace ZvInit {

/// The package of the base library itself, which needs no other.
struct ZVBASE_EXPORT base
{
    static constexpr char const *NAME = "base";
    using DependsOn = InDependencies<>;
};

} // namespace ZvInit

extern template class ZVBASE_EXPORT InInit<ZvInit::base>;

} // namespace Zv
