// A thread with a level: the bus that is on air runs above the monitor bus, and both in real time.
//
// Relations between priorities give each thread its level. A relation that has no solution is
// refused, and the others stay in force. If the process lacks the privilege for a level, the system
// gives the thread the nearest one.
//
// Prints:
//
//     monitor: level 1
//     on air: level 2
//     refused: Transient "on air" invalid: 7 6
//     on air: level 2, peak 0.95
//     monitor: level 1, peak 0.48

#include <resmgt/threads.h>
#include <zvbase/zvbase.h>

#include <algorithm>
#include <cmath>
#include <iomanip>
#include <iostream>
#include <numbers>

using namespace Zv;

namespace {

/// Mixes a second of two tones, and finds the peak.
class Bus : public MtThreadProtocol
{
public:
    /// `peak` must outlive the thread, which writes it.
    Bus(double gain, double &peak) : _gain(gain), _peak(peak) {}

    void performExecute(MtThread *) override
    {
        for (int sample = 0; sample < RATE; ++sample) {
            double const turn = 2 * std::numbers::pi * sample / RATE;
            double const mixed = 0.5 * std::sin(440 * turn) + 0.5 * std::sin(660 * turn);
            _peak = std::max(_peak, _gain * std::abs(mixed));
        }
    }

private:
    static constexpr int RATE = 48000;

    double _gain;
    double &_peak;
};

ObjPtrRet<MtThread> makeBus(char const *name, double gain, double &peak)
{
    return MtThreadFactory::getInstance().createThread(name, makeObj<Bus>(gain, peak));
}

std::ostream &operator<<(std::ostream &stream, MtThread &thread)
{
    return stream << thread.getName() << ": level " << thread.getPriority().getPriority();
}

} // namespace

int main()
{
    InPackageScope const packages;
    double onAirPeak = 0;
    double monitorPeak = 0;
    ObjPtr<MtThread> const onAir(makeBus("on air", 1.0, onAirPeak));
    ObjPtr<MtThread> const monitor(makeBus("monitor", 0.5, monitorPeak));

    RtPriorities &fixed = RtPriorities::getInstance();
    PriorityRelation const inRealTime("in real time", fixed.getRealTimePriority(),
                                      PriorityRelation::LESS_EQUAL, monitor->getPriority());
    PriorityRelation const above("monitor below on air", monitor->getPriority(),
                                 PriorityRelation::LESS, onAir->getPriority());
    std::cout << *monitor << '\n' << *onAir << '\n';
    try {
        PriorityRelation const aboveAll("above all", fixed.getInterruptPriority(),
                                        PriorityRelation::LESS, onAir->getPriority());
    } catch (PriorityEx const &failure) {
        std::cout << "refused: " << failure.getReason() << '\n';
    }
    onAir->start();
    monitor->start();
    onAir->join();
    monitor->join();
    std::cout << std::fixed << std::setprecision(2) << *onAir << ", peak " << onAirPeak << '\n'
              << *monitor << ", peak " << monitorPeak << '\n';
}
