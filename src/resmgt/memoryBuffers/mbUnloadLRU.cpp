#include "resmgt/memoryBuffers/mbUnloadLRU.h"

#include <iterator>

namespace Zv {

MbUnloadLRU::MbUnloadLRU(int) {}

MbUnloadLRU::MbUnloadLRU(MbUnloadLRU const &other) : MbUnloadStrategy(other), _queue(other._queue)
{
    for (auto position = _queue.begin(); position != _queue.end(); ++position)
        _index.insert(*position, position).first->second = position;
}

MbUnloadLRU &MbUnloadLRU::operator=(MbUnloadLRU const &other)
{
    MbUnloadLRU copy(other);
    _queue.swap(copy._queue);
    _index.swap(copy._index);
    _spares.swap(copy._spares);
    return *this;
}

MbUnloadLRU::~MbUnloadLRU() noexcept(false) = default;

char const *MbUnloadLRU::getName() const
{
    return "MbUnloadLRU";
}

void MbUnloadLRU::insertBuffer(MbBufferImp *buffer)
{
    reserve(_queue.size() + 1);
    _spares.front() = buffer;
    _queue.splice(_queue.end(), _spares, _spares.begin());
    Queue::iterator const position = std::prev(_queue.end());
    _index.insert(buffer, position).first->second = position;
}

void MbUnloadLRU::removeBuffer(MbBufferImp *buffer)
{
    auto const found = _index.find(buffer);
    if (found == _index.end())
        return;
    _spares.splice(_spares.begin(), _queue, found->second);
    _index.erase(found);
}

MbBufferImp *MbUnloadLRU::selectVictim() const
{
    return _queue.front();
}

bool MbUnloadLRU::isEmpty() const
{
    return _queue.empty();
}

void MbUnloadLRU::reserve(std::size_t nbBuffers)
{
    _index.reserve(nbBuffers);
    while (_queue.size() + _spares.size() < nbBuffers)
        _spares.push_back(nullptr);
}

} // namespace Zv
