#include "zvbase/trace.h"

#include "zvbase/baseLock.private.h"
#include "zvbase/envVar.h"
#include "zvbase/lgLine.h"
#include "zvbase/traceTags.private.h"

#include <algorithm>
#include <cstring>
#include <iomanip>
#include <locale>
#include <sstream>
#include <string>
#include <string_view>
#include <vector>

namespace Zv {

/// All levels, and all settings of levels in the order in which they were made.
class TraceLevels
{
public:
    static TraceLevel _main;

    static TraceLevel *registerLevel(char const *name);
    static void setEnabled(std::string_view name, bool enabled);
    static void applyEnvironment();

private:
    struct Setting
    {
        std::string name;
        bool isEnabled;

        bool concerns(TraceLevel const &level) const
        {
            return name == "*" || name == level.getName();
        }
    };

    static void setNoLock(std::string_view name, bool enabled) ZV_REQUIRES(_lock);
    static void readEnvironmentNoLock() ZV_REQUIRES(_lock);

    static BaseLock _lock;
    static std::vector<Setting> *_settings ZV_GUARDED_BY(_lock);
};

constinit BaseLock TraceLevels::_lock;
constinit std::vector<TraceLevels::Setting> *TraceLevels::_settings = nullptr;
constinit TraceLevel TraceLevels::_main{"Main", true};

constinit TraceLevel * const Trace::MainTraceLevel = &TraceLevels::_main;

void TraceLevels::setNoLock(std::string_view name, bool enabled)
{
    _settings->push_back({std::string(name), enabled});
    for (TraceLevel *level = &_main; level; level = level->_next) {
        if (_settings->back().concerns(*level))
            level->setEnabled(enabled);
    }
}

void TraceLevels::readEnvironmentNoLock()
{
    if (_settings)
        return;
    _settings = new std::vector<Setting>;
    std::string const text = EnvVar::getEnv("ZV_TRACE");
    for (std::size_t start = 0; start < text.size();) {
        std::size_t const end = std::min(text.find(',', start), text.size());
        std::string_view name = std::string_view(text).substr(start, end - start);
        bool const isEnabled = !name.starts_with('-');
        name.remove_prefix(isEnabled ? 0 : 1);
        if (!name.empty())
            setNoLock(name, isEnabled);
        start = end + 1;
    }
}

void TraceLevels::applyEnvironment()
{
    BaseGuard const guard(_lock);
    readEnvironmentNoLock();
}

void TraceLevels::setEnabled(std::string_view name, bool enabled)
{
    BaseGuard const guard(_lock);
    readEnvironmentNoLock();
    setNoLock(name, enabled);
}

TraceLevel *TraceLevels::registerLevel(char const *name)
{
    BaseGuard const guard(_lock);
    readEnvironmentNoLock();
    TraceLevel *last = &_main;
    for (TraceLevel *level = last; level; level = level->_next) {
        if (std::strcmp(level->getName(), name) == 0)
            return level;
        last = level;
    }
    bool isEnabled = false;
    TraceLevel * const made = new TraceLevel(name, false);
    for (Setting const &setting : *_settings) {
        if (setting.concerns(*made))
            isEnabled = setting.isEnabled;
    }
    made->setEnabled(isEnabled);
    last->_next = made;
    return made;
}

namespace {

// The main level exists before any level is registered.
[[maybe_unused]] bool const isEnvironmentApplied = (TraceLevels::applyEnvironment(), true);

} // namespace

TraceLevel *Trace::registerLevel(char const *name, char const *)
{
    return TraceLevels::registerLevel(name);
}

void Trace::setEnabled(char const *name, bool enabled)
{
    TraceLevels::setEnabled(name, enabled);
}

Trace::Trace() = default;
Trace::~Trace() = default;

void Trace::writeTag(std::ostream &stream) const
{
    stream << std::setiosflags(std::ios_base::left) << std::setw(15) << "unknown"
           << std::resetiosflags(std::ios_base::left) << ' ';
}

std::ostream &Trace::log(std::ostream &stream, char const *file, int line)
{
    // The caller's stream may block or throw. A manager that retires waits only for its own code.
    std::ostringstream tag;
    tag.imbue(std::locale::classic());
    TraceTags::write(tag);
    stream.width(0);
    stream.write(tag.view().data(), static_cast<std::streamsize>(tag.view().size()));
    return stream << file << '(' << line << "): ";
}

void Trace::printException(ExBase const &exception, char const *file, int line)
{
    LgLine text;
    text.begin(file, line) << "Exception: " << exception.getDetailedReason();
}

Trace::Entry::Entry(TraceLevel const &level, char const *name, char const *file, int line)
    : _name(level.isEnabled() ? name : nullptr), _file(file), _line(line)
{
    if (_name) {
        LgLine text;
        text.begin(_file, _line) << "> " << _name;
    }
}

Trace::Entry::~Entry()
{
    if (_name) {
        LgLine text;
        text.begin(_file, _line) << "< " << _name;
    }
}

} // namespace Zv
