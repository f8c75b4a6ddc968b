// Buffers with a protocol: three pictures share memory for two.
//
// A guard loads a picture if it is not in memory. If memory is short, the least recently used
// picture is written back to its file and gives up its memory. If a load throws, so does the guard.
//
// Prints:
//
//     load picture 1
//     load picture 2
//     picture 2 has brightness 20
//     write back picture 1
//     load picture 3
//     picture 3 is damaged
//     load picture 1
//     picture 1 has brightness 30

#include <resmgt/memoryBuffers.h>
#include <zvbase/zvbase.h>

#include <algorithm>
#include <cstdint>
#include <iostream>
#include <stdexcept>
#include <string>
#include <vector>

using namespace Zv;

namespace {

constexpr int SIZE = 64 * 1024; // bytes of a picture

/// Keeps a picture in its file while it has no memory. The file is a vector here.
class PictureFile : public MbProtocol
{
public:
    PictureFile(char const *name, std::size_t size, std::byte brightness)
        : _name(name), _file(size, brightness)
    {}
    void reload(void *memory, std::uint64_t size) override
    {
        std::cout << "load " << _name << '\n';
        if (_file.size() != size)
            throw std::runtime_error(_name + " is damaged");
        std::copy(_file.begin(), _file.end(), getData(memory, size).begin());
    }
    void unload(void *memory, std::uint64_t size) override
    {
        std::cout << "write back " << _name << '\n';
        auto const picture = getData(memory, size);
        _file.assign(picture.begin(), picture.end());
    }

private:
    std::string _name;
    std::vector<std::byte> _file;
};

void show(MbBuffer const &picture)
{
    MbBufferRdGuardImp const guard(picture);
    auto const brightness = std::to_integer<int>(guard.getData()[0]);
    std::cout << picture.getName() << " has brightness " << brightness << '\n';
}

} // namespace

int main()
{
    InPackageScope const packages;
    MbAlignment const alignment(127, 0, 0);
    std::uint64_t const budget = 2 * (SIZE + alignment.getRoundUpMax(1));
    RCShdPtr<MbManager> const manager(
        new MbHeapManager("pictures", budget, makeObj<MbUnloadLRU>(0)));
    MbBufferSimpleFactory factory(MbStateMachine::getInstance(false).getInitialState(), manager);
    auto const open = [&](char const *name, std::size_t size, std::byte brightness) {
        return factory.create(name, makeObj<PictureFile>(name, size, brightness), SIZE, alignment);
    };
    MbBuffer const first = open("picture 1", SIZE, std::byte(10));
    MbBuffer const second = open("picture 2", SIZE, std::byte(20));
    MbBuffer const third = open("picture 3", SIZE / 2, std::byte(30));
    std::ranges::fill(MbBufferWrGuardImp(first).getData(), std::byte(30)); // held for this call
    show(second);
    try {
        show(third);
    } catch (std::runtime_error const &failure) {
        std::cout << failure.what() << '\n';
    }
    show(first);
}
