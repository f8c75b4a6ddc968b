#include "recorder.h"

using namespace Zv;

Recorder::Recorder(LiString const &name, RCShdPtr<PlayoutJob> const &job) : PlayoutDevice(name, job)
{
    addIn("What is recorded");
}

Recorder::~Recorder() = default;

void Recorder::performBegin()
{
    _writer = std::make_unique<AudioWriter>(getJob().output, getIn().getFormat());
}

void Recorder::performTake(RCShdPtr<AudioBlock> const &block)
{
    _writer->write(block->samples);
    count();
}

void Recorder::performTakeEnd()
{
    _writer->finish();
    _writer.reset();
    getJob().complete();
}

void Recorder::performEnd()
{
    _writer.reset();
}
