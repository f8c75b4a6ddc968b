// Device that writes the output file.
#pragma once

#include "audioWriter.h"
#include "playoutDevice.h"
#include "waveform.h"

#include <memory>

/// Writes the blocks from `in` to the output file, from START on. If the clock paces the show, it
/// writes at the beats. After the last block it puts the file in its place, and beside it the
/// picture of the waveform if there is one, and tells the client. If it is stopped before that, it
/// leaves no file.
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
    std::unique_ptr<PartFile> _picture; // null if there is none
    std::unique_ptr<Waveform> _waveform;
};
