// The stream over a queue.
#pragma once

#include "zvbase/export.h"

#include <cstddef>
#include <ostream>

namespace Zv {

class LgQueueImp;

/// The stream of a queue: text goes right into the queue's memory, nothing is allocated. Made by its `LgQueue`, and
/// written by the queue's thread only, through `LgLine`: text written while no line is open is lost. The stream never
/// fails; what does not fit is counted.
class ZVBASE_EXPORT LgStream : public std::ostream
{
public:
    ~LgStream() override;

    /// Free characters: how much text the queue takes in one line at this moment. Any thread.
    std::size_t getNumCharacters() const noexcept;

private:
    friend class LgQueueImp;

    LgStream(LgQueueImp &queue, std::streambuf &buffer);

    LgQueueImp &_queue;
};

} // namespace Zv
