#include "zvbase/sleeper.h"

#include "platform/services.h"
#include "zvbase/failures.h"
#include "zvbase/platform/shared.h"

namespace Zv {

namespace {

struct TheSleeper : Sleeper
{
    TheSleeper() = default;
};

double getFrequency()
{
    LARGE_INTEGER frequency;
    ZV_SYS_ASSERT(::QueryPerformanceFrequency( &frequency ));
    return static_cast<double>(frequency.QuadPart);
}

} // namespace

Sleeper::Sleeper() = default;
Sleeper::~Sleeper() = default;

Sleeper &Sleeper::getInstance()
{
    static constinit ZvPlatform::Shared<Sleeper *> instance{nullptr};
    Sleeper *known = instance.load(ZvPlatform::Order::ACQUIRE);
    if (!known) {
        Sleeper * const made = new TheSleeper;
        if (instance.compare_exchange_strong(known, made, ZvPlatform::Order::RELEASE,
                                             ZvPlatform::Order::ACQUIRE))
            return *made;
        delete made;
    }
    return *known;
}

double Sleeper::getTime() const
{
    LARGE_INTEGER now;
    ZV_SYS_ASSERT(::QueryPerformanceCounter( &now ));
    return static_cast<double>(now.QuadPart) / getFrequency();
}

double Sleeper::getResolution() const
{
    return 1.0 / getFrequency();
}

void Sleeper::sleep(double seconds) const
{
    double milliseconds = seconds * 1000.0 + 0.5;
    if (!(milliseconds >= 1.0)) {
        ::Sleep(0);
        return;
    }
    // One call takes 49 days at most. Its largest number means without end.
    constexpr DWORD LONGEST = INFINITE - 1;
    for (; milliseconds >= static_cast<double>(LONGEST);
         milliseconds -= static_cast<double>(LONGEST))
        ::Sleep(LONGEST);
    ::Sleep(static_cast<DWORD>(milliseconds));
}

} // namespace Zv
