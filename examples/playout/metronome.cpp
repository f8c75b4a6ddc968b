#include "metronome.h"

#include <algorithm>
#include <utility>

using namespace Zv;

class Metronome::Client final : public SeClientThread
{
public:
    Client(Metronome &metronome, RCShdPtr<DevMDStdFifo> const &fifo, OnBeats onBeats)
        : _metronome(metronome), _fifo(fifo), _onBeats(std::move(onBeats))
    {}

protected:
    /// The first call only sets `_count`, and the second one may follow at the same beat. So the
    /// beats are counted by `count`, not by the calls.
    bool performSync(std::uint32_t count, int late) override
    {
        std::uint32_t const beats = count - std::exchange(_count, count);
        if (!std::exchange(_hasBegun, true))
            return false;
        {
            LkGuard<LkLock const> const guard(_metronome._lock);
            _metronome._figures.beats += beats;
            _metronome._figures.late += std::max(late, 0);
        }
        // The request may outlive the client.
        DevANOQueueEntry entry(makeANO([onBeats = _onBeats, beats] { onBeats(beats); }));
        _fifo->produce(entry);
        return false;
    }

private:
    Metronome &_metronome;
    RCShdPtr<DevMDStdFifo> _fifo;
    OnBeats _onBeats;
    std::uint32_t _count = 0;
    bool _hasBegun = false;
};

Metronome::~Metronome() noexcept(false)
{
    stop();
}

void Metronome::start(LiString const &name, RCShdPtr<DevMDStdFifo> const &fifo,
                      SeSourceProtocol &source, OnBeats onBeats)
{
    auto * const added = new Client(*this, fifo, std::move(onBeats));
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
