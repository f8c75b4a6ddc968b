#include "simulated/litmus.h"

#include "platform/scheduler/weakMemory.h"

#include <algorithm>
#include <array>
#include <numeric>

namespace Zv::Simulated {

namespace {

using ZvPlatform::Simulated::WeakMemory;

constexpr unsigned MAX_WORDS = 4;

unsigned countWords(Litmus const &litmus)
{
    unsigned count = 0;
    for (auto const &thread : litmus)
        for (Operation const &operation : thread)
            if (operation.kind != Operation::FENCE)
                count = std::max(count, operation.word + 1);
    return count;
}

std::string toOutcome(std::vector<int> const &read, std::vector<int> const &last)
{
    std::string text;
    for (int const value : read)
        text += std::to_string(value) + ' ';
    text += '|';
    for (int const value : last)
        text += ' ' + std::to_string(value);
    return text;
}

// ---- The model.

/// Goes through all sequences of choices, one after the other.
class Choices
{
public:
    unsigned choose(unsigned count)
    {
        if (_position == _chosen.size()) {
            _chosen.push_back(0);
            _counts.push_back(count);
        }
        return _chosen[_position++];
    }

    /// Goes on to the next sequence. Returns false after the last one.
    bool next()
    {
        _position = 0;
        while (!_chosen.empty()) {
            if (++_chosen.back() < _counts.back())
                return true;
            _chosen.pop_back();
            _counts.pop_back();
        }
        return false;
    }

private:
    std::vector<unsigned> _chosen;
    std::vector<unsigned> _counts;
    std::size_t _position = 0;
};

Choices choices;

unsigned choose(unsigned count)
{
    return choices.choose(count);
}

std::string runOnce(WeakMemory &memory, Litmus const &litmus)
{
    memory.reset();
    std::array<int, MAX_WORDS> words{};
    std::vector<std::size_t> done(litmus.size(), 0);
    std::vector<std::vector<int>> read(litmus.size());
    for (unsigned i = 0; i < litmus.size(); ++i)
        memory.start(i + 1, 0);
    for (;;) {
        std::vector<unsigned> ready;
        for (unsigned i = 0; i < litmus.size(); ++i)
            if (done[i] < litmus[i].size())
                ready.push_back(i);
        if (ready.empty())
            break;
        unsigned const chosen =
            ready[ready.size() > 1 ? choose(static_cast<unsigned>(ready.size())) : 0];
        Operation const &operation = litmus[chosen][done[chosen]++];
        unsigned const thread = chosen + 1;
        int &word = words[operation.word];
        auto const former = static_cast<std::uint64_t>(word);
        auto const value = static_cast<std::uint64_t>(operation.value);
        switch (operation.kind) {
        case Operation::LOAD:
            read[chosen].push_back(static_cast<int>(
                memory.load(thread, &word, former, operation.order, choose).value));
            break;
        case Operation::STORE:
            memory.store(thread, &word, former, value, operation.order, {});
            word = operation.value;
            break;
        case Operation::EXCHANGE:
            read[chosen].push_back(word);
            memory.change(thread, &word, former, value, operation.order, {});
            word = operation.value;
            break;
        case Operation::FENCE:
            memory.fence(thread, operation.order);
            break;
        }
    }
    std::vector<int> all;
    for (auto const &values : read)
        all.insert(all.end(), values.begin(), values.end());
    return toOutcome(all, {words.begin(), words.begin() + countWords(litmus)});
}

// ---- The axioms.

bool acquires(ZvPlatform::Order order)
{
    return order == ZvPlatform::Order::ACQUIRE || order == ZvPlatform::Order::ACQ_REL ||
           order == ZvPlatform::Order::SEQ_CST;
}

bool releases(ZvPlatform::Order order)
{
    return order == ZvPlatform::Order::RELEASE || order == ZvPlatform::Order::ACQ_REL ||
           order == ZvPlatform::Order::SEQ_CST;
}

/// A relation between the events of an execution.
class Relation
{
public:
    explicit Relation(std::size_t size) : _size(size), _cells(size * size) {}

    void add(std::size_t from, std::size_t to) { _cells[from * _size + to] = 1; }
    bool has(std::size_t from, std::size_t to) const { return _cells[from * _size + to]; }

    void add(Relation const &other)
    {
        for (std::size_t i = 0; i < _cells.size(); ++i)
            _cells[i] |= other._cells[i];
    }

    void close()
    {
        for (std::size_t middle = 0; middle < _size; ++middle)
            for (std::size_t from = 0; from < _size; ++from)
                for (std::size_t to = 0; has(from, middle) && to < _size; ++to)
                    if (has(middle, to))
                        add(from, to);
    }

