#include "explore/scenario.private.h"

#include <utility>

namespace Zv::Simulated {

Worker::Worker(char const *name, std::function<void()> body)
    : _name(name),
      _body(std::move(body)),
      _handle(::CreateThread(nullptr, 0, run, this, 0, nullptr))
{
    if (!_handle)
        find("worker", "the thread %s cannot be made", name);
}

Worker::~Worker()
{
    join();
}

void Worker::join()
{
    if (!_handle)
        return;
    ::WaitForSingleObject(_handle, INFINITE);
    ::CloseHandle(std::exchange(_handle, nullptr));
}

DWORD Worker::run(void *data)
{
    Worker &worker = *static_cast<Worker *>(data);
    std::wstring const name(worker._name.begin(), worker._name.end());
    ::SetThreadDescription(::GetCurrentThread(), name.c_str());
    worker._body();
    return 0;
}

} // namespace Zv::Simulated
