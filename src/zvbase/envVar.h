// Environment variables as switches.
#pragma once

#include "zvbase/export.h"

#include <cstddef>
#include <string>

namespace Zv {

/// The environment of the process. Any thread may call.
///
/// `putEnv` and everything in the libraries that reads the environment exclude each other. Dates by local time read it
/// too: the system's time zone is the variable TZ. The libraries know nothing of an application that calls `getenv`,
/// `setenv`, `localtime` or `strftime` itself. If another thread may call `putEnv` meanwhile, the application must hold
/// an `EnvVar::Guard`:
///
///     {
///         EnvVar::Guard const guard;
///         ::localtime_r(&seconds, &fields);
///     }
class ZVBASE_EXPORT EnvVar
{
public:
    /// Keeps the environment as it is while it lives. Its constructor blocks while another thread reads or changes the
    /// environment. A thread that holds one may make another one, and may call `putEnv`.
    class ZVBASE_EXPORT Guard
    {
    public:
        Guard();
        ~Guard();
        Guard(Guard const &) = delete;
        Guard &operator=(Guard const &) = delete;
    };

    /// Sets a variable: "NAME=value". "NAME=" sets it to the empty text. The text is copied. Fails the assertion
    /// "separator && separator != assignment" where there is no '=' behind a name.
    static void putEnv(char const *assignment);
    /// The text of a variable; empty where it is not set.
    static std::string getEnv(char const *name);

    EnvVar() = delete;
};

/// A variable with a whole number, read when the object is built and at each `refresh`. It is usually a static, and
/// has no destructor. A variable that is not set, or whose text is not one decimal number that fits an `int` (blanks
/// around it are allowed), has the default value.
class ZVBASE_EXPORT EnvIntVar
{
public:
    /// `name` outlives the object.
    EnvIntVar(char const *name, int defaultValue);

    /// Reads the environment again. Any thread.
    void refresh();
    /// What the last reading gave. Any thread.
    int getValue() const;
    char const *getName() const { return _name; }

private:
    char const *_name;
    int _defaultValue;
    int _value;
};

} // namespace Zv
