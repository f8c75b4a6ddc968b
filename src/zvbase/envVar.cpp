#include "zvbase/envVar.h"

#include "zvbase/baseLock.private.h"
#include "zvbase/failures.h"
#include "zvbase/platform/shared.h"

#include <charconv>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>

namespace Zv {

namespace {

// The system does not protect the environment against a change while it is read.
constinit BaseLock environmentLock;

std::string_view withoutBlanks(std::string_view text)
{
    constexpr char BLANKS[] = " \t\r\n";
    std::size_t const first = text.find_first_not_of(BLANKS);
    if (first == text.npos)
        return {};
    return text.substr(first, text.find_last_not_of(BLANKS) - first + 1);
}

int toInt(std::string_view text, int defaultValue)
{
    text = withoutBlanks(text);
    if (text.starts_with('+') && !text.starts_with("+-"))
        text.remove_prefix(1);
    int value = 0;
    char const * const end = text.data() + text.size();
    auto const [stop, error] = std::from_chars(text.data(), end, value);
    return error == std::errc() && stop == end ? value : defaultValue;
}

} // namespace

EnvVar::Guard::Guard() ZV_NO_THREAD_SAFETY_ANALYSIS
{
    environmentLock.lock();
}

EnvVar::Guard::~Guard() ZV_NO_THREAD_SAFETY_ANALYSIS
{
    environmentLock.unlock();
}

void EnvVar::putEnv(char const *assignment)
{
    char const * const separator = std::strchr(assignment, '=');
    ZV_ASSERT(separator && separator != assignment);
    std::string const name(assignment, separator);
    Guard const guard;
#ifdef _WIN32
    ZV_ASSERT(::_putenv_s(name.c_str(), separator + 1) == 0);
#else
    ZV_ASSERT(::setenv(name.c_str(), separator + 1, 1) == 0);
#endif
}

std::string EnvVar::getEnv(char const *name)
{
    Guard const guard;
    char const * const text = std::getenv(name);
    return text ? text : "";
}

EnvIntVar::EnvIntVar(char const *name, int defaultValue)
    : _name(name), _defaultValue(defaultValue), _value(defaultValue)
{
    refresh();
}

void EnvIntVar::refresh()
{
    EnvVar::Guard const guard;
    char const * const text = std::getenv(_name);
    _value.store(text ? toInt(text, _defaultValue) : _defaultValue, ZvPlatform::Order::RELAXED);
}

int EnvIntVar::getValue() const
{
    return _value.load(ZvPlatform::Order::RELAXED);
}

} // namespace Zv
