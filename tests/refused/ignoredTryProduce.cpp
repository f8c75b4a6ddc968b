// ignoring return value

#include <queue>
#include <resmgt/threadExtensions.h>

void use(Zv::MtContainer<std::queue<int>> &queue)
{
    queue.tryProduce(1);
}
