// ignoring return value

#include <resmgt/threads.h>

void use()
{
    Zv::MtThreadFactory::getInstance().createThread("lost", nullptr);
}
