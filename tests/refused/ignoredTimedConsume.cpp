// ignoring return value

#include <chrono>
#include <queue>
#include <resmgt/threadExtensions.h>

void use(Zv::MtContainer<std::queue<int>> &queue)
{
    int element = 0;
    queue.timedConsume(element, std::chrono::seconds(1));
}
