#include "topReader.h"

#include "threadLevels.h"

#include <zvbase/zvbase.h>

#include <algorithm>
#include <utility>

using namespace Zv;

void TopReader::read(TopFigures &figures, PlayoutJob const &job)
{
    readThreads(figures);
    if (auto const &memory = job.show.memory) {
        auto const now = job.memoryFigures.get();
        figures.memory = {memory->manager + ", " + memory->strategy,
                          now.bytes,
                          memory->budget,
                          now.loads,
                          now.reloads,
                          now.unloads,
                          now.hits,
                          now.visits};
    }
}

void TopReader::readDevices(TopFigures &figures, PlayoutJob const &job, Stage const &stage,
                            States const &states)
{
    if (auto const &card = job.card) {
        auto const counts = card->getFigures();
        auto const filling = card->getFilling();
        figures.card = {card->getName(),  filling.ready,   filling.room,
                        counts.underruns, counts.overruns, counts.late};
    }
    for (auto const &[name, device] : stage.getDevices()) {
        auto const load = device->getLoad();
        auto const state = states.find(name);
        TopFigures::Device shown;
        shown.name = name;
        shown.depth = stage.getDepth(name);
        shown.state = state == states.end() ? "" : state->second;
        shown.waiting = load.nbRequests;
        shown.blocks = load.nbBlocks.value_or(-1);
        shown.mostBlocks = AudioConnection::CAPACITY;
        shown.done = load.nbDone;
        shown.busy = device->getBusySeconds();
        if (auto const &metronome = device->getMetronome(); metronome.isUsed()) {
            auto const beats = metronome.getFigures();
            shown.beats = beats.beats;
            shown.late = beats.late;
            shown.lateness = beats.latest;
        }
        figures.devices.push_back(shown);
    }
}

void TopReader::readThreads(TopFigures &figures)
{
    double const now = Sleeper::getInstance().getTime();
    double const lapse = now - std::exchange(_readAt, now);
    std::map<id_t, double> seconds;
    for (ThreadLevel const &thread : readThreadLevels()) {
        TopFigures::Thread shown{thread.name, thread.level,   thread.asked,
                                 thread.got,  thread.seconds, -1};
        if (auto const before = _seconds.find(thread.number);
            before != _seconds.end() && thread.seconds >= 0 && lapse > 0)
            shown.share = std::max(thread.seconds - before->second, 0.0) / lapse;
        if (thread.seconds >= 0)
            seconds[thread.number] = thread.seconds;
        figures.threads.push_back(shown);
    }
    _seconds = std::move(seconds);
}
