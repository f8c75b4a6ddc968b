#include "zvbase/inPackage.h"

#include "platform/interlocked.h"
#include "zvbase/baseLock.private.h"
#include "zvbase/failures.h"
#include "zvbase/immortal.h"
#include "zvbase/inInit.h"

#include <algorithm>
#include <cstdlib>
#include <exception>
#include <utility>

#ifndef _WIN32
#include <cxxabi.h>
#endif

namespace Zv {

namespace Interlocked = ZvPlatform::Interlocked;

namespace {

/// Guards the list and the count of scopes, and is held while the packages are run: who opens a second scope waits
/// until all are up.
constinit BaseLock packagesLock;
constinit InPackageInit *firstPackage = nullptr;
constinit unsigned scopes = 0; // read without the lock

/// A package that nobody registered has no other name than its type's.
std::string nameType(std::type_info const &type)
{
#ifdef _WIN32
    return type.name();
#else
    int status = 0;
    char * const readable = abi::__cxa_demangle(type.name(), nullptr, nullptr, &status);
    std::string const name = readable ? readable : type.name();
    std::free(readable);
    return name;
#endif
}

} // namespace

// ---- the run

/// Brings the packages into an order and runs them.
class InPackageRun
{
public:
    static void bringUp() ZV_REQUIRES(packagesLock);
    static void takeDown() ZV_REQUIRES(packagesLock);

private:
    using Packages = std::vector<InPackageInit *>;

    /// What `visit` knows so far.
    struct Plan
    {
        Packages registered;
        Packages order;
        Packages path; // from the package asked for down to the one being visited
    };

    static Packages getOrder() ZV_REQUIRES(packagesLock);
    static void visit(Plan &plan, InPackageInit *package);
    static InPackageInit *find(Packages const &packages, std::type_info const &type);
    static std::string nameCircle(Packages const &path, InPackageInit const *package);
    static std::exception_ptr takeDown(InPackageInit &package) noexcept;

