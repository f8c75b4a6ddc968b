#include "explore/explorer.private.h"

#include <algorithm>
#include <charconv>
#include <chrono>
#include <csignal>
#include <cstring>
#include <sstream>
#include <sys/wait.h>
#include <utility>

namespace Zv::Simulated {

namespace {

class Watch
{
public:
    explicit Watch(Tally &tally) : _tally(tally) {}
    ~Watch()
    {
        std::chrono::duration<double> const passed = std::chrono::steady_clock::now() - _start;
        _tally.seconds += passed.count();
    }

private:
    Tally &_tally;
    std::chrono::steady_clock::time_point const _start = std::chrono::steady_clock::now();
};

#ifdef ZV_RACES
/// A data race is found by most schedules that reach both accesses, so the tests run fewer.
constexpr unsigned FEWER = 50;
#else
constexpr unsigned FEWER = 1;
#endif

#ifdef ZV_KERNEL_SIMULATED
/// On the simulated kernel, a program takes more steps.
constexpr std::uint32_t MORE_STEPS = 8;
/// Whether the tests run the refusals, which take most of the time.
constexpr bool TRIES_REFUSALS = false;

/// Returns how many schedules the tests run by each strategy.
unsigned nbSchedules(Settings const &settings)
{
    return settings.onKernel ? settings.onKernel : (settings.schedules + 9) / 10;
}
#else
constexpr std::uint32_t MORE_STEPS = 1;
constexpr bool TRIES_REFUSALS = true;

unsigned nbSchedules(Settings const &settings)
{
    return settings.schedules;
}
#endif

Options optionsFor(Settings const &settings, Choice choice, std::uint64_t seed)
{
    Options options;
    options.choice = choice;
    options.seed = seed;
    options.depth = 2 + static_cast<std::uint32_t>(seed / 4 % 4);
    options.bound = MORE_STEPS * settings.bound;
    options.haste *= MORE_STEPS;
    options.hasty = settings.hasty && seed % 4 >= 2;
    options.stray = settings.stray && seed % 2;
    options.weak = settings.weak;
    options.resources = settings.refusals;
    return options;
}

/// Returns the script that follows the one that has just run, or nothing after the last one.
std::optional<std::vector<std::uint8_t>> nextScript(Record const &record, int preemptions)
{
    std::uint32_t const length = std::min(record.decisions, Record::DECISIONS);
    std::vector<int> spent(length + 1, 0);
    for (std::uint32_t i = 0; i < length; ++i) {
        Decision const &decision = record.decision[i];
        spent[i + 1] = spent[i] + (decision.isPreemption && decision.chosen != 0);
    }
    for (std::uint32_t i = length; i-- > 0;) {
        Decision const &decision = record.decision[i];
        // Each decision was first taken with option 0, or with option 1 if the running thread
        // yields. A thread that yields is therefore never chosen.
        if (decision.chosen + 1 >= decision.count ||
            spent[i] + (decision.isPreemption ? 1 : 0) > preemptions)
            continue;
        std::vector<std::uint8_t> script(i + 1);
        for (std::uint32_t j = 0; j < i; ++j)
            script[j] = record.decision[j].chosen;
        script[i] = static_cast<std::uint8_t>(decision.chosen + 1);
        return script;
    }
    return std::nullopt;
}

std::string describeStatus(int status)
{
    if (WIFSIGNALED(status))
        return WTERMSIG(status) == SIGXCPU ? "computes for ever"
                                           : "signal " + std::to_string(WTERMSIG(status));
    return "exit " + std::to_string(WEXITSTATUS(status));
}

} // namespace

std::vector<Scenario> &getScenarios()
{
    static auto &scenarios = *new std::vector<Scenario>;
    return scenarios;
}

// ---- Texts of schedules.

std::string Schedule::toText() const
{
    std::ostringstream text;
    text << getScenarios()[scenario].name;
    switch (options.choice) {
    case Choice::RANDOM:
        text << ":random:seed=" << options.seed;
        break;
    case Choice::PRIORITY:
        text << ":priority:seed=" << options.seed << ":depth=" << options.depth
             << ":length=" << options.length;
        break;
    case Choice::SCRIPT:
        text << ":script=";
        // "3*0." means three zeros.
        for (std::size_t i = 0; i < script.size();) {
            std::size_t same = i;
            while (same < script.size() && script[same] == script[i])
                ++same;
            if (same - i > 1)
                text << same - i << '*';
            text << unsigned{script[i]} << '.';
            i = same;
        }
        break;
    }
    if (options.hasty)
        text << ":hasty";
    if (options.stray)
        text << ":stray";
    if (options.failing)
        text << ":failing=" << options.failing;
    return text.str();
}

std::optional<Schedule> Schedule::fromText(std::string const &text)
{
    std::istringstream stream(text);
    std::string field;
    std::getline(stream, field, ':');
    Schedule schedule;
    auto const &scenarios = getScenarios();
    auto const found = std::find_if(scenarios.begin(), scenarios.end(),
                                    [&](Scenario const &one) { return one.name == field; });
    if (found == scenarios.end())
        return std::nullopt;
    schedule.scenario = static_cast<unsigned>(found - scenarios.begin());
    Options &options = schedule.options;
    options.bound = MORE_STEPS * found->settings.bound;
    options.weak = found->settings.weak;
    options.haste *= MORE_STEPS;
    options.resources = found->settings.refusals;
    while (std::getline(stream, field, ':')) {
        auto const equals = field.find('=');
        std::string const name = field.substr(0, equals);
        std::string const value = equals == field.npos ? "" : field.substr(equals + 1);
        auto const number = std::strtoull(value.c_str(), nullptr, 10);
        if (name == "random") {
            options.choice = Choice::RANDOM;
        } else if (name == "priority") {
            options.choice = Choice::PRIORITY;
        } else if (name == "seed") {
            options.seed = number;
        } else if (name == "depth") {
            options.depth = static_cast<std::uint32_t>(number);
        } else if (name == "length") {
            options.length = static_cast<std::uint32_t>(number);
        } else if (name == "failing") {
            options.failing = static_cast<std::uint32_t>(number);
        } else if (name == "hasty") {
            options.hasty = true;
        } else if (name == "stray") {
            options.stray = true;
        } else if (name == "script") {
            options.choice = Choice::SCRIPT;
            std::istringstream items(value);
            std::string item;
            while (std::getline(items, item, '.')) {
                auto const star = item.find('*');
                std::size_t const count = star == item.npos ? 1 : std::stoul(item);
                std::string const chosen = star == item.npos ? item : item.substr(star + 1);
                schedule.script.insert(schedule.script.end(), count,
                                       static_cast<std::uint8_t>(std::stoul(chosen)));
            }
        } else {
            return std::nullopt;
        }
    }
    return schedule;
}

// ---- Memory orders.

namespace {

using ZvPlatform::Order;

constexpr struct
{
    char const *name;
    Order order;
} ORDERS[] = {{"relaxed", Order::RELAXED},
              {"acquire", Order::ACQUIRE},
              {"release", Order::RELEASE},
              {"acq_rel", Order::ACQ_REL},
              {"seq_cst", Order::SEQ_CST}};

char const *toText(Order order)
{
    for (auto const &one : ORDERS)
        if (one.order == order)
            return one.name;
    return "consume";
}

std::string toText(OrderPlace const &place)
{
    std::string const path = shortPath(place.file);
    return (path.empty() ? place.file : path) + ':' + std::to_string(place.line) + ':' +
           place.operation + '=' + toText(place.order);
}

} // namespace

std::string toText(Weakening const &weakening)
{
    return std::string(weakening.file) + ':' + std::to_string(weakening.line) + ':' +
           weakening.operation + '=' + toText(weakening.order);
}

std::optional<Weakening> weakeningFromText(std::string const &text)
{
    auto const equals = std::min(text.find('='), text.size());
    auto const name = text.rfind(':', equals);
    auto const number = name == text.npos || name == 0 ? text.npos : text.rfind(':', name - 1);
    if (number == text.npos || number == 0)
        return std::nullopt;
    Weakening weakening;
    std::string const file = text.substr(0, number);
    std::string const operation = text.substr(name + 1, equals - name - 1);
    char const * const end = text.data() + name;
    auto const parsed = std::from_chars(text.data() + number + 1, end, weakening.line);
    if (parsed.ec != std::errc() || parsed.ptr != end || weakening.line == 0 ||
        file.size() >= sizeof weakening.file || operation.empty() ||
        operation.size() >= sizeof weakening.operation)
        return std::nullopt;
    file.copy(weakening.file, file.size());
    operation.copy(weakening.operation, operation.size());
    if (equals == text.size())
        return weakening;
    for (auto const &one : ORDERS)
        if (text.substr(equals + 1) == one.name) {
            weakening.order = one.order;
            return weakening;
        }
    return std::nullopt;
}

// ---- Running.

std::optional<Finding> Explorer::runOnce(Schedule const &schedule, Process process)
{
    Run &run = _nursery.getRun();
    run.scenario = schedule.scenario;
    run.isAlone = process != Process::USED;
    run.options = schedule.options;
    run.options.trace = process == Process::TRACED ? 0 : -1;
    run.options.weakening = _weakening;
    run.options.listsOrders = _listsOrders;
    Record &record = run.record;
    record.isDone = record.isWeakened = false;
    record.finding[0] = record.report[0] = '\0';
    record.steps = record.decisions = 0;
    record.scripted = static_cast<std::uint32_t>(schedule.script.size());
    for (std::uint32_t i = 0; i < record.scripted; ++i)
        record.decision[i] = {schedule.script[i], 0, false};
    _nursery.run();
    if (record.finding[0])
        return Finding{schedule, record.finding, record.report};
    if (!record.isDone || run.status != 0)
        return Finding{schedule, describeStatus(run.status), "the process ended\n"};
    return std::nullopt;
}

std::optional<Finding> Explorer::run(Tally &tally, Schedule const &schedule, Process process)
{
    auto finding = runOnce(schedule, process);
    Record const &record = _nursery.getRun().record;
    if (finding && process == Process::USED) {
        auto const digest = record.digest;
        auto const again = runOnce(schedule, Process::NEW);
        if (!again || again->kind != finding->kind || record.digest != digest)
            finding = Finding{schedule, "not the same in a new process",
                              "in a process that was used: " + finding->report};
    }
    ++tally.schedules;
    tally.steps += record.steps;
    tally.switches += record.switches;
    tally.digests.insert(record.digest);
    tally.isWeakened = tally.isWeakened || record.isWeakened;
    for (std::uint32_t i = 1; _listsOrders && i < Record::ORDERS; ++i) {
        if (!record.orders[i].file)
            continue;
        bool &isUsed = tally.orders[toText(record.orders[i])];
        isUsed = isUsed || record.orders[i].isUsed;
    }
    return finding;
}

void Explorer::byChance(Tally &tally, unsigned scenario, Choice choice, unsigned schedules,
                        std::uint64_t seed)
{
    Series series{.seed = seed};
    goOn(tally, scenario, choice, series, schedules);
}

void Explorer::goOn(Tally &tally, unsigned scenario, Choice choice, Series &series,
                    unsigned schedules)
{
    Watch const watch(tally);
    Settings const &settings = getScenarios()[scenario].settings;
    for (unsigned i = 0; i < schedules && !tally.finding; ++i) {
        Schedule schedule{scenario, optionsFor(settings, choice, series.seed + series.done), {}};
        // The changes of priority are spread over the decisions of an average run. A few runs that
        // take many more would make each moment of the others unlikely.
        schedule.options.length =
            static_cast<std::uint32_t>(series.done ? series.decisions / series.done + 1 : 10);
        tally.finding = run(tally, schedule);
        series.decisions += _nursery.getRun().record.decisions;
        ++series.done;
    }
}

void Explorer::byExhaustion(Tally &tally, unsigned scenario, int preemptions, unsigned schedules)
{
    Watch const watch(tally);
    Settings const &settings = getScenarios()[scenario].settings;
    Schedule schedule{scenario, optionsFor(settings, Choice::SCRIPT, 0), {}};
    for (unsigned i = 0; i < schedules && !tally.finding; ++i) {
        tally.finding = run(tally, schedule);
        auto next = nextScript(_nursery.getRun().record, preemptions);
        if (!next) {
            tally.isComplete = true;
            return;
        }
        schedule.script = std::move(*next);
    }
}

void Explorer::byRefusal(Tally &tally, unsigned scenario, unsigned schedules, std::uint64_t seed)
{
    Watch const watch(tally);
    Settings const &settings = getScenarios()[scenario].settings;
    bool wasRefused = true;
    for (std::uint32_t failing = 1; wasRefused && !tally.finding; ++failing) {
        wasRefused = false;
        for (unsigned i = 0; i < schedules && !tally.finding; ++i) {
            Schedule schedule{scenario, optionsFor(settings, Choice::RANDOM, seed + i), {}};
            schedule.options.failing = failing;
            tally.finding = run(tally, schedule);
            wasRefused = wasRefused || _nursery.getRun().record.failable >= failing;
        }
    }
}

void Explorer::byAll(Tally &tally, unsigned scenario, std::optional<unsigned> schedules,
                     std::uint64_t seed)
{
    constexpr unsigned SCHEDULES_FOR_EACH_REFUSAL = 3;
    Settings const &settings = getScenarios()[scenario].settings;
    auto const fewer = [](unsigned count) { return (count + FEWER - 1) / FEWER; };
    unsigned const byChoice = schedules.value_or(fewer(nbSchedules(settings)));
    byChance(tally, scenario, Choice::RANDOM, byChoice, seed);
    byChance(tally, scenario, Choice::PRIORITY, byChoice, seed);
    if (settings.preemptions >= 0)
        byExhaustion(tally, scenario, settings.preemptions,
                     schedules.value_or(fewer(settings.exhaustive)));
    if (settings.refusals && (TRIES_REFUSALS || schedules) && !_weakening.line && !_listsOrders)
        byRefusal(tally, scenario, SCHEDULES_FOR_EACH_REFUSAL, seed);
}

void Explorer::byRepetition(Tally &tally, unsigned scenario, unsigned schedules, std::uint64_t seed)
{
    struct Result
    {
        Schedule schedule;
        std::uint32_t steps;
        std::uint64_t digest;
        bool hasFound;
    };

    Watch const watch(tally);
    Settings const &settings = getScenarios()[scenario].settings;
    auto const runAgain = [&](Schedule const &schedule, Process process) {
        bool const hasFound = run(tally, schedule, process).has_value();
        Record const &record = _nursery.getRun().record;
        return Result{schedule, record.steps, record.digest, hasFound};
    };
    std::vector<Result> results;
    for (unsigned i = 0; i < schedules; ++i) {
        Choice const choice = i % 2 ? Choice::PRIORITY : Choice::RANDOM;
        results.push_back(
            runAgain({scenario, optionsFor(settings, choice, seed + i), {}}, Process::USED));
    }
    // A run must not depend on what its process has run before. Nor must the trace change it, so
    // some of the second runs are traced.
    for (unsigned i = 0; i < schedules && !tally.finding; ++i) {
        Result const &first = results[i];
        Result const second = runAgain(first.schedule, i % 4 < 2 ? Process::TRACED : Process::NEW);
        if (first.digest != second.digest || first.steps != second.steps ||
            first.hasFound != second.hasFound)
            tally.finding = Finding{first.schedule, "not deterministic",
                                    "two runs of one seed differ: " + std::to_string(first.steps) +
                                        " and " + std::to_string(second.steps) + " steps\n"};
    }
}

bool Explorer::findsUnweakened(Finding const &finding)
{
    Weakening const weakening = std::exchange(_weakening, {});
    Tally tally;
    bool const finds = run(tally, finding.schedule).has_value();
    _weakening = weakening;
    return finds;
}

// ---- Texts of failures.

std::string Explorer::replay(Schedule const &schedule)
{
    Tally tally;
    auto const finding = run(tally, schedule, Process::TRACED);
    std::string text = _nursery.getTrace();
    text += finding ? finding->kind + "\n" + finding->report : "nothing was found\n";
    return withSymbols(text);
}

std::string Explorer::tell(Finding const &finding)
{
    constexpr std::size_t LAST_LINES = 40;
    std::string const text = replay(finding.schedule);
    std::string const report = text.substr(std::min(text.size(), text.rfind(finding.kind + "\n")));
    std::size_t start = text.size() - report.size();
    for (std::size_t lines = 0; lines <= LAST_LINES && start != 0; ++lines)
        start = text.rfind('\n', start - 1) == text.npos ? 0 : text.rfind('\n', start - 1);
    std::string const weakened = _weakening.line ? " --weaken " + toText(_weakening) : "";
    return finding.kind + " in " + finding.schedule.toText() +
           "\nagain, step by step: " + _command + weakened + " --replay '" +
           finding.schedule.toText() + "'\n" + text.substr(start);
}

} // namespace Zv::Simulated
