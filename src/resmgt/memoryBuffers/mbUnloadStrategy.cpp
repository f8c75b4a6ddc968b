#include "resmgt/memoryBuffers/mbUnloadStrategy.h"

#include "resmgt/memoryBuffers/mbBufferImp.h"

#include <iomanip>
#include <iterator>
#include <ostream>

namespace Zv {

MbUnloadStrategy::MbUnloadStrategy() = default;
MbUnloadStrategy::MbUnloadStrategy(MbUnloadStrategy const &) = default;
MbUnloadStrategy &MbUnloadStrategy::operator=(MbUnloadStrategy const &) = default;
MbUnloadStrategy::~MbUnloadStrategy() noexcept(false) = default;

void MbUnloadStrategy::dump(std::ostream &stream) const
{
    stream << getName();
}

void MbUnloadStrategy::reserve(std::size_t) {}

std::size_t MbUnloadHash::operator()(MbBufferImp const *buffer) const noexcept
{
    return reinterpret_cast<std::uintptr_t>(buffer) / sizeof(MbBufferImp);
}

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

MbUnloadRandom::MbUnloadRandom(int capacity)
{
    if (capacity > 0)
        _container.reserve(static_cast<std::size_t>(capacity));
}

MbUnloadRandom::MbUnloadRandom(MbUnloadRandom const &) = default;

MbUnloadRandom &MbUnloadRandom::operator=(MbUnloadRandom const &other)
{
    MbUnloadRandom copy(other);
    _container.swap(copy._container);
    _index.swap(copy._index);
    _generator = copy._generator;
    return *this;
}

MbUnloadRandom::~MbUnloadRandom() noexcept(false) = default;

char const *MbUnloadRandom::getName() const
{
    return "MbUnloadRandom";
}

void MbUnloadRandom::insertBuffer(MbBufferImp *buffer)
{
    reserve(_container.size() + 1);
    _container.push_back(buffer);
    _index.insert(buffer, _container.size() - 1);
}

void MbUnloadRandom::removeBuffer(MbBufferImp *buffer)
{
    auto const found = _index.find(buffer);
    if (found == _index.end())
        return;
    std::uint64_t const position = found->second;
    MbBufferImp * const moved = _container.back();
    _container[position] = moved;
    _index.find(moved)->second = position;
    _container.pop_back();
    _index.erase(found);
}

MbBufferImp *MbUnloadRandom::selectVictim() const
{
    auto const number = static_cast<std::uint64_t>(_generator.eval() * 2147483647.0);
    return _container[number % _container.size()];
}

bool MbUnloadRandom::isEmpty() const
{
    return _container.empty();
}

void MbUnloadRandom::reserve(std::size_t nbBuffers)
{
    _index.reserve(nbBuffers);
    if (_container.capacity() < nbBuffers)
        _container.reserve(std::max(nbBuffers, 2 * _container.capacity()));
}

void MbUnloadRandom::dump(std::ostream &stream) const
{
    MbUnloadStrategy::dump(stream);
    stream << '\n' << "Nb loaded and unlocked buffers  = " << _container.size() << "\n\n";
    stream << "Random buffer container: \n";
    for (std::size_t i = 0; i < _container.size(); ++i)
        stream << std::setw(5) << i << " = " << _container[i]->getName() << '\n';
    stream << "\nPair associative indexes : \n";
    for (auto const &[buffer, position] : _index)
        stream << std::setw(20) << buffer->getName().getChars() << " = " << position << '\n';
}

} // namespace Zv
