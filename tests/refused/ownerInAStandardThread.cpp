// looser exception

#include <resmgt/threads.h>
#include <thread>
#include <utility>

void use(Zv::ObjPtr<Zv::MtThread> owner)
{
    std::thread([thread = std::move(owner)] { thread->join(); }).join();
}
