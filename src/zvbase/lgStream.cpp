#include "zvbase/lgStream.h"

#include "zvbase/lgQueueImp.private.h"

#include <locale>

namespace Zv {

LgStream::LgStream(LgQueueImp &queue, std::streambuf &buffer) : std::ostream(&buffer), _queue(queue)
{
    // The log looks the same whatever the program's own texts look like.
    imbue(std::locale::classic());
}

LgStream::~LgStream() = default;

std::size_t LgStream::getNumCharacters() const noexcept
{
    return _queue._ring.getNbFree();
}

} // namespace Zv
