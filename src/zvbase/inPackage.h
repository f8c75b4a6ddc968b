// Packages: start-up and shut-down of libraries in the order of their dependencies (applications).
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

/// An object that exists only while a package is up. The package initialises its variables right
/// after its own `initPackage`, and cleans them up right before its own `cleanupPackage`, in
/// reverse order.
///
/// Both operations may add and remove variables, including the one on which they are called. They
/// run under the lock of all packages: they must not wait for another thread that adds a variable
/// or opens a scope.
///
/// **Owns**: neither the package nor the variable owns the other. Remove a variable before you
/// destroy it.
class ZVBASE_EXPORT InVariableBase
{
public:
    virtual ~InVariableBase();
    /// Called when the package comes up.
    virtual void initVariable() = 0;
    /// Called before the package goes down.
    virtual void cleanupVariable() = 0;

protected:
    InVariableBase();
    InVariableBase(InVariableBase const &) = delete;
    InVariableBase &operator=(InVariableBase const &) = delete;
};

/// Interface of a package to the code that runs all packages.
///
/// **Threads**: the library calls the operations one after another, on one thread.
class ZVBASE_EXPORT InPackageInitBase
{
public:
    virtual ~InPackageInitBase();
    /// Adds a variable, which comes up and goes down with the package.
    virtual void addDependency(InVariableBase *variable) = 0;
    /// Removes a variable.
    virtual void removeDependency(InVariableBase *variable) = 0;
    virtual char const *getName() const = 0;
    /// Starts the package. If it throws, the package is not up. The packages that are up already go
    /// down, and the exception is passed on.
    virtual void initPackage() = 0;
    /// Stops the package. If it throws, the other packages still go down, and the first exception
    /// is passed on.
    virtual void cleanupPackage() = 0;
    /// Called with true when the package is up, and with false after it went down.
    virtual void setInitialized(bool initialized) = 0;

protected:
    InPackageInitBase();
    InPackageInitBase(InPackageInitBase const &) = delete;
    InPackageInitBase &operator=(InPackageInitBase const &) = delete;
};

/// A package: a part of a library that has to be started and stopped. There is one object of each
/// package in a process, a static of its library. Use the template `InInit<Tag>`, which also has an
/// example.
///
/// **Threads**: adding and removing variables is thread-safe. Dependencies must be added before the
/// packages are run.
class ZVBASE_EXPORT InPackageInit : public InPackageInitBase
{
public:
    /// `name` is not copied. It must outlive the package.
    explicit InPackageInit(char const *name);
    /// Takes the package out of the list of the process. The package must not be up.
    ~InPackageInit() override;

    /// Adds a variable, which comes up when this package is started next. If this package is up,
    /// the variable comes up at once. If its `initVariable` throws then, the variable is not added.
    ///
    /// **Blocks**: while another thread runs the packages.
    void addDependency(InVariableBase *variable) override;
    /// Removes a variable. If it is up, it goes down at once. Does nothing if it was not added.
    ///
    /// **Blocks**: while another thread runs the packages.
    void removeDependency(InVariableBase *variable) override;
    char const *getName() const override;

    /// Declares that this package needs the package of that type. Its object need not exist yet.
    void addDependency(std::type_info const *package);
    /// Adds this package to the list of the process. May be called while statics are constructed.
    /// Further calls do nothing.
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

/// Thrown if the packages have no valid order: if a package needs one that is not registered, or if
/// several packages need each other in a circle. `what` names them.
class ZVBASE_EXPORT InPackageError : public std::logic_error
{
public:
    /// `what` is the text that `what()` returns.
    explicit InPackageError(std::string const &what);
    ~InPackageError() override;
};

/// Keeps the packages up. The `main` of an application must construct one before it uses the
/// libraries:
///
///     int main()
///     {
///         Zv::InPackageScope const packages;
///         return 0;
///     }
///
/// Scopes are counted. The first one runs all packages up, each after the packages that it needs.
/// The last one takes them down in reverse order. The thread of the first scope is the main thread
/// of the libraries. A step of a package may open scopes of its own, which do not run anything.
///
/// **Threads**: thread-safe.
///
/// **Blocks**: constructor and destructor wait while another thread runs the packages.
class ZVBASE_EXPORT InPackageScope
{
public:
    /// Throws `InPackageError`, or what an `initPackage` throws, after the packages that were up
    /// have been taken down.
    InPackageScope();
    /// Throws the first exception of the packages' `cleanupPackage`, after all packages have gone
    /// down. If an exception is leaving the scope, it is only traced.
    ~InPackageScope() noexcept(false);
    InPackageScope(InPackageScope const &) = delete;
    InPackageScope &operator=(InPackageScope const &) = delete;

    /// Returns true if any thread has a scope.
    static bool isOpen();

private:
    Unwinding _unwinding;
};

} // namespace Zv
