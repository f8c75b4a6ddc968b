#include "explore/explore.h"

#include "explore/scenario.private.h"
#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"

namespace Zv::Explore {

namespace {

Simulated::Settings toScenario(Settings const &settings)
{
    Simulated::Settings scenario;
    scenario.schedules = settings.schedules;
    scenario.preemptions = settings.preemptions;
    scenario.bound = settings.bound;
    scenario.hasty = settings.hasty;
    scenario.leftOver = {settings.objectsLeft, settings.threadsLeft};
    scenario.leaks = settings.leaks;
    scenario.prepare = settings.prepare;
    return scenario;
}

} // namespace

void prepareSequences()
{
    DevSeqSMTable::getInstance();
}

Program::Program(char const *name, Settings const &settings, void (*body)())
{
    Simulated::getScenarios().push_back({name, toScenario(settings), body, {settings.finds}});
}

class Worker::Thread : public Simulated::Worker
{
public:
    using Simulated::Worker::Worker;
};

Worker::Worker(char const *name, std::function<void()> body)
    : _thread(new Thread(name, std::move(body)))
{}

Worker::~Worker() = default;

void step(char const *what)
{
    Simulated::step(what);
}

void fail(char const *condition, char const *file, int line)
{
    Simulated::find("does not hold", "%s, %s:%d", condition, file, line);
}

double getTime()
{
    constexpr double NANOSECOND = 1e-9;
    return static_cast<double>(Simulated::getTime()) * NANOSECOND;
}

} // namespace Zv::Explore
