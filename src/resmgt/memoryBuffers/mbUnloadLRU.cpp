#include "resmgt/memoryBuffers/mbUnloadLRU.h"

#include "resmgt/memoryBuffers/mbBufferImp.h"

#include <iterator>
#include <utility>

namespace Zv {

std::size_t MbUnloadLRU::Hash::operator()(MbBufferImp const *buffer) const noexcept
{
    return reinterpret_cast<std::uintptr_t>(buffer) / sizeof(MbBufferImp);
}

MbUnloadLRU::MbUnloadLRU(int) {}

MbUnloadLRU::MbUnloadLRU(MbUnloadLRU const &other) : MbUnloadStrategy(other), _queue(other._queue)
{
    for (auto position = _queue.begin(); position != _queue.end(); ++position)
        _index[*position] = position;
    _spareEntries.reserve(_index.size());
}

MbUnloadLRU &MbUnloadLRU::operator=(MbUnloadLRU const &other)
{
    MbUnloadLRU copy(other);
    _queue.swap(copy._queue);
    _index.swap(copy._index);
    _spareNodes.swap(copy._spareNodes);
    _spareEntries.swap(copy._spareEntries);
    return *this;
}

MbUnloadLRU::~MbUnloadLRU() noexcept(false) = default;

char const *MbUnloadLRU::getName() const
{
    return "MbUnloadLRU";
}

void MbUnloadLRU::insertBuffer(MbBufferImp *buffer)
{
    if (_spareNodes.empty())
        _spareNodes.push_front(buffer);
    _spareNodes.front() = buffer;
    auto const node = _spareNodes.begin();

    if (_spareEntries.empty()) {
        // Room for the entries of all buffers, should they be locked at once.
        if (_spareEntries.capacity() <= _index.size())
            _spareEntries.reserve(2 * _index.size() + 1);
        _index.insert_or_assign(buffer, node);
    } else {
        Index::node_type &spare = _spareEntries.back();
        spare.key() = buffer;
        spare.mapped() = node;
        auto inserted = _index.insert(std::move(spare));
        if (inserted.inserted) {
            _spareEntries.pop_back();
        } else {
            inserted.position->second = node;
            spare = std::move(inserted.node);
        }
    }
    _queue.splice(_queue.end(), _spareNodes, node);
}

void MbUnloadLRU::removeBuffer(MbBufferImp *buffer)
{
    auto const found = _index.find(buffer);
    if (found == _index.end())
        return;
    _spareNodes.splice(_spareNodes.begin(), _queue, found->second);
    _spareEntries.push_back(_index.extract(found));
}

MbBufferImp *MbUnloadLRU::selectVictim() const
{
    return _queue.front();
}

bool MbUnloadLRU::isEmpty() const
{
    return _queue.empty();
}

} // namespace Zv
