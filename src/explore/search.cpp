#include "explore/search.private.h"

#include <algorithm>
#include <cstdio>
#include <fstream>
#include <ios>
#include <sstream>
#include <stdexcept>
#include <utility>

namespace Zv::Simulated {

namespace {

/// Schedules that a program gets before the next one gets some.
constexpr unsigned PIECE = 500;

constexpr std::pair<Choice, char const *> STRATEGIES[] = {{Choice::RANDOM, "random"},
                                                          {Choice::PRIORITY, "priority"}};

char const *nameOf(Choice choice)
{
    return STRATEGIES[choice == Choice::PRIORITY].second;
}

std::string title(std::string const &build, std::uint64_t seed)
{
    return "build " + build + ", seeds from " + std::to_string(seed);
}

} // namespace

std::string getBuild()
{
    // Fowler, Noll, Vo: FNV-1a.
    std::uint64_t hash = 0xCBF29CE484222325;
    std::ifstream file("/proc/self/exe", std::ios::binary);
    std::vector<char> block(1 << 20);
    while (file.read(block.data(), static_cast<std::streamsize>(block.size())), file.gcount() > 0)
        for (std::streamsize i = 0; i < file.gcount(); ++i)
            hash = (hash ^ static_cast<unsigned char>(block[static_cast<std::size_t>(i)])) *
                   0x100000001B3;
    std::ostringstream text;
    text << std::hex << hash;
    return text.str();
}

Search::Search(std::string path, std::string build, std::uint64_t seed)
    : _path(std::move(path)), _build(std::move(build)), _seed(seed)
{
    read();
}

void Search::read()
{
    std::ifstream file(_path);
    if (!file)
        return;
    std::string line;
    std::getline(file, line);
    if (line != title(_build, _seed))
        throw std::invalid_argument(_path + " is not of this build and these seeds, but of \"" +
                                    line + "\"");
    while (std::getline(file, line)) {
        std::istringstream fields(line);
        Part part;
        std::string strategy;
        fields >> part.program >> strategy >> part.series.done >> part.series.decisions >>
            part.steps;
        if (!fields)
            throw std::invalid_argument(_path + " has a wrong line: " + line);
        part.choice = strategy == nameOf(Choice::PRIORITY) ? Choice::PRIORITY : Choice::RANDOM;
        part.series.seed = _seed;
        fields >> part.finding;
        std::getline(fields >> std::ws, part.kind);
        _parts.push_back(part);
    }
}

void Search::write() const
{
    std::string const whole = _path + ".new";
    std::ofstream file(whole);
    file << title(_build, _seed) << '\n';
    for (Part const &part : _parts) {
        file << part.program << ' ' << nameOf(part.choice) << ' ' << part.series.done << ' '
             << part.series.decisions << ' ' << part.steps;
        if (!part.kind.empty())
            file << ' ' << part.finding << ' ' << part.kind;
        file << '\n';
    }
    file.close();
    if (!file || std::rename(whole.c_str(), _path.c_str()) != 0)
        throw std::invalid_argument(_path + " cannot be written");
}

Search::Part &Search::partOf(unsigned program, Choice choice)
{
    std::string const name = getScenarios()[program].name;
    auto const found = std::find_if(_parts.begin(), _parts.end(), [&](Part const &part) {
        return part.program == name && part.choice == choice;
    });
    if (found != _parts.end())
        return *found;
    Part part;
    part.program = name;
    part.choice = choice;
    part.series.seed = _seed;
    return _parts.emplace_back(part);
}

void Search::run(Explorer &explorer, std::vector<unsigned> const &programs, unsigned schedules)
{
    for (unsigned limit = 0; limit < schedules;) {
        limit = std::min(schedules - limit, PIECE) + limit;
        for (unsigned const program : programs)
            for (auto const &[choice, name] : STRATEGIES) {
                Part &part = partOf(program, choice);
                if (part.series.done >= limit || !part.kind.empty())
                    continue;
                Tally tally;
                explorer.goOn(tally, program, choice, part.series,
                              static_cast<unsigned>(limit - part.series.done));
                part.steps += tally.steps;
                if (tally.finding) {
                    part.kind = tally.finding->kind;
                    part.finding = tally.finding->schedule.toText();
                }
                write();
            }
    }
}

bool Search::hasFound() const
{
    return std::any_of(_parts.begin(), _parts.end(),
                       [](Part const &part) { return !part.kind.empty(); });
}

std::string Search::summary() const
{
    std::ostringstream text;
    std::uint64_t schedules = 0;
    std::uint64_t steps = 0;
    for (auto const &[choice, name] : STRATEGIES) {
        std::vector<std::uint64_t> done;
        for (Part const &part : _parts)
            if (part.choice == choice)
                done.push_back(part.series.done);
        if (done.empty())
            continue;
        auto const [least, most] = std::minmax_element(done.begin(), done.end());
        text << done.size() << " programs, " << name << ": " << *least << " to " << *most
             << " seeds each, from seed " << _seed << " on\n";
    }
    for (Part const &part : _parts) {
        schedules += part.series.done;
        steps += part.steps;
        if (!part.kind.empty())
            text << "found: " << part.kind << " in " << part.finding << '\n';
    }
    text << schedules << " schedules, " << steps
         << " steps, found: " << (hasFound() ? "see above" : "nothing") << '\n';
    return text.str();
}

} // namespace Zv::Simulated
