#include "resmgt/memoryBuffers/mbUnloadStrategy.h"

#include "resmgt/memoryBuffers/mbBufferImp.h"

#include <algorithm>
#include <iomanip>
#include <ostream>
#include <utility>

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

MbUnloadLRU::MbUnloadLRU(int) : _links(1), _unused(0), _size(0) {}

MbUnloadLRU::MbUnloadLRU(MbUnloadLRU const &) = default;

MbUnloadLRU &MbUnloadLRU::operator=(MbUnloadLRU const &other)
{
    MbUnloadLRU copy(other);
    _links.swap(copy._links);
    _unused = copy._unused;
    _size = copy._size;
    _index.swap(copy._index);
    return *this;
}

MbUnloadLRU::~MbUnloadLRU() noexcept(false) = default;

char const *MbUnloadLRU::getName() const
{
    return "MbUnloadLRU";
}

void MbUnloadLRU::insertBuffer(MbBufferImp *buffer)
{
    if (_unused == 0) [[unlikely]]
        grow(_size + 1);
    Place const place = _unused;
    Link &link = _links[place];
    _unused = link.next;
    Place const newest = _links[0].previous;
    link = {buffer, newest, 0};
    _links[newest].next = place;
    _links[0].previous = place;
    ++_size;
    _index.insert(buffer, place).first->second = place;
}

void MbUnloadLRU::removeBuffer(MbBufferImp *buffer)
{
    auto const found = _index.find(buffer);
    if (found == _index.end())
        return;
    Place const place = found->second;
    _index.erase(found);
    Link &link = _links[place];
    _links[link.previous].next = link.next;
    _links[link.next].previous = link.previous;
    link.next = std::exchange(_unused, place);
    --_size;
}

MbBufferImp *MbUnloadLRU::selectVictim() const
{
    return _links[_links[0].next].buffer;
}

bool MbUnloadLRU::isEmpty() const
{
    return _size == 0;
}

void MbUnloadLRU::reserve(std::size_t nbBuffers)
{
    if (nbBuffers >= _links.size()) [[unlikely]]
        grow(nbBuffers);
}

/// Makes room in the index first, so that each place has room there.
void MbUnloadLRU::grow(std::size_t nbBuffers)
{
    std::size_t place = _links.size();
    std::size_t const size = std::max(nbBuffers + 1, 2 * place);
    _index.reserve(size - 1);
    _links.resize(size);
    for (; place < _links.size(); ++place)
        _links[place].next = std::exchange(_unused, static_cast<Place>(place));
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
