// Figures of a running show.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

/// What the table of a running show says, see `Top`. A plain object, so that it can be laid out
/// without a show and without a terminal. A number that is not known is negative.
struct TopFigures
{
    struct Device
    {
        std::string name;
        int depth = 0;            ///< in the tree, 0 for the root
        std::string state;        ///< empty before the start
        std::int64_t waiting = 0; ///< requests in its queue
        int blocks = -1;          ///< that were sent to it and wait to be taken; -1 without input
        int mostBlocks = 0;       ///< that may wait
        std::int64_t done = 0;    ///< blocks that it has sent or written
        std::int64_t beats = -1;  ///< of the clock; -1 if the clock does not pace it
        std::int64_t late = 0;    ///< of these
        double lateness = 0;      ///< of the latest beat so far, in seconds
        double busy = 0;          ///< seconds that it has spent on one request or piece of work
    };
    struct Thread
    {
        std::string name;
        int level = 0;
        std::string asked; ///< see `ThreadLevel`
        std::string got;
        double seconds = -1; ///< processor time in total
        double share = -1;   ///< of one processor, since the last figures
    };
    struct Memory
    {
        std::string kind; ///< "heap, LRU"
        std::int64_t bytes = 0;
        std::int64_t budget = 0;
        long loads = 0;
        long reloads = 0;
        long unloads = 0;
        long hits = 0; ///< of the prefetch
        long visits = 0;
    };
    struct Card
    {
        std::string name;
        double ready = -1; ///< seconds of sound that wait to be played
        double room = 0;   ///< seconds of sound that may wait
        std::int64_t underruns = 0;
        std::int64_t overruns = 0;
        std::int64_t late = 0; ///< periods
    };

    std::string title;    ///< name of the show
    std::string phase;    ///< "playing"
    std::string position; ///< a timecode or seconds; empty before the start
    double share = -1;    ///< of the length
    double peak = -1;     ///< full scale is 1
    std::optional<Memory> memory;
    std::optional<Card> card;
    std::vector<Device> devices; ///< the root first
    std::vector<Thread> threads;
};