    /// Only for a closed relation.
    bool isAcyclic() const
    {
        for (std::size_t i = 0; i < _size; ++i)
            if (has(i, i))
                return false;
        return true;
    }

private:
    std::size_t _size;
    std::vector<char> _cells;
};

/// An assignment of stores to loads and an order of the stores of each word.
class Execution
{
public:
    explicit Execution(Litmus const &litmus)
        : _before(countEvents(litmus)),
          _source(countEvents(litmus), 0),
          _position(countEvents(litmus), 0)
    {
        // A store for the first value of each word, which happens before everything else.
        for (unsigned word = 0; word < countWords(litmus); ++word)
            _events.push_back({{Operation::STORE, ZvPlatform::Order::RELAXED, word, 0}, 0});
        _nbFirst = _events.size();
        for (unsigned thread = 0; thread < litmus.size(); ++thread)
            for (Operation const &operation : litmus[thread])
                _events.push_back({operation, thread + 1});
        for (std::size_t i = 0; i < _events.size(); ++i)
            for (std::size_t j = _nbFirst; j < _events.size(); ++j)
                if (i < _nbFirst || (i < j && _events[i].thread == _events[j].thread))
                    _before.add(i, j);
        _stores.resize(_nbFirst);
        for (std::size_t i = 0; i < _events.size(); ++i) {
            Operation const &operation = _events[i].operation;
            if (operation.writes())
                _stores[operation.word].push_back(i);
            if (operation.reads())
                _loads.push_back(i);
        }
    }

    /// Adds the outcomes of all permitted executions.
    void collect(Extent extent, Outcomes &outcomes) { orderStores(0, extent, outcomes); }

private:
    struct Event
    {
        Operation operation;
        unsigned thread;
    };

    static std::size_t countEvents(Litmus const &litmus)
    {
        return std::accumulate(
            litmus.begin(), litmus.end(), std::size_t{countWords(litmus)},
            [](std::size_t sum, auto const &thread) { return sum + thread.size(); });
    }

    void orderStores(unsigned word, Extent extent, Outcomes &outcomes)
    {
        if (word == _stores.size()) {
            assignLoads(0, extent, outcomes);
            return;
        }
        // The first value stays the first.
        auto &stores = _stores[word];
        std::sort(stores.begin() + 1, stores.end());
        do {
            for (std::size_t i = 0; i < stores.size(); ++i)
                _position[stores[i]] = i;
            orderStores(word + 1, extent, outcomes);
        } while (std::next_permutation(stores.begin() + 1, stores.end()));
    }

    void assignLoads(std::size_t load, Extent extent, Outcomes &outcomes)
    {
        if (load == _loads.size()) {
            if (isPermitted(extent))
                outcomes.insert(getOutcome());
            return;
        }
        Event const &event = _events[_loads[load]];
        for (std::size_t const store : _stores[event.operation.word]) {
            // A read-modify-write reads what stands right before its own store.
            bool const isNext = _position[_loads[load]] == _position[store] + 1;
            if (store == _loads[load] || (event.operation.writes() && !isNext))
                continue;
            _source[_loads[load]] = store;
            assignLoads(load + 1, extent, outcomes);
        }
    }

    std::string getOutcome() const
    {
        std::vector<int> read, last;
        for (std::size_t const load : _loads)
            read.push_back(_events[_source[load]].operation.value);
        for (auto const &stores : _stores)
            last.push_back(_events[stores.back()].operation.value);
        return toOutcome(read, last);
    }

    bool isSequential(std::size_t i) const
    {
        return _events[i].operation.order == ZvPlatform::Order::SEQ_CST;
    }

    bool isFence(std::size_t i) const { return _events[i].operation.kind == Operation::FENCE; }

    /// The events that synchronise with others, [atomics.order] and [atomics.fences].
    Relation findSynchronisation() const
    {
        std::size_t const size = _events.size();
        Relation result(size);
        for (std::size_t const load : _loads) {
            std::vector<std::size_t> acquirers;
            for (std::size_t i = 0; i < size; ++i)
                if (acquires(_events[i].operation.order) &&
                    (i == load || (isFence(i) && _before.has(load, i))))
                    acquirers.push_back(i);
            // The store that is read belongs to the release sequences that begin with it, and, if
            // it is a read-modify-write, to those of the store that it has read.
            for (std::size_t head = _source[load];; head = _source[head]) {
                for (std::size_t i = 0; i < size; ++i)
                    if (releases(_events[i].operation.order) &&
                        (i == head || (isFence(i) && _before.has(i, head))))
                        for (std::size_t const acquirer : acquirers)
                            result.add(i, acquirer);
                if (!_events[head].operation.reads())
                    break;
            }
        }
        return result;
    }

