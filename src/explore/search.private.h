// Search: runs many seeds of each program, in pieces, and keeps what was done in a file (extenders).
#pragma once

#include "explore/explorer.private.h"

#include <cstdint>
#include <string>
#include <vector>

namespace Zv::Simulated {

/// A search with the seeds from `seed` on, by both random strategies. It can be interrupted at any
/// moment, and continued with the same file. The result is the same as without the interruption.
///
/// The file is a text. It names the build that was searched, because other sources give other
/// schedules.
class Search
{
public:
    /// What was done with one program and one strategy.
    struct Part
    {
        std::string program;
        Choice choice;
        Series series;
        std::uint64_t steps = 0;
        std::string kind;    ///< of the finding, or empty
        std::string finding; ///< schedule of the finding
    };

    /// Reads the file if it exists. Throws `std::invalid_argument` if it is the file of another
    /// build or of other seeds, or is no file of a search.
    Search(std::string path, std::string build, std::uint64_t seed);

    /// Continues with the programs until each has run `schedules` schedules by each strategy, or
    /// has a finding. Each program gets a few schedules before the first one gets more.
    void run(Explorer &, std::vector<unsigned> const &programs, unsigned schedules);
    /// Returns how many schedules were run, and all findings.
    std::string summary() const;
    std::vector<Part> const &getParts() const { return _parts; }
    bool hasFound() const;

private:
    void read();
    void write() const;
    Part &partOf(unsigned program, Choice);

    std::string _path;
    std::string _build;
    std::uint64_t _seed;
    std::vector<Part> _parts;
};

/// Returns a text that differs between builds of this program.
std::string getBuild();

} // namespace Zv::Simulated
