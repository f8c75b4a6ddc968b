// Runs packages up and down in the order of their dependencies.
#pragma once

#include "zvbase/inPackage.h"

#include <cstddef>
#include <exception>
#include <string>
#include <typeinfo>
#include <vector>

namespace Zv {

/// Sorts packages by their dependencies, starts them in this order, and stops them in the reverse
/// order.
class InPackageRun
{
public:
    using Packages = std::vector<InPackageInit *>;

    /// Returns the packages of the process, in the order of their registration.
    static Packages getRegistered();

    /// Sorts the packages. Packages that do not depend on each other keep their order. Throws
    /// `InPackageError`.
    explicit InPackageRun(Packages const &packages);

    Packages const &getOrder() const { return _order; }
    /// Starts all packages. Throws what a package throws, after the packages that were up have been
    /// taken down.
    void bringUp();
    /// Stops all packages. Throws the first of their exceptions, after all are down.
    void takeDown();

private:
    /// The state of the sorting.
    struct Plan
    {
        Packages const &registered;
        Packages path; // from the first package to the one that is visited now
    };

    void visit(Plan &plan, InPackageInit *package);

    Packages _order;
    std::size_t _nbUp = 0;
};

} // namespace Zv
