#include "metronome.h"

#include <zvbase/zvbase.h>

#include <algorithm>
#include <utility>

using namespace Zv;

namespace {

// The clock of a sound card may be slower than its nominal rate by this share. Without it, the
// beats of such a card would seem later and later.
constexpr double DRIFT = 1e-4;

} // namespace

class Metronome::Client final : public SeClientThread
{
public:
    Client(Metronome &metronome, RCShdPtr<DevMDStdFifo> const &fifo, double interval,
           OnBeats onBeats, OnLateness onLateness)
        : _metronome(metronome),
          _fifo(fifo),
          _interval(interval),
          _onBeats(std::move(onBeats)),
          _onLateness(std::move(onLateness))
    {}

protected:
    /// The first call only sets `_count`, and the second one may follow at the same beat. So the
    /// beats are counted by `count`, not by the calls.
    bool performSync(std::uint32_t count, int late) override
    {
        std::uint32_t const beats = count - std::exchange(_count, count);
        if (!std::exchange(_hasBegun, true))
            return false;
        double const lateness = measure(beats);
        {
            LkGuard<LkLock const> const guard(_metronome._lock);
            Figures &figures = _metronome._figures;
            figures.beats += beats;
            figures.late += std::max(late, 0);
            figures.latest = std::max(figures.latest, lateness);
        }
        // The request may outlive the client.
        DevANOQueueEntry entry(makeANO([onBeats = _onBeats, beats] { onBeats(beats); }));
        _fifo->produce(entry);
        return false;
    }

private:
    /// Reports how late each new beat is. Returns the lateness of the first one, the largest.
    double measure(std::uint32_t beats)
    {
        double const now = Sleeper::getInstance().getTime();
        _due = _due > 0 ? std::min(_due + beats * _interval, now) : now;
        double const first = now - _due + (beats > 0 ? (beats - 1) * _interval : 0);
        for (; beats > 0 && _onLateness; --beats)
            _onLateness(now - _due + (beats - 1) * _interval);
        return first;
    }

    Metronome &_metronome;
    RCShdPtr<DevMDStdFifo> _fifo;
    double const _interval;
    OnBeats _onBeats;
    OnLateness _onLateness; // may be empty
    double _due = 0;        // moment of the latest beat, if it was in time
    std::uint32_t _count = 0;
    bool _hasBegun = false;
};

Metronome::~Metronome() noexcept(false)
{
    stop();
}

void Metronome::start(LiString const &name, RCShdPtr<DevMDStdFifo> const &fifo,
                      SeSourceProtocol &source, OnBeats onBeats, OnLateness onLateness)
{
    bool const isExact = &source == &SeSourceClock::getInstance();
    double const interval = (isExact ? 1 : 1 + DRIFT) / source.getRate();
    auto * const added =
        new Client(*this, fifo, interval, std::move(onBeats), std::move(onLateness));
    ObjPtr<SeClientThread> client(added);
    SeSyncEngine::getInstance().addClient(name, client, source, 1);
    _client = added; // only now, because addClient may throw
    _isUsed = true;
}

void Metronome::stop()
{
    if (Client * const client = std::exchange(_client, nullptr))
        ObjPtr<SeClientThread> const back(SeSyncEngine::getInstance().removeClient(client));
}

Metronome::Figures Metronome::getFigures() const
{
    LkGuard<LkLock const> const guard(_lock);
    return _figures;
}
