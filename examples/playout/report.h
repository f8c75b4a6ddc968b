// Page about a show that was played.
#pragma once

#include "cues.h"
#include "display.h"
#include "journal.h"
#include "threadLevels.h"
#include "waveform.h"

#include <cstdint>
#include <memory>
#include <string>
#include <utility>
#include <vector>

/// What a report says of a show. It is written as one page of HTML without scripts, which is
/// well-formed XML, too.
struct Report
{
    struct Device
    {
        std::string name;
        int depth; // in the tree, 0 for the root
    };

    /// Returns the page.
    std::string toPage() const;

    std::string title;
    std::string result;     ///< "recorded 00:00:08:23 in out.wav"
    bool hasFailed = false; ///< the result is the reason
    std::vector<std::pair<std::string, std::string>>
        facts;                          ///< names and values, the most important
    std::unique_ptr<Waveform> waveform; ///< null if nothing was recorded
    Timeline const *timeline = nullptr; ///< may be null if there are no events
    std::vector<Cues::Cue> events;      ///< that were carried out
    std::vector<Cues::Cue> otherEvents;
    std::vector<Device> devices; ///< the root first
    double length = 0;           ///< seconds from START to the end
    std::int64_t budget = 0;     ///< bytes for the clips; 0 if there is none
    Journal::Records records;
    std::vector<ThreadLevel> threads;
    std::vector<Table> tables; ///< as shown at the end
};
