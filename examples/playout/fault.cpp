#include "fault.h"

#include "playoutEx.h"

#include <resmgt/locks.h>

#include <algorithm>
#include <iterator>
#include <stdexcept>

using namespace Zv;

namespace {

using Phase = Fault::Phase;
using Kind = Fault::Kind;

constexpr double SLOW_SECONDS = 1.5;

struct KindName
{
    char const *name;
    Kind kind;
};
constexpr KindName KINDS[] = {{"fails", Kind::FAILS},   {"fails-otherwise", Kind::FAILS_OTHERWISE},
                              {"hangs", Kind::HANGS},   {"slow", Kind::SLOW},
                              {"silent", Kind::SILENT}, {"drops", Kind::DROPS},
                              {"twice", Kind::TWICE},   {"recovers", Kind::RECOVERS},
                              {"aborts", Kind::ABORTS}};

/// Which kinds of faults a phase may have. A call has no completion, and only a running device
/// reports something.
enum Kinds
{
    OF_CALL,
    OF_STEP,
    OF_STEP_WITH_REPORTS,
    OF_WORK
};

struct PhaseName
{
    char const *name;
    Phase phase;
    Kinds kinds;
};
constexpr PhaseName PHASES[] = {{"open", Phase::OPEN, OF_CALL},
                                {"start", Phase::START, OF_STEP_WITH_REPORTS},
                                {"ready", Phase::READY, OF_CALL},
                                {"sync", Phase::SYNC, OF_STEP_WITH_REPORTS},
                                {"lock", Phase::LOCK, OF_WORK},
                                {"recover", Phase::RECOVER, OF_STEP_WITH_REPORTS},
                                {"stop", Phase::STOP, OF_STEP_WITH_REPORTS},
                                {"abort", Phase::ABORT, OF_STEP},
                                {"close", Phase::CLOSE, OF_CALL}};

bool isPossible(Kinds kinds, Kind kind)
{
    switch (kind) {
    case Kind::FAILS:
    case Kind::FAILS_OTHERWISE:
    case Kind::HANGS:
    case Kind::SLOW:
        return true;
    case Kind::SILENT:
    case Kind::DROPS:
    case Kind::TWICE:
        return kinds == OF_STEP || kinds == OF_STEP_WITH_REPORTS;
    case Kind::RECOVERS:
    case Kind::ABORTS:
        return kinds == OF_WORK || kinds == OF_STEP_WITH_REPORTS;
    }
    return false;
}

/// Returns the names as text: "open, start, ready".
template <class Names, class Filter>
std::string list(Names const &names, Filter filter)
{
    std::string text;
    for (auto const &entry : names)
        if (filter(entry))
            text += (text.empty() ? "" : ", ") + std::string(entry.name);
    return text;
}

template <class Names>
auto findName(Names const &names, std::string const &name)
{
    return std::find_if(std::begin(names), std::end(names),
                        [&](auto const &entry) { return name == entry.name; });
}

} // namespace

Fault Fault::parse(std::string const &text)
{
    auto const second = text.rfind(':');
    auto const first = second == text.npos || second == 0 ? text.npos : text.rfind(':', second - 1);
    if (first == text.npos || first == 0)
        throw std::invalid_argument("takes DEVICE:PHASE:KIND, such as \"recorder:start:hangs\", "
                                    "not \"" +
                                    text + "\"");
    std::string const phaseName = text.substr(first + 1, second - first - 1);
    std::string const kindName = text.substr(second + 1);
    auto const phase = findName(PHASES, phaseName);
    if (phase == std::end(PHASES))
        throw std::invalid_argument("\"" + text + "\": there is no phase \"" + phaseName +
                                    "\", only " + list(PHASES, [](auto const &) { return true; }));
    auto const kind = findName(KINDS, kindName);
    if (kind == std::end(KINDS) || !isPossible(phase->kinds, kind->kind))
        throw std::invalid_argument(
            "\"" + text + "\": at \"" + phaseName + "\" there is no kind \"" + kindName +
            "\", only " +
            list(KINDS, [&](auto const &entry) { return isPossible(phase->kinds, entry.kind); }));
    return {text.substr(0, first), phase->phase, kind->kind};
}

char const *Fault::getName(Phase phase)
{
    return std::find_if(std::begin(PHASES), std::end(PHASES),
                        [&](auto const &entry) { return entry.phase == phase; })
        ->name;
}

void Faults::add(std::string const &text)
{
    Fault const fault = Fault::parse(text);
    if (find(fault.device, fault.phase))
        throw std::invalid_argument("\"" + text + "\": " + fault.device + " has a fault at \"" +
                                    Fault::getName(fault.phase) + "\" already");
    _faults.push_back(fault);
}

std::optional<Fault::Kind> Faults::find(std::string const &device, Fault::Phase phase) const
{
    for (Fault const &fault : _faults)
        if (fault.device == device && fault.phase == phase)
            return fault.kind;
    return std::nullopt;
}

void beginFault(std::optional<Fault::Kind> kind, std::string const &device, Fault::Phase phase)
{
    if (!kind)
        return;
    switch (*kind) {
    case Kind::FAILS:
        ZV_THROW(PlayoutEx::Fault, device.c_str(), Fault::getName(phase));
    case Kind::FAILS_OTHERWISE:
        throw std::runtime_error(device + " throws at \"" + Fault::getName(phase) +
                                 "\", as --fault asks");
    case Kind::HANGS: {
        LkEvent const never("fault", false);
        never.wait();
        break;
    }
    case Kind::SLOW:
        Sleeper::getInstance().sleep(SLOW_SECONDS);
        break;
    default:
        break;
    }
}
