// Runs the tables under many schedules. The lines must be the same under each of them. Those of the
// first schedule are printed, and those of the others are compared with them.
#include "conformance/conformance.h"
#include "platform/scheduler/simulation.h"

#include <cstdio>
#include <cstdlib>
#include <sys/mman.h>
#include <sys/wait.h>
#include <unistd.h>

namespace Simulated = ZvPlatform::Simulated;

namespace {

constexpr std::uint64_t SEEDS = 25;

[[noreturn]] void die(char const *what)
{
    std::perror(what);
    std::exit(1);
}

/// Runs `body` in a process of its own, whose output goes to `output`. Returns whether the process
/// has ended without a failure.
bool run(void (*body)(), Simulated::Options const &options, Simulated::Record &record, int output)
{
    record = {};
    std::fflush(stdout);
    pid_t const child = ::fork();
    if (child < 0)
        die("fork");
    if (child == 0) {
        ::dup2(output, STDOUT_FILENO);
        Simulated::begin(options, record);
        body();
        // The first thread has asked for a handle of its own, whose object lives as long as that
        // thread.
        Simulated::end({.objects = 1, .threads = 0});
        ::_exit(0);
    }
    int status = -1;
    if (::waitpid(child, &status, 0) != child)
        die("waitpid");
    if (status == 0)
        return true;
    std::fprintf(stderr, "choice %u, seed %llu: status %d\n%s\n",
                 static_cast<unsigned>(options.choice),
                 static_cast<unsigned long long>(options.seed), status, record.report);
    return false;
}

/// Checks that each allocation of a slot counts once among the calls that can be made to fail.
[[maybe_unused]] void allocateSlots()
{
    TlsAlloc();
    TlsAlloc();
    Simulated::MayBeRefused const refusals;
    bool const first = TlsAlloc() != TLS_OUT_OF_INDEXES;
    bool const second = TlsAlloc() != TLS_OUT_OF_INDEXES;
    if (!first || second || GetLastError() != ERROR_NO_MORE_ITEMS)
        Simulated::find("refusals", "the second allocation of a slot was to fail");
}

std::string linesOf(int file)
{
    std::string text(static_cast<std::size_t>(::lseek(file, 0, SEEK_END)), '\0');
    if (::pread(file, text.data(), text.size(), 0) != static_cast<ssize_t>(text.size()))
        die("pread");
    return text;
}

} // namespace

int main()
{
    void *memory = ::mmap(nullptr, sizeof(Simulated::Record), PROT_READ | PROT_WRITE,
                          MAP_SHARED | MAP_ANONYMOUS, -1, 0);
    if (memory == MAP_FAILED)
        die("mmap");
    auto &record = *static_cast<Simulated::Record *>(memory);
#ifndef ZV_KERNEL_SIMULATED // no kernel refuses a slot
    Simulated::Options refusing;
    refusing.failing = 2;
    refusing.resources = Simulated::SLOTS;
    if (!run(allocateSlots, refusing, record, STDOUT_FILENO))
        return 1;
#endif
    std::string first;
    for (std::uint64_t seed = 1; seed <= SEEDS; ++seed)
        for (Simulated::Choice choice : {Simulated::Choice::RANDOM, Simulated::Choice::PRIORITY}) {
            Simulated::Options options;
            options.choice = choice;
            options.seed = seed;
            options.bound = 1'000'000;
            options.length = 20'000;
            int const output = ::memfd_create("lines", 0);
            if (output < 0)
                die("memfd_create");
            bool const isGood = run(Conformance::show, options, record, output);
            std::string const lines = linesOf(output);
            ::close(output);
            if (first.empty() || lines != first)
                std::fputs(lines.c_str(), stdout);
            if (!isGood || (!first.empty() && lines != first))
                return 1;
            first = lines;
        }
    return 0;
}
