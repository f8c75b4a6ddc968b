// Access to environment variables (applications).
#pragma once

#include "zvbase/export.h"
#include "zvbase/platform/shared.h"

#include <cstddef>
#include <string>

namespace Zv {

/// Reads and changes the environment of the process.
///
/// `putEnv` and everything in the libraries that reads the environment exclude each other. Dates by
/// local time read it, too: the system's time zone is the variable TZ. The libraries cannot protect
/// an application that calls `getenv`, `setenv`, `localtime` or `strftime` itself. If another
/// thread may call `putEnv` at the same time, the application must hold an `EnvVar::Guard`:
///
///     #include <cstdlib>
///
///     std::string home;
///     {
///         Zv::EnvVar::Guard const guard;
///         if (char const *const text = std::getenv("HOME"))
///             home = text;
///     }
///
/// **Threads**: thread-safe.
///
/// **Blocks**: all operations block while another thread has a `Guard`, or reads or changes the
/// environment.
class ZVBASE_EXPORT EnvVar
{
public:
    /// Keeps other threads from changing the environment during its lifetime.
    ///
    /// A thread that holds a guard may construct another one, and may call `putEnv`.
    class ZVBASE_EXPORT Guard
    {
    public:
        Guard();
        ~Guard();
        Guard(Guard const &) = delete;
        Guard &operator=(Guard const &) = delete;
    };

    /// Sets a variable. `assignment` is "NAME=value". "NAME=" sets the variable to the empty text.
    /// The text is copied. Fails the assertion "separator && separator != assignment" if there is
    /// no '=' behind a name.
    static void putEnv(char const *assignment);
    /// Returns the text of a variable, or an empty text if it is not set.
    static std::string getEnv(char const *name);

    EnvVar() = delete;
};

/// An environment variable whose text is a whole number. Usually a static object. It has no
/// destructor.
///
/// The variable is read by the constructor and by `refresh`. It has the default value if it is not
/// set, or if its text is not one decimal number that fits an `int`. Blanks around the number are
/// allowed.
///
///     static Zv::EnvIntVar nbWorkers("APP_WORKERS", 4);
///     int const nb = nbWorkers.getValue();
///
/// **Threads**: thread-safe.
class ZVBASE_EXPORT EnvIntVar
{
public:
    /// `name` is not copied. It must outlive the object.
    EnvIntVar(char const *name, int defaultValue);

    /// Reads the environment again.
    void refresh();
    /// Returns the value that was read last. Does not block.
    int getValue() const;
    char const *getName() const { return _name; }

private:
    char const *_name;
    int _defaultValue;
    ZvPlatform::Shared<int> _value;
};

} // namespace Zv