    static Packages *_up; // in the order in which they came up
};

InPackageRun::Packages *InPackageRun::_up = nullptr;

InPackageInit *InPackageRun::find(Packages const &packages, std::type_info const &type)
{
    auto const found = std::find_if(packages.begin(), packages.end(), [&](InPackageInit *package) {
        InPackageInit const &object = *package;
        return typeid(object) == type;
    });
    return found == packages.end() ? nullptr : *found;
}

std::string InPackageRun::nameCircle(Packages const &path, InPackageInit const *package)
{
    std::string text = "Packages need each other in a circle: ";
    for (auto step = std::find(path.begin(), path.end(), package); step != path.end(); ++step)
        text += std::string((*step)->getName()) + " -> ";
    return text + package->getName() + ".";
}

void InPackageRun::visit(Plan &plan, InPackageInit *package)
{
    if (std::find(plan.order.begin(), plan.order.end(), package) != plan.order.end())
        return;
    if (std::find(plan.path.begin(), plan.path.end(), package) != plan.path.end())
        throw InPackageError(nameCircle(plan.path, package));
    plan.path.push_back(package);
    for (std::type_info const *needed : package->getDependencies()) {
        InPackageInit * const other = find(plan.registered, *needed);
        if (!other)
            throw InPackageError(std::string("Package \"") + package->getName() +
                                 "\" needs a package that is not registered: " + nameType(*needed) +
                                 ".");
        visit(plan, other);
    }
    plan.path.pop_back();
    plan.order.push_back(package);
}

InPackageRun::Packages InPackageRun::getOrder()
{
    Plan plan;
    for (InPackageInit *package = firstPackage; package; package = package->_next)
        plan.registered.push_back(package);
    for (InPackageInit *package : plan.registered)
        visit(plan, package);
    return plan.order;
}

void InPackageRun::bringUp()
{
    Packages const order = getOrder();
    if (!_up)
        _up = new Packages;
    _up->reserve(order.size());
    for (InPackageInit *package : order) {
        try {
            package->bringUp();
        } catch (...) {
            std::exception_ptr const failure = std::current_exception();
            try {
                takeDown();
            } catch (...) {
                // The first failure is the one to tell.
            }
            std::rethrow_exception(failure);
        }
        _up->push_back(package);
    }
}

std::exception_ptr InPackageRun::takeDown(InPackageInit &package) noexcept
{
    try {
        package.takeDown();
    } catch (...) {
        return std::current_exception();
    }
    return nullptr;
}

void InPackageRun::takeDown()
{
    std::exception_ptr failure;
    while (!_up->empty()) {
        InPackageInit &package = *_up->back();
        _up->pop_back();
        if (std::exception_ptr const another = takeDown(package); another && !failure)
            failure = another;
    }
    if (failure)
        std::rethrow_exception(failure);
}

// ---- packages

InVariableBase::InVariableBase() = default;
InVariableBase::~InVariableBase() = default;

InPackageInitBase::InPackageInitBase() = default;
InPackageInitBase::~InPackageInitBase() = default;

InPackageInit::InPackageInit(char const *name) : _name(name) {}

InPackageInit::~InPackageInit()
{
    BaseGuard const guard(packagesLock);
    for (InPackageInit **link = &firstPackage; *link; link = &(*link)->_next) {
        if (*link == this) {
            *link = _next;
            return;
        }
    }
}

void InPackageInit::addDependency(InVariableBase *variable)
{
    BaseGuard const guard(packagesLock);
    if (_isUp)
        variable->initVariable();
    _variables.push_back(variable);
}

void InPackageInit::removeDependency(InVariableBase *variable)
{
    BaseGuard const guard(packagesLock);
    auto const found = std::find(_variables.begin(), _variables.end(), variable);
    if (found == _variables.end())
        return;
    _variables.erase(found);
    if (_isUp)
        variable->cleanupVariable();
}

char const *InPackageInit::getName() const
{
    return _name;
}

void InPackageInit::addDependency(std::type_info const *package)
{
    _dependencies.push_back(package);
}

void InPackageInit::registerPackage()
{
    BaseGuard const guard(packagesLock);
    if (std::exchange(_isRegistered, true))
        return;
    InPackageInit **link = &firstPackage;
    while (*link)
        link = &(*link)->_next;
    *link = this;
}

void InPackageInit::bringUp()
{
    initPackage();
    std::size_t nbUp = 0;
    try {
        for (; nbUp < _variables.size(); ++nbUp)
            _variables[nbUp]->initVariable();
        setInitialized(true);
        _isUp = true;
    } catch (...) {
        while (nbUp > 0)
            _variables[--nbUp]->cleanupVariable();
        cleanupPackage();
        throw;
    }
}

void InPackageInit::takeDown()
{
    _isUp = false;
    std::exception_ptr failure;
    auto const attempt = [&](auto step) {
        try {
            step();
        } catch (...) {
            if (!failure)
                failure = std::current_exception();
        }
    };
    for (auto variable = _variables.rbegin(); variable != _variables.rend(); ++variable)
        attempt([&] { (*variable)->cleanupVariable(); });
    attempt([&] { cleanupPackage(); });
    attempt([&] { setInitialized(false); });
    if (failure)
        std::rethrow_exception(failure);
}

InPackageError::InPackageError(std::string const &what) : std::logic_error(what) {}
InPackageError::~InPackageError() = default;

// ---- scopes

InPackageScope::InPackageScope() : _exceptionsAtStart(std::uncaught_exceptions())
{
    BaseGuard const guard(packagesLock);
    if (scopes == 0)
        InPackageRun::bringUp();
    Interlocked::storeRelease(scopes, scopes + 1);
}

InPackageScope::~InPackageScope() noexcept(false)
{
    BaseGuard const guard(packagesLock);
    Interlocked::storeRelease(scopes, scopes - 1);
    if (scopes > 0)
        return;
    try {
        InPackageRun::takeDown();
    } catch (...) {
        // A scope that an exception ends cannot throw another.
        if (std::uncaught_exceptions() <= _exceptionsAtStart)
            throw;
    }
}

bool InPackageScope::isOpen()
{
    return Interlocked::loadAcquire(scopes) > 0;
}

// ---- the package of this library

template class InInit<ZvInit::base>;

namespace {

Immortal<InInit<ZvInit::base>> basePackage;

} // namespace

} // namespace Zv
