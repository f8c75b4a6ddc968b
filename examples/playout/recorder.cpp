#include "recorder.h"

#include "signals.h"

using namespace Zv;

Recorder::Recorder(LiString const &name, RCShdPtr<PlayoutJob> const &job) : PlayoutDevice(name, job)
{
    addIn("What is recorded");
    addBeats();
}

Recorder::~Recorder() = default;

void Recorder::performBegin()
{
    _writer = std::make_unique<AudioWriter>(getJob().output, getIn().getFormat());
    if (!getJob().picture.empty())
        _picture = std::make_unique<PartFile>(getJob().picture);
    if (_picture || getJob().journal)
        _waveform = std::make_unique<Waveform>(getIn().getFormat());
}

void Recorder::performTake(RCShdPtr<AudioBlock> const &block)
{
    _waiting.push_back(block);
    if (!isPaced())
        performBeats(1);
}

void Recorder::performTakeEnd()
{
    _hasAll = true;
    if (!isPaced())
        finish();
}

void Recorder::performBeats(std::int64_t)
{
    for (auto const &block : _waiting) {
        _writer->write(block->samples);
        if (_waveform)
            _waveform->add(block);
        count();
    }
    _waiting.clear();
    if (_hasAll && _writer)
        finish();
}

void Recorder::finish()
{
    if (_picture)
        _picture->write(_waveform->draw(getJob().timeline.get(), getJob().cues.getHappened()));
    _writer->finish();
    if (_picture)
        _picture->finish();
    {
        // The recording is last. If it is in its place, so is the picture.
        Signals::Critical critical;
        if (_picture)
            _picture->commit();
        _writer->commit();
        critical.complete();
    }
    _writer.reset();
    getJob().complete();
}

void Recorder::performEnd()
{
    _waiting.clear();
    _writer.reset();
    if (_waveform && getJob().journal)
        getJob().journal->keep(std::move(_waveform));
    _waveform.reset();
    _picture.reset();
}
