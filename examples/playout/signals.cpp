#include "signals.h"

#include <atomic>
#include <csignal>

namespace {

std::atomic<int> caught = 0;
static_assert(std::atomic<int>::is_always_lock_free);

} // namespace

void Signals::install()
{
    for (int const signal : {SIGINT, SIGTERM, SIGHUP}) {
        struct sigaction action = {};
        sigaction(signal, nullptr, &action);
        if (action.sa_handler == SIG_IGN)
            continue; // somebody has decided so: nohup, or a shell for its background
        action = {};
        action.sa_handler = [](int number) { caught = number; };
        sigaction(signal, &action, nullptr);
    }
    std::signal(SIGPIPE, SIG_IGN);
    std::signal(SIGXFSZ, SIG_IGN);
}

int Signals::getCaught()
{
    return caught;
}
