// Packages: what a library does when it comes up and when it goes down, in the order of dependencies.
#pragma once

#include "zvbase/export.h"
#include "zvbase/unwinding.h"

#include <cstddef>
#include <stdexcept>
#include <string>
#include <typeinfo>
#include <vector>

namespace Zv {

class InPackageInit;

/// Something that exists only while a package is up: the package builds it right after its own `initPackage`, and
/// takes it down right before its own `cleanupPackage`, the latest first. Neither the package nor the variable owns the
/// other; a variable is removed before it dies.
///
/// Both operations may add and remove variables, also the one that they are called on. They run under the lock of all
/// packages: they must not wait for another thread that adds a variable or opens a scope.
class ZVBASE_EXPORT InVariableBase
{
public:
    virtual ~InVariableBase();
    virtual void initVariable() = 0;
    virtual void cleanupVariable() = 0;

protected:
    InVariableBase();
    InVariableBase(InVariableBase const &) = delete;
    InVariableBase &operator=(InVariableBase const &) = delete;
};

/// What the run of the packages calls, one operation after another, on one thread.
class ZVBASE_EXPORT InPackageInitBase
{
public:
    virtual ~InPackageInitBase();
    virtual void addDependency(InVariableBase *variable) = 0;
    virtual void removeDependency(InVariableBase *variable) = 0;
    virtual char const *getName() const = 0;
    /// The start-up step. A package whose step throws is not up; the run takes down what was up and passes the
    /// exception on.
    virtual void initPackage() = 0;
    virtual void cleanupPackage() = 0;
    /// Told true when the package is up, false after it went down.
    virtual void setInitialized(bool initialized) = 0;

protected:
    InPackageInitBase();
    InPackageInitBase(InPackageInitBase const &) = delete;
    InPackageInitBase &operator=(InPackageInitBase const &) = delete;
};

/// A package: one object per process, a static of the library that it belongs to, which enters it while the library
/// loads. Made through `InInit<Tag>`.
class ZVBASE_EXPORT InPackageInit : public InPackageInitBase
{
public:
    /// `name` outlives the package.
    explicit InPackageInit(char const *name);
    /// Takes the package out of the list. Not while it is up.
    ~InPackageInit() override;

    /// The variable comes up with this package from its next start on; one that is up already brings it up at once. A
    /// variable whose `initVariable` throws here is not entered.
    void addDependency(InVariableBase *variable) override;
    /// A variable that is up goes down at once. Does nothing if the variable is not entered.
    void removeDependency(InVariableBase *variable) override;
    char const *getName() const override;

    /// This package needs the one of that type, in the order of the calls. The other need not exist yet.
    void addDependency(std::type_info const *package);
    /// Enters this package in the list of the process. Works while statics are being constructed; twice is once.
    void registerPackage();

    std::vector<std::type_info const *> const &getDependencies() const { return _dependencies; }

private:
    friend class InPackageRun;
    friend class InPackageScope;

    void bringUp();
    void takeDown();
    void bringVariablesUp();
    void takeVariableDown();

    char const *_name;
    std::vector<std::type_info const *> _dependencies;
    std::vector<InVariableBase *> _variables;
    std::size_t _nbVariablesUp = 0; // the first ones
    InPackageInit *_next = nullptr;
    bool _isRegistered = false;
    bool _isUp = false;
};

/// The packages cannot be brought into an order: one needs a package that nobody entered, or several need each other
/// in a circle. `what` names them.
class ZVBASE_EXPORT InPackageError : public std::logic_error
{
public:
    explicit InPackageError(std::string const &what);
    ~InPackageError() override;
};

/// Keeps the packages up. An application's `main` builds one before it uses anything of the libraries:
///
///     int main()
///     {
///         Zv::InPackageScope packages;
///         ...
///     }
///
/// Scopes are counted. The outermost one runs all packages up, each after those that it needs, and takes them down in
/// the reverse order; its thread is the main thread of the libraries. What a package's step throws leaves the
/// constructor, after the packages that were up already have been taken down. The destructor throws what a
/// `cleanupPackage` throws, after all the others have had their turn.
///
/// While the packages are run up or down, another thread that opens or closes a scope waits. A step of a package may
/// open scopes of its own: they are counted, but run nothing.
class ZVBASE_EXPORT InPackageScope
{
public:
    /// Throws `InPackageError`, or what an `initPackage` throws.
    InPackageScope();
    ~InPackageScope() noexcept(false);
    InPackageScope(InPackageScope const &) = delete;
    InPackageScope &operator=(InPackageScope const &) = delete;

    /// Whether a scope exists, in any thread.
    static bool isOpen();

private:
    Unwinding _unwinding;
};

} // namespace Zv
