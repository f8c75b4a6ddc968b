// Real time: a program that asks for it, runs without it, and says what each thread has got.
//
// What was granted depends on the machine, so the program writes it to the standard error output.
//
// Prints:
//
//     the mixer has mixed 3 blocks

#include <resmgt/threads.h>
#include <zvbase/zvbase.h>

#include <iostream>

using namespace Zv;

namespace {

class Mixer : public MtThreadProtocol
{
public:
    void performExecute(MtThread *thread) override
    {
        std::cerr << "the mixer is thread " << thread->getThreadId() << ", level "
                  << thread->getPriority().getPriority() << '\n';
        thread->dump(std::cerr);
        std::cerr << '\n';
        std::cout << "the mixer has mixed 3 blocks\n";
    }
};

} // namespace

int main()
{
    MtThreadMgr::indicateAppIsRealTime(MtThreadMgr::REAL_TIME_WANTED); // before the packages
    InPackageScope const packages;
    if (!MtThreadMgr::getInstance().isRealTime())
        std::cerr << "The system has refused real-time operation. The program runs without.\n";

    ObjPtr<MtThread> const mixer(
        MtThreadFactory::getInstance().createThread("mixer", makeObj<Mixer>()));
    PriorityRelation const inRealTime("in real time",
                                      RtPriorities::getInstance().getRealTimePriority(),
                                      PriorityRelation::LESS_EQUAL, mixer->getPriority());
    mixer->start();
    mixer->join();
}
