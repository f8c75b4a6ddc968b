#include "playoutJob.h"

#include <filesystem>
#include <utility>

using namespace Zv;

PlayoutJob::PlayoutJob(Show const &playedShow, std::string outputPath, int framesPerBlock,
                       bool isFast, Faults askedFaults)
    : show(playedShow),
      output(std::move(outputPath)),
      blockFrames(framesPerBlock),
      timeline(show.clock ? new Timeline(show.clock->rate) : nullptr),
      picture(getPicturePath(show, output)),
      isPaced(timeline && !isFast),
      faults(std::move(askedFaults))
{}

std::string PlayoutJob::getPicturePath(Show const &show, std::string const &output)
{
    return show.clock && !output.empty()
               ? std::filesystem::path(output).replace_extension(".svg").string()
               : "";
}

void PlayoutJob::keepJournal()
{
    journal = std::make_unique<Journal>();
    memoryFigures.setJournal(journal.get());
}

SeSourceProtocol &PlayoutJob::getBeats() const
{
    if (card)
        return *card;
    return SeSourceClock::getInstance();
}

void PlayoutJob::complete()
{
    {
        LkGuard<LkLock const> const guard(_lock);
        _isWritten = true;
        _isComplete = !_hasFailed;
    }
    wake();
}

void PlayoutJob::fail(char const *reason)
{
    {
        LkGuard<LkLock const> const guard(_lock);
        if (_isComplete || _hasFailed)
            return;
        _hasFailed = true;
        _failure = reason;
    }
    wake();
}

void PlayoutJob::fail(std::string const &device, char const *reason)
{
    {
        LkGuard<LkLock const> const guard(_lock);
        _failures.emplace(device, reason);
    }
    fail(reason);
}

bool PlayoutJob::isComplete() const
{
    LkGuard<LkLock const> const guard(_lock);
    return _isComplete;
}

bool PlayoutJob::isWritten() const
{
    LkGuard<LkLock const> const guard(_lock);
    return _isWritten;
}

bool PlayoutJob::hasFailed() const
{
    LkGuard<LkLock const> const guard(_lock);
    return _hasFailed;
}

std::string PlayoutJob::getFailure() const
{
    LkGuard<LkLock const> const guard(_lock);
    return _failure;
}

std::string PlayoutJob::getFailure(std::string const &device) const
{
    LkGuard<LkLock const> const guard(_lock);
    auto const place = _failures.find(device);
    return place == _failures.end() ? "" : place->second;
}

void PlayoutJob::setOpening(std::string const &device)
{
    LkGuard<LkLock const> const guard(_lock);
    _opening = device;
}

std::string PlayoutJob::getOpening() const
{
    LkGuard<LkLock const> const guard(_lock);
    return _opening;
}

void PlayoutJob::wait(double seconds)
{
    // A later `wake` ends the next wait.
    if (_changed.timedWait(seconds))
        _changed.reset();
}
