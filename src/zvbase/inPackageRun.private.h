// The run of the packages.
#pragma once

#include "zvbase/inPackage.h"

#include <cstddef>
#include <exception>
#include <string>
#include <typeinfo>
#include <vector>

namespace Zv {

/// Brings packages into an order, brings them up in it, and takes them down in the reverse one.
class InPackageRun
{
public:
    using Packages = std::vector<InPackageInit *>;

    /// The packages of the process in the order in which they were entered.
    static Packages getRegistered();

    /// Packages without a dependency between them keep the order given. Throws `InPackageError`.
    explicit InPackageRun(Packages const &packages);

    Packages const &getOrder() const { return _order; }
    /// Throws what a package throws, after those that were up have been taken down again.
    void bringUp();
    /// Throws the first of the failures, after each package has had its turn.
    void takeDown();

private:
    /// What `visit` knows so far.
    struct Plan
    {
        Packages const &registered;
        Packages path; // from the package asked for down to the one being visited
    };

    void visit(Plan &plan, InPackageInit *package);

    Packages _order;
    std::size_t _nbUp = 0;
};

} // namespace Zv
