// Checks that every include line follows the dependencies of the packages.

#include "architecture/tree.h"
#include "zvbase/inPackageRun.private.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <regex>
#include <set>
#include <string>
#include <vector>

namespace ZvTest {

namespace {

namespace fs = std::filesystem;
using Names = std::set<std::string>;

/// Returns what each package with a folder of its own needs, as the packages tell it. All may use
/// the base library, and `resmgt` is the library as a whole.
std::map<std::string, Names> readDependencies()
{
    auto const packages = Zv::InPackageRun::getRegistered();
    std::map<std::string, Names> read;
    for (Zv::InPackageInit const *package : packages) {
        std::string const name = package->getName();
        if (name == "base" || name == "resmgt")
            continue;
        Names &needed = read[name];
        for (std::type_info const *type : package->getDependencies())
            for (Zv::InPackageInit const *other : packages)
                if (typeid(*other) == *type && other->getName() != std::string("base"))
                    needed.insert(other->getName());
    }
    return read;
}

std::map<std::string, Names> const &getDependencies()
{
    static std::map<std::string, Names> const dependencies = readDependencies();
    return dependencies;
}

struct Exception
{
    char const *file;
    char const *includes;
    char const *reason;
};

/// The includes that the table does not allow, each with its reason.
Exception const exceptions[] = {
    {"", "", "none"},
};

/// Sources outside libzvbase that may name a service of the platform.
std::regex const serviceUsers(
    ".*(Windows|WinNT)(\\.private)?\\.(cpp|h)|.*/(liUuid|mtUtil)\\.cpp|"
    ".*/lk(CondVar|Event|Lock|Mutex|NamedSema|Pulse|RecLock|Singleton|ThreadId|Util)\\.cpp|"
    ".*/da[A-Z][A-Za-z]*Allocator[A-Za-z]*\\.cpp");

struct Source
{
    std::string name; // from src
    std::vector<std::string> includes;
};

std::vector<Source> readSources()
{
    static std::regex const includeLine("^\\s*#\\s*include\\s*[\"<]([^\">]+)[\">].*");
    std::vector<Source> sources;
    for (auto const &entry : fs::recursive_directory_iterator(sourceFolder)) {
        auto const extension = entry.path().extension();
        if (extension != ".h" && extension != ".cpp")
            continue;
        Source source{fs::relative(entry.path(), sourceFolder).generic_string(), {}};
        std::ifstream file(entry.path());
        for (std::string line; std::getline(file, line);) {
            std::smatch match;
            if (std::regex_match(line, match, includeLine))
                source.includes.push_back(match[1]);
        }
        sources.push_back(std::move(source));
    }
    return sources;
}

bool startsWith(std::string const &text, std::string const &prefix)
{
    return text.compare(0, prefix.size(), prefix) == 0;
}

/// The package of a file below resmgt; empty for those of resmgt itself.
std::string packageOf(std::string const &name)
{
    if (!startsWith(name, "resmgt/"))
        return "";
    auto const slash = name.find('/', 7);
    return slash == std::string::npos ? "" : name.substr(7, slash - 7);
}

Names reachable(std::string const &package)
{
    Names reached;
    std::function<void(std::string const &)> const visit = [&](std::string const &from) {
        for (auto const &to : getDependencies().at(from))
            if (reached.insert(to).second)
                visit(to);
    };
    visit(package);
    return reached;
}

bool isExcepted(std::string const &file, std::string const &included)
{
    for (auto const &exception : exceptions)
        if (file == exception.file && included == exception.includes)
            return true;
    return false;
}

bool isOwn(std::string const &included)
{
    return startsWith(included, "resmgt/") || startsWith(included, "zvbase/") ||
           startsWith(included, "platform/");
}

/// The public headers of the platform layer. They are installed with those of the base library.
char const platformHeaders[] = "zvbase/platform/";

/// The explorer is no part of the libraries. It uses the scheduler, and runs processes of its
/// own.
char const explorer[] = "explore/";

/// True for the files below `platform/`: nothing outside the platform layer includes them.
bool isInner(std::string const &file)
{
    return startsWith(file, "platform/") && file.find('/', std::strlen("platform/")) != file.npos;
}

/// Why a file may not include another; empty when it may.
std::string objection(std::string const &file, std::string const &included)
{
    if (startsWith(file, "platform/") || startsWith(file, platformHeaders))
        return startsWith(included, "platform/") || startsWith(included, platformHeaders)
                   ? ""
                   : "the platform layer includes nothing else of the library";
    if (startsWith(file, explorer))
        return file == "explore/explore.h" ? "the public header needs nothing of the library" : "";
    if (isInner(included))
        return "the services are reached through platform/services.h";
    if (startsWith(file, "zvbase/"))
        return startsWith(included, "resmgt/") ? "the base library stands on the platform alone"
                                               : "";
    if (included == "platform/services.h")
        return std::regex_match(file, serviceUsers) ? "" : "this file does not name services";
    std::string const from = packageOf(file);
    std::string const to = packageOf(included);
    if (from.empty() || to.empty() || from == to)
        return "";
    if (!getDependencies().contains(from))
        return "there is no package " + from;
    return reachable(from).contains(to) ? "" : "package " + from + " does not depend on " + to;
}

TEST(Layering, EachFolderIsAPackage)
{
    Names folders;
    for (auto const &source : readSources())
        if (std::string const package = packageOf(source.name); !package.empty())
            folders.insert(package);
    Names packages;
    for (auto const &[name, needed] : getDependencies())
        packages.insert(name);
    EXPECT_EQ(folders, packages);
}

TEST(Layering, EachIncludeFollowsTheTableOfPackages)
{
    std::size_t checked = 0;
    for (auto const &source : readSources())
        for (auto const &included : source.includes) {
            if (!isOwn(included))
                continue;
            ++checked;
            auto const why = objection(source.name, included);
            EXPECT_TRUE(why.empty() || isExcepted(source.name, included))
                << source.name << " includes " << included << ": " << why;
        }
    EXPECT_GT(checked, 100u) << "the sources were not found";
}

TEST(Layering, PublicHeadersIncludeNoPrivateOnesAndNoServices)
{
    for (auto const &source : readSources()) {
        bool const isPublic = source.name.ends_with(".h") && !source.name.ends_with(".private.h") &&
                              !isInner(source.name) && source.name != "platform/services.h";
        if (!isPublic)
            continue;
        for (auto const &included : source.includes) {
            EXPECT_FALSE(included.ends_with(".private.h"))
                << source.name << " includes " << included;
            EXPECT_NE(included, "platform/services.h") << source.name;
        }
    }
}

TEST(Layering, NoHeaderRunsInCircles)
{
    std::map<std::string, std::vector<std::string>> includes;
    for (auto const &source : readSources())
        includes[source.name] = source.includes;

    enum class Mark
    {
        unseen,
        open,
        done
    };
    std::map<std::string, Mark> marks;
    std::function<void(std::string const &)> const visit = [&](std::string const &name) {
        marks[name] = Mark::open;
        for (auto const &next : includes[name]) {
            if (!includes.contains(next))
                continue;
            if (marks[next] == Mark::open)
                ADD_FAILURE() << name << " reaches itself through " << next;
            else if (marks[next] == Mark::unseen)
                visit(next);
        }
        marks[name] = Mark::done;
    };
    for (auto const &source : readSources())
        if (marks[source.name] == Mark::unseen)
            visit(source.name);
}

/// Expects that no source matches, except those whose names begin with `place`.
void expectOnlyIn(std::string const &place, std::regex const &forbidden)
{
    for (auto const &source : readSources()) {
        if (startsWith(source.name, place) || startsWith(source.name, explorer))
            continue;
        std::ifstream file(sourceFolder / source.name);
        int number = 0;
        for (std::string line; std::getline(file, line);) {
            ++number;
            EXPECT_FALSE(std::regex_search(line.substr(0, line.find("//")), forbidden))
                << source.name << ":" << number << ": " << line;
        }
    }
}

TEST(Layering, ThreadsAndTimeBelongToThePlatform)
{
    expectOnlyIn("platform/",
                 std::regex("std::(mutex|recursive_mutex|shared_mutex|condition_variable|"
                            "thread\\b|jthread|atomic|memory_order|counting_semaphore|this_thread)|"
                            "pthread_|sleep_for|_clock::now"));
}

TEST(Layering, LinuxIsReachedThroughOneHeader)
{
    constexpr char const *seam = "platform/linux/kernel.h";
    // Functions of the C library that do not reach the system.
    std::regex const call("(^|[^A-Za-z0-9_>])::([a-z_0-9]+)\\(");
    Names const allowed{"free", "malloc", "memcpy", "strcmp", "strlen"};
    std::regex const system("\\bsyscall\\b|\\bSYS_|\\bpthread_|\\bsched_[a-z]");
    std::size_t checked = 0;
    for (auto const &source : readSources()) {
        if (!startsWith(source.name, "platform/linux/") || source.name == seam)
            continue;
        ++checked;
        for (auto const &included : source.includes)
            EXPECT_TRUE(isOwn(included) || included.find_first_of("./") == included.npos)
                << source.name << " includes " << included << ", which belongs into " << seam;
        std::ifstream file(sourceFolder / source.name);
        for (std::string line; std::getline(file, line);) {
            std::string const code = line.substr(0, line.find("//"));
            std::smatch match;
            EXPECT_FALSE(std::regex_search(code, match, call) && !allowed.contains(match[2]))
                << source.name << ": " << line;
            EXPECT_FALSE(std::regex_search(code, system)) << source.name << ": " << line;
        }
    }
    EXPECT_GT(checked, 20u) << "the sources were not found";
}

TEST(Layering, OnlyOneClassAsksWhetherAnExceptionUnwinds)
{
    expectOnlyIn("zvbase/unwinding.h", std::regex("uncaught_exception"));
}

} // namespace
} // namespace ZvTest
