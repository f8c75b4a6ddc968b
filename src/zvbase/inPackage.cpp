#include "zvbase/inPackage.h"

#include "zvbase/baseLock.private.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/immortal.h"
#include "zvbase/inInit.h"
#include "zvbase/inPackageRun.private.h"
#include "zvbase/objPtr.h"
#include "zvbase/platform/shared.h"
#include "zvbase/scope.private.h"
#include "zvbase/typeName.h"

#include <algorithm>
#include <utility>

namespace Zv {

namespace {

/// Guards the list and the count of scopes. It is held while the packages are run, so that a thread
/// that opens a second scope waits until all packages are up.
constinit BaseLock packagesLock;
constinit InPackageInit *firstPackage ZV_GUARDED_BY(packagesLock) = nullptr;
constinit InPackageRun *
    run ZV_GUARDED_BY(packagesLock) = nullptr; // null unless the packages are up
constinit bool
    isRunning ZV_GUARDED_BY(packagesLock) = false; // on their way up or down, in this thread
constinit ZvPlatform::Shared<unsigned> scopes{0};  // read without the lock

} // namespace

// ---- the run

namespace {

InPackageInit *find(InPackageRun::Packages const &packages, std::type_info const &type)
{
    auto const found = std::find_if(packages.begin(), packages.end(), [&](InPackageInit *package) {
        InPackageInit const &object = *package;
        return typeid(object) == type;
    });
    return found == packages.end() ? nullptr : *found;
}

bool contains(InPackageRun::Packages const &packages, InPackageInit const *package)
{
    return std::find(packages.begin(), packages.end(), package) != packages.end();
}

std::string nameCircle(InPackageRun::Packages const &path, InPackageInit const *package)
{
    std::string text = "Packages need each other in a circle: ";
    for (auto step = std::find(path.begin(), path.end(), package); step != path.end(); ++step)
        text += std::string((*step)->getName()) + " -> ";
    return text + package->getName() + ".";
}

} // namespace

InPackageRun::Packages InPackageRun::getRegistered()
{
    BaseGuard const guard(packagesLock);
    Packages packages;
    for (InPackageInit *package = firstPackage; package; package = package->_next)
        packages.push_back(package);
    return packages;
}

InPackageRun::InPackageRun(Packages const &packages)
{
    Plan plan = {packages, {}};
    for (InPackageInit *package : packages)
        visit(plan, package);
}

void InPackageRun::visit(Plan &plan, InPackageInit *package)
{
    if (contains(_order, package))
        return;
    if (contains(plan.path, package))
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
    _order.push_back(package);
}

void InPackageRun::bringUp()
{
    FirstFailure failure;
    failure.attempt([&] {
        for (; _nbUp < _order.size(); ++_nbUp)
            _order[_nbUp]->bringUp();
    });
    if (_nbUp < _order.size())
        failure.attempt([&] { takeDown(); });
    failure.rethrowAlways();
}

void InPackageRun::takeDown()
{
    FirstFailure failure;
    while (_nbUp > 0) {
        --_nbUp;
        failure.attempt([&] { _order[_nbUp]->takeDown(); });
    }
    failure.rethrowAlways();
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
    if (!_isUp) {
        _variables.push_back(variable);
        return;
    }
    variable->initVariable();
    try {
        _variables.push_back(variable);
    } catch (...) {
        variable->cleanupVariable();
        throw;
    }
    ++_nbVariablesUp;
}

void InPackageInit::removeDependency(InVariableBase *variable)
{
    BaseGuard const guard(packagesLock);
    auto const found = std::find(_variables.begin(), _variables.end(), variable);
    if (found == _variables.end())
        return;
    bool const isUp = found - _variables.begin() < static_cast<std::ptrdiff_t>(_nbVariablesUp);
    _variables.erase(found);
    if (isUp) {
        --_nbVariablesUp;
        variable->cleanupVariable();
    }
}

/// While a variable comes up, it may add and remove others, and itself.
void InPackageInit::bringVariablesUp()
{
    while (_nbVariablesUp < _variables.size()) {
        InVariableBase * const variable = _variables[_nbVariablesUp];
        variable->initVariable();
        if (_nbVariablesUp < _variables.size() && _variables[_nbVariablesUp] == variable)
            ++_nbVariablesUp;
    }
}

/// Takes down the last variable that is up. It may remove others, and itself.
void InPackageInit::takeVariableDown()
{
    --_nbVariablesUp;
    _variables[_nbVariablesUp]->cleanupVariable();
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
    FirstFailure failure;
    failure.attempt([&] {
        bringVariablesUp();
        setInitialized(true);
        _isUp = true;
    });
    if (!_isUp) {
        while (_nbVariablesUp > 0)
            failure.attempt([&] { takeVariableDown(); });
        failure.attempt([&] { cleanupPackage(); });
    }
    failure.rethrowAlways();
}

void InPackageInit::takeDown()
{
    _isUp = false;
    FirstFailure failure;
    while (_nbVariablesUp > 0)
        failure.attempt([&] { takeVariableDown(); });
    failure.attempt([&] { cleanupPackage(); });
    failure.attempt([&] { setInitialized(false); });
    failure.rethrowAlways();
}

InPackageError::InPackageError(std::string const &what) : std::logic_error(what) {}
InPackageError::~InPackageError() = default;

// ---- scopes

InPackageScope::InPackageScope()
{
    BaseGuard const guard(packagesLock);
    if (!run && !isRunning) {
        // If a step of a package opens or closes a scope meanwhile, the scope is only counted.
        TemporaryValue const running(isRunning, true);
        ObjPtr<InPackageRun> made(new InPackageRun(InPackageRun::getRegistered()));
        made->bringUp();
        run = made.release();
    }
    scopes.store(scopes.load(ZvPlatform::Order::RELAXED) + 1, ZvPlatform::Order::RELEASE);
}

InPackageScope::~InPackageScope() noexcept(false)
{
    BaseGuard const guard(packagesLock);
    scopes.store(scopes.load(ZvPlatform::Order::RELAXED) - 1, ZvPlatform::Order::RELEASE);
    if (scopes.load(ZvPlatform::Order::RELAXED) > 0 || isRunning || !run)
        return;
    TemporaryValue const running(isRunning, true);
    ObjPtr<InPackageRun> const finished(std::exchange(run, nullptr));
    throwUnlessUnwinding(_unwinding, __FILE__, __LINE__, [&finished] { finished->takeDown(); });
}

bool InPackageScope::isOpen()
{
    return scopes.load(ZvPlatform::Order::ACQUIRE) > 0;
}

// ---- the package of this library

template class InInit<ZvInit::base>;

namespace {

Immortal<InInit<ZvInit::base>> basePackage;

} // namespace

} // namespace Zv