    /// The coherence order of [atomics.order]: each event before those that follow it at its word.
    Relation findCoherence() const
    {
        Relation result(_events.size());
        for (auto const &stores : _stores)
            for (std::size_t i = 0; i < stores.size(); ++i)
                for (std::size_t j = i + 1; j < stores.size(); ++j)
                    result.add(stores[i], stores[j]);
        for (std::size_t const load : _loads) {
            result.add(_source[load], load);
            for (std::size_t const store : _stores[_events[load].operation.word])
                if (_position[store] > _position[_source[load]] && store != load)
                    result.add(load, store);
        }
        result.close();
        return result;
    }

    /// What the single total order S must contain.
    Relation findSequence(Relation const &happens, Relation const &synchronises,
                          Relation const &coherence) const
    {
        std::size_t const size = _events.size();
        Relation strongly = _before;
        for (std::size_t a = 0; a < size; ++a)
            for (std::size_t b = 0; b < size; ++b) {
                if (synchronises.has(a, b) && isSequential(a) && isSequential(b))
                    strongly.add(a, b);
                for (std::size_t x = 0; x < size; ++x)
                    for (std::size_t y = 0; _before.has(a, x) && y < size; ++y)
                        if (happens.has(x, y) && _before.has(y, b))
                            strongly.add(a, b);
            }
        strongly.close();
        Relation result(size);
        for (std::size_t a = 0; a < size; ++a)
            for (std::size_t b = 0; b < size; ++b) {
                if (isSequential(a) && isSequential(b) && strongly.has(a, b))
                    result.add(a, b);
                if (!coherence.has(a, b))
                    continue;
                // From a, or a fence before it, to b, or a fence after it.
                for (std::size_t from = 0; from < size; ++from)
                    for (std::size_t to = 0; to < size; ++to)
                        if (isSequential(from) && isSequential(to) &&
                            (from == a || (isFence(from) && happens.has(from, a))) &&
                            (to == b || (isFence(to) && happens.has(b, to))))
                            result.add(from, to);
            }
        return result;
    }

    bool isPermitted(Extent extent) const
    {
        std::size_t const size = _events.size();
        Relation const synchronises = findSynchronisation();
        Relation happens = _before;
        happens.add(synchronises);
        happens.close();
        if (!happens.isAcyclic())
            return false;
        Relation const coherence = findCoherence();
        if (!coherence.isAcyclic())
            return false;
        for (std::size_t a = 0; a < size; ++a)
            for (std::size_t b = 0; b < size; ++b)
                if (happens.has(a, b) && coherence.has(b, a))
                    return false;
        Relation order = findSequence(happens, synchronises, coherence);
        if (extent == Extent::FORWARD) {
            order.add(_before);
            for (auto const &stores : _stores)
                for (std::size_t i = 1; i < stores.size(); ++i)
                    order.add(stores[i - 1], stores[i]);
            for (std::size_t const load : _loads)
                order.add(_source[load], load);
        }
        order.close();
        return order.isAcyclic();
    }

    std::vector<Event> _events;
    std::size_t _nbFirst = 0;
    Relation _before;                              // sequenced before
    std::vector<std::vector<std::size_t>> _stores; // of each word, in its modification order
    std::vector<std::size_t> _loads;
    std::vector<std::size_t> _source;   // of each load, the store that it reads
    std::vector<std::size_t> _position; // of each store in its modification order
};

} // namespace

Outcomes outcomesOfModel(Litmus const &litmus)
{
    static auto &memory = *new WeakMemory;
    Outcomes outcomes;
    choices = {};
    do
        outcomes.insert(runOnce(memory, litmus));
    while (choices.next());
    return outcomes;
}

Outcomes outcomesOfStandard(Litmus const &litmus, Extent extent)
{
    Outcomes outcomes;
    Execution(litmus).collect(extent, outcomes);
    return outcomes;
}

std::string toText(Litmus const &litmus)
{
    static char const * const kinds[] = {"load", "store", "exchange", "fence"};
    static char const * const orders[] = {"relaxed", "consume", "acquire",
                                          "release", "acq_rel", "seq_cst"};
    std::string text;
    for (auto const &thread : litmus) {
        text += "thread:";
        for (Operation const &operation : thread) {
            text += std::string(" ") + kinds[operation.kind];
            if (operation.kind != Operation::FENCE)
                text += std::string(" ") + "xyzw"[operation.word];
            if (operation.writes())
                text += '=' + std::to_string(operation.value);
            text += std::string(" ") + orders[static_cast<int>(operation.order)] + ';';
        }
        text += '\n';
    }
    return text;
}

} // namespace Zv::Simulated
