#include "explore/explorer.private.h"

#include <cstdio>
#include <cstdlib>
#include <map>
#include <set>
#include <sstream>
#include <unistd.h>

namespace Zv::Simulated {

namespace {

constexpr std::size_t FRAMES_SHOWN = 5;

/// Calls `found` with each address of the list at the end of a line.
template <class Found>
void forEachAddress(std::string const &line, Found found)
{
    auto const at = line.rfind(" @ 0x");
    if (at == line.npos)
        return;
    std::istringstream list(line.substr(at + 3));
    std::string word;
    while (list >> word)
        found(std::strtoull(word.c_str(), nullptr, 16));
}

/// Returns whether a place is not shown: in the scheduler, in the explorer, or in an installed
/// header of the library, which is between the application and the library's own sources.
bool isInner(std::string const &path)
{
    return path.empty() || path.find("/include/resmgt/") != path.npos ||
           path.find("/include/zvbase/") != path.npos || path.find("src/platform/s") != path.npos ||
           path.find("src/zvbase/platform/") != path.npos || path.find("src/explore/") != path.npos;
}

/// Returns the name of a function without its arguments and template arguments.
std::string shortName(std::string const &function)
{
    std::string name;
    int depth = 0;
    for (std::size_t i = 0; i < function.size(); ++i) {
        if (function.compare(i, 21, "(anonymous namespace)") == 0)
            i += 21 + 2;
        char const c = i < function.size() ? function[i] : ' ';
        if (c == '(' && depth == 0)
            break;
        depth += c == '<';
        if (depth == 0)
            name += c;
        depth -= c == '>';
    }
    // The name of a function template begins with the type of its result.
    auto const blank = name.rfind(' ');
    std::string const last = blank == name.npos ? name : name.substr(blank + 1);
    return last.starts_with("Zv::") ? last.substr(4) : last;
}

std::map<unsigned long long, std::string> lookUp(std::set<unsigned long long> const &addresses)
{
    std::map<unsigned long long, std::string> places;
    char name[] = "/tmp/addressesXXXXXX";
    int const file = ::mkstemp(name);
    std::ostringstream list;
    // A return address is that of the instruction after the call.
    for (auto const address : addresses)
        list << std::hex << "0x" << address - 1 << '\n';
    bool const good = file >= 0 && ::write(file, list.str().data(), list.str().size()) > 0;
    char program[4096] = {};
    std::string command;
    if (good && ::readlink("/proc/self/exe", program, sizeof program - 1) > 0)
        command =
            std::string("addr2line -a -f -C -i -e '") + program + "' <" + name + " 2>/dev/null";
    FILE *pipe = command.empty() ? nullptr : ::popen(command.c_str(), "r");
    char line[4096];
    unsigned long long address = 0;
    std::string function;
    while (pipe && std::fgets(line, sizeof line, pipe)) {
        std::string text(line);
        text.erase(text.find_last_not_of("\r\n") + 1);
        if (text.starts_with("0x")) {
            address = std::strtoull(line, nullptr, 16) + 1;
            function.clear();
        } else if (function.empty()) {
            function = text;
        } else {
            std::string const path = shortPath(text.substr(0, text.find(' ')));
            if (!isInner(path))
                places[address] +=
                    (places[address].empty() ? "" : " < ") + shortName(function) + " " + path;
            function.clear();
        }
    }
    if (pipe)
        ::pclose(pipe);
    if (file >= 0) {
        ::close(file);
        ::unlink(name);
    }
    return places;
}

} // namespace

std::string shortPath(std::string const &path)
{
    auto const source = path.rfind("../src/");
    if (source != path.npos)
        return path.substr(source + 3);
    auto const test = path.rfind("../tests/");
    if (test != path.npos)
        return path.substr(test + 3);
    return path.starts_with('/') && !path.starts_with("/usr/") ? path : "";
}

std::string withSymbols(std::string const &text)
{
    std::set<unsigned long long> addresses;
    std::istringstream lines(text);
    std::string line;
    while (std::getline(lines, line))
        forEachAddress(line, [&](auto address) { addresses.insert(address); });
    auto const places = lookUp(addresses);
    std::string result;
    std::istringstream again(text);
    while (std::getline(again, line)) {
        std::string where;
        std::size_t shown = 0;
        forEachAddress(line, [&](auto address) {
            auto const place = places.find(address);
            if (place != places.end() && shown++ < FRAMES_SHOWN)
                where += "\n                        at " + place->second;
        });
        result += line.substr(0, line.rfind(" @ 0x")) + where + '\n';
    }
    return result;
}

} // namespace Zv::Simulated
