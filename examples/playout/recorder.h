// The device that writes.
#pragma once

#include "audioWriter.h"
#include "playoutDevice.h"
#include "waveform.h"

#include <memory>

/// Writes what comes in at `in` to the output file, from START on, when the format is known, at the beats of the clock
/// where that paces it. When everything has come in it puts the file in its place, the picture of a show's waveform
/// beside it, and tells the client; a recorder that is stopped before that leaves no file.
class Recorder : public PlayoutDevice
{
public:
    Recorder(Zv::LiString const &name, Zv::RCShdPtr<PlayoutJob> const &job);

protected:
    ~Recorder() override;

    void performBegin() override;
    void performTake(Zv::RCShdPtr<AudioBlock> const &block) override;
    void performTakeEnd() override;
    void performBeats(std::int64_t beats) override;
    void performEnd() override;

private:
    void finish();

    std::unique_ptr<AudioWriter> _writer;
    Zv::Vector<Zv::RCShdPtr<AudioBlock>> _waiting; // for the next beat
    bool _hasAll = false;
    std::unique_ptr<PartFile> _picture; // null for a recording that gets none
    std::unique_ptr<Waveform> _waveform;
};
