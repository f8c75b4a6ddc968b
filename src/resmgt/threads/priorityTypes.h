// The two sides of a relation between priorities.
#pragma once

#include "resmgt/export.h"

namespace Zv {

class ZVRESMGT_EXPORT PriorityTypes
{
public:
    /// In the solver the left-hand transient of a node is its lower bound, the right-hand one its upper bound.
    enum Side : int
    {
        LEFT,
        RIGHT
    };

    static Side getOpposite(Side side) { return side == LEFT ? RIGHT : LEFT; }
};

} // namespace Zv
