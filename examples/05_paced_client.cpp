// A paced client: captions appear at their frames. The clock wakes their thread at each frame.
//
// On a loaded machine the thread may be late. It works by the number of the beat, not by the number
// of its calls. So no caption is lost, and later ones are in time again.
//
// Prints:
//
//     00:00:00:00  Good evening.
//     00:00:00:05  Here is the news.
//     00:00:00:10  It is raining.
//     the captions have ended

#include <resmgt/literals.h>
#include <resmgt/locks.h>
#include <resmgt/syncEngine.h>
#include <resmgt/threads.h>
#include <zvbase/zvbase.h>

#include <chrono>
#include <cstdint>
#include <iostream>
#include <iterator>
#include <optional>

using namespace Zv;

namespace {

struct Caption
{
    std::uint32_t frame;
    char const *text;
};

constexpr Caption CAPTIONS[] = {
    {0, "Good evening."}, {5, "Here is the news."}, {10, "It is raining."}};

class Captions : public SeClientThread
{
public:
    /// `ended` is set after the last caption, and must outlive the client.
    explicit Captions(LkEvent &ended) : _ended(ended) {}

protected:
    bool performSync(std::uint32_t count, int) override
    {
        if (!_first)
            _first = count;
        for (; _next != std::end(CAPTIONS) && _next->frame <= count - *_first; ++_next)
            std::cout << _rate->getTimecode(_next->frame) << "  " << _next->text << '\n';
        return _next == std::end(CAPTIONS);
    }
    void performEnd() override { _ended.set(); }

private:
    LkEvent &_ended;
    RCShdPtr<LiTimeCode> const _rate = LiTimeCodePal::create();
    std::optional<std::uint32_t> _first; // the first beat that this client has got
    Caption const *_next = CAPTIONS;
    PriorityRelation const _inRealTime{"captions",
                                       RtPriorities::getInstance().getRealTimePriority(),
                                       PriorityRelation::LESS_EQUAL, getPriorityNoLock()};
};

/// Ends all clients at the end of its scope.
struct EngineScope
{
    ~EngineScope() noexcept(false) { SeSyncEngine::getInstance().stop(); }
};

} // namespace

int main()
{
    InPackageScope const packages;
    LkEvent ended("captions ended", false);
    EngineScope const engine;
    SeSourceClock::getInstance().setInterval(std::chrono::milliseconds(40));
    ObjPtr<SeClientThread> captions(makeObj<Captions>(ended));
    SeSyncEngine::getInstance().addClient("captions", captions, SeSourceClock::getInstance(), 1);
    if (!ended.timedWait(std::chrono::seconds(10))) {
        std::cerr << "the clock does not beat\n";
        return 1;
    }
    std::cout << "the captions have ended\n";
}
