// Finds the packages of the process.
#pragma once

#include "zvbase/inInit.h"
#include "zvbase/inPackageRun.private.h"

#include <stdexcept>
#include <typeinfo>

namespace ZvTest {

inline Zv::InPackageInit &getRegistered(std::type_info const &type)
{
    for (Zv::InPackageInit *package : Zv::InPackageRun::getRegistered())
        if (typeid(*package) == type)
            return *package;
    throw std::out_of_range(type.name());
}

/// Returns the package of a tag. Throws if it is not registered.
template <class Tag>
Zv::InPackageInit &getRegistered()
{
    return getRegistered(Zv::InInit<Tag>::getType());
}

} // namespace ZvTest
