// Device that captures from a sound card.
#pragma once

#include "playoutDevice.h"

#include <limits>

class SoundCard;

/// Captures from the sound card of its tag in the show and pushes a block for each frame of the
/// show's clock to `out`, from its lock on. It ends after its length, or when the client asks for
/// the end.
///
/// Its properties, in seconds, are `transport:position`, how much was captured, and
/// `transport:length`, 0 if nothing but the client ends it. `card:reserve` is how much sound may
/// wait for the devices behind the microphone. What is captured beyond that is lost and counted.
/// Length and reserve are set before the device locks.
class Microphone : public PlayoutDevice
{
public:
    static constexpr double LONGEST_LENGTH = 365 * 86400; ///< in seconds

    Microphone(Zv::LiString const &name, Zv::RCShdPtr<PlayoutJob> const &job);

    /// Opens the input of the card. Throws `PlayoutEx::Client`.
    void performOpen() override;
    bool endHere() override;

protected:
    ~Microphone() override;

    void performLock() override;
    void performBeats(std::int64_t beats) override;
    bool performPiece() override;
    void performEnd() override;

private:
    static constexpr std::int64_t NEVER = std::numeric_limits<std::int64_t>::max();

    SoundCard &_card;
    std::string const _place; // of the card
    AudioFormat _format;
    Zv::RCShdPtr<Zv::DevMDStdReading<double>> _position;
    double _length = 0; // seconds
    double _reserve;    // seconds
    bool _isCapturing = false;
    std::int64_t _end = NEVER;    // frame
    std::int64_t _block = 0;      // number of the next one
    std::int64_t _framesSent = 0; // in total
};
