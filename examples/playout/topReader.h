// Reads the figures of a running show.
#pragma once

#include "stage.h"
#include "topFigures.h"

#include <map>
#include <string>

/// Reads what changes in a running show: the figures of its devices, threads, pages and card. Each
/// figure is copied at once, so that no device waits for more than a copy. One thread.
class TopReader
{
public:
    using States = std::map<std::string, std::string>; // of devices, by name

    /// Adds the figures of the threads and the pages. The packages must be up.
    void read(TopFigures &figures, PlayoutJob const &job);
    /// Adds the figures of the devices, which must be open, and of their card.
    static void readDevices(TopFigures &figures, PlayoutJob const &job, Stage const &stage,
                            States const &states);

private:
    void readThreads(TopFigures &figures);

    std::map<id_t, double> _seconds; // processor time of each thread, at the last reading
    double _readAt = 0;              // moment of the last reading
};
