// A pool of threads: the waveform of a recording, each half second computed by a task of its own.
//
// The tasks are counted under a tag, and the client waits until the count is 0.
//
// Prints:
//
//     0.0 s  ########################################
//     0.5 s  ########################
//     1.0 s  ##############
//     1.5 s  ########
//     2.0 s  #####

#include <resmgt/threadExtensions.h>
#include <zvbase/zvbase.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <iostream>
#include <queue>
#include <string>
#include <utility>
#include <vector>

using namespace Zv;

namespace {

constexpr std::size_t PIECE = 24000; // samples in half a second

/// Threads that run tasks in the order in which they were added. A task must not throw.
class TaskPool : public MtThreadPool
{
public:
    using Task = std::function<void()>;

    TaskPool(char const *name, unsigned nbThreads) : MtThreadPool(name, nbThreads), _now(nbThreads)
    {}
    ~TaskPool() noexcept(false) override
    {
        stop();
        Task left; // no worker has taken it
        while (_tasks.tryConsume(left))
            continue;
    }
    void add(Task task) { _tasks.produce(std::move(task)); }

protected:
    void obtainTask(unsigned worker) override { _now[worker] = _tasks.consume(); }
    void executeTask(unsigned worker) override { _now[worker](); }
    void stopThreads() override
    {
        for (unsigned i = 0; i < getNbThreads(); ++i)
            _tasks.produce([] {}); // wakes a worker
    }

private:
    MtContainer<std::queue<Task>> _tasks{"tasks"};
    std::vector<Task> _now; // for each worker
};

} // namespace

int main()
{
    InPackageScope const packages;
    std::vector<double> gong(5 * PIECE);
    for (std::size_t i = 0; i < gong.size(); ++i) {
        double const seconds = static_cast<double>(i) / (2 * PIECE);
        gong[i] = std::cos(2400 * seconds) * std::exp(-seconds);
    }
    std::vector<double> peaks(5);
    MtRequestMgr requests;
    MtRequestTag const tag = requests.acquireTag();
    TaskPool pool("waveform", 2);
    pool.start();
    for (std::size_t i = 0; i < peaks.size(); ++i) {
        requests.incRequestCount(tag);
        pool.add([&, i] {
            for (std::size_t at = i * PIECE; at < (i + 1) * PIECE; ++at)
                peaks[i] = std::max(peaks[i], std::abs(gong[at]));
            requests.decRequestCount(tag);
        });
    }
    requests.waitRequestCountZero(tag);
    requests.releaseTag(tag);
    for (std::size_t i = 0; i < peaks.size(); ++i)
        std::cout << i / 2 << (i % 2 ? ".5" : ".0") << " s  "
                  << std::string(static_cast<std::size_t>(40 * peaks[i]), '#') << '\n';
}
