// Litmus programs: a few operations on shared words, and the outcomes that they may have.
//
// The outcomes of a program are found in two ways. `outcomesOfModel` runs it on the memory model of
// the scheduler, in every order and with every choice. `outcomesOfStandard` looks at every
// assignment of stores to loads and every order of the stores, and keeps those that the axioms of
// C++20 permit. The two have no code in common.
#pragma once

#include "zvbase/platform/shared.h"

#include <set>
#include <string>
#include <vector>

namespace Zv::Simulated {

/// One operation of a litmus program.
struct Operation
{
    enum Kind
    {
        LOAD,
        STORE,
        EXCHANGE,
        FENCE
    };

    Kind kind;
    ZvPlatform::Order order;
    unsigned word = 0;
    int value = 0; ///< that is stored

    bool reads() const { return kind == LOAD || kind == EXCHANGE; }
    bool writes() const { return kind == STORE || kind == EXCHANGE; }
};

/// The operations of each thread. All words begin with 0.
using Litmus = std::vector<std::vector<Operation>>;

/// Texts such as "1 0 | 1 1": what the threads have read, one after the other, and the last value
/// of each word.
using Outcomes = std::set<std::string>;

/// Outcomes of the memory model of the scheduler.
Outcomes outcomesOfModel(Litmus const &);

/// Which outcomes are meant.
enum class Extent
{
    ALL, ///< all that C++20 permits
    /// Those that some order of the steps can give, if each load reads from a step before, and each
    /// word, and the sequentially consistent operations, have that order, too.
    FORWARD
};

/// Outcomes that the axioms of C++20 permit.
Outcomes outcomesOfStandard(Litmus const &, Extent);

std::string toText(Litmus const &);

} // namespace Zv::Simulated
