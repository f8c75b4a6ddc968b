#include "playoutTest.h"

#include <fcntl.h>
#include <linux/capability.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <utility>

namespace ZvTest {

namespace fs = std::filesystem;

namespace {

/// Appends what can be read. Returns false at the end of the file.
bool readOn(int descriptor, std::string &text)
{
    char buffer[4096];
    auto const count = descriptor < 0 ? 0 : ::read(descriptor, buffer, sizeof buffer);
    if (count > 0)
        text.append(buffer, static_cast<std::size_t>(count));
    return count > 0;
}

} // namespace

Playout::Playout(std::vector<std::string> const &arguments, Surroundings surroundings)
{
    int out[2] = {-1, -1};
    int error[2] = {-1, -1};
    EXPECT_EQ(::pipe2(out, O_CLOEXEC), 0);
    EXPECT_EQ(::pipe2(error, O_CLOEXEC), 0);
    ::fcntl(error[1], F_SETPIPE_SZ, 1 << 20); // large, because it is only read at the end
    bool const isPlain = surroundings.refused.empty() && !surroundings.trapped;
    std::vector<char const *> argv{isPlain ? ZVPLAYOUT : ZVPLAYOUT_REFUSING};
    for (auto const &argument : arguments)
        argv.push_back(argument.c_str());
    argv.push_back(nullptr);
    if (surroundings.fullOutput) {
        ::fcntl(out[1], F_SETFL, O_NONBLOCK);
        while (::write(out[1], "", 1) > 0) {
        }
        ::fcntl(out[1], F_SETFL, 0);
    }
    if (surroundings.closedOutput)
        ::close(std::exchange(out[0], -1));

    _process = ::fork();
    if (_process == 0) {
        ::dup2(out[1], STDOUT_FILENO);
        ::dup2(error[1], STDERR_FILENO);
        for (int const number : {SIGINT, SIGTERM, SIGHUP, SIGPIPE, SIGXFSZ})
            ::signal(number, SIG_DFL); // the tests may ignore them
        if (surroundings.largestFile) {
            rlimit const limit{*surroundings.largestFile, *surroundings.largestFile};
            ::setrlimit(RLIMIT_FSIZE, &limit);
        }
        if (surroundings.unprivileged) {
            rlimit const none{0, 0};
            ::setrlimit(RLIMIT_RTPRIO, &none);
            ::prctl(PR_CAPBSET_DROP, CAP_SYS_NICE); // fails without harm if the process lacks it
        }
        if (surroundings.mostFiles) {
            rlimit const limit{*surroundings.mostFiles, *surroundings.mostFiles};
            ::setrlimit(RLIMIT_NOFILE, &limit);
        }
        if (!surroundings.output.empty())
            ::dup2(::open(surroundings.output.c_str(), O_WRONLY), STDOUT_FILENO);
        for (int const number : surroundings.closed)
            ::close(number);
        ::setenv("ZV_REFUSE", surroundings.refused.c_str(), 1);
        ::setenv("ZV_PROVOKE", surroundings.provoked.c_str(), 1);
        ::setenv("ZV_REFUSALS", surroundings.refusals.c_str(), 1);
        ::unsetenv("ZV_THREAD_NO_REALTIME");
        if (!surroundings.noRealTime.empty())
            ::setenv("ZV_THREAD_NO_REALTIME", surroundings.noRealTime.c_str(), 1);
        ::alarm(LONGEST_RUN);
        ::execv(argv[0], const_cast<char * const *>(argv.data()));
        ::_exit(127);
    }
    ::close(out[1]);
    ::close(error[1]);
    _out = out[0];
    _error = error[0];
}

Playout::~Playout()
{
    if (_process > 0) {
        ::kill(_process, SIGKILL);
        ::waitpid(_process, nullptr, 0);
    }
    for (int const descriptor : {_out, _error})
        if (descriptor >= 0)
            ::close(descriptor);
}

bool Playout::waitFor(std::string const &text)
{
    while (_text.find(text) == _text.npos)
        if (!readOn(_out, _text))
            return false;
    return true;
}

void Playout::signal(int number)
{
    ASSERT_EQ(::kill(_process, number), 0);
}

bool Playout::isAsleep() const
{
    std::ifstream file("/proc/" + std::to_string(_process) + "/status");
    bool isAsleep = false;
    bool isReady = false;
    for (std::string line; std::getline(file, line);) {
        isAsleep = isAsleep || line.find("State:\tS") == 0;
        if (line.find("SigCgt:\t") == 0)
            isReady = std::stoull(line.substr(8), nullptr, 16) >> (SIGHUP - 1) & 1;
    }
    return isAsleep && isReady;
}

bool Playout::endsWithin(double seconds)
{
    auto const end = std::chrono::steady_clock::now() + std::chrono::duration<double>(seconds);
    siginfo_t info = {};
    do {
        if (::waitid(P_PID, static_cast<id_t>(_process), &info, WEXITED | WNOHANG | WNOWAIT) == 0 &&
            info.si_pid == _process)
            return true;
        ::usleep(5000);
    } while (std::chrono::steady_clock::now() < end);
    return false;
}

Outcome Playout::finish()
{
    Outcome outcome;
    while (readOn(_out, _text)) {
    }
    while (readOn(_error, outcome.err)) {
    }
    int status = 0;
    rusage usage = {};
    ::wait4(std::exchange(_process, -1), &status, 0, &usage);
    outcome.largestMemory = usage.ru_maxrss * 1024;
    for (timeval const &time : {usage.ru_utime, usage.ru_stime})
        outcome.processorTime +=
            static_cast<double>(time.tv_sec) + 1e-6 * static_cast<double>(time.tv_usec);
    outcome.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    outcome.out = _text;
    return outcome;
}

PlayoutTest::PlayoutTest()
{
    char folder[] = "/tmp/zvplayoutXXXXXX";
    EXPECT_NE(::mkdtemp(folder), nullptr);
    _folder = folder;
}

PlayoutTest::~PlayoutTest()
{
    fs::remove_all(_folder);
}

std::set<std::string> PlayoutTest::files() const
{
    std::set<std::string> names;
    for (auto const &entry : fs::directory_iterator(_folder))
        names.insert(entry.path().filename());
    return names;
}

void PlayoutTest::write(std::string const &name, Sound const &sound) const
{
    SF_INFO info = {};
    info.format = sound.format;
    info.channels = sound.channels;
    info.samplerate = sound.rate;
    SNDFILE * const file = sf_open(path(name).c_str(), SFM_WRITE, &info);
    ASSERT_NE(file, nullptr) << sf_strerror(nullptr);
    auto const count = static_cast<sf_count_t>(sound.samples.size());
    EXPECT_EQ(sf_write_int(file, sound.samples.data(), count), count);
    EXPECT_EQ(sf_close(file), 0);
}

void PlayoutTest::writeText(std::string const &name, std::string const &text) const
{
    std::ofstream(path(name), std::ios::binary) << text;
}

std::string PlayoutTest::withoutFolder(std::string text) const
{
    std::string const folder = path("");
    for (auto i = text.find(folder); i != text.npos; i = text.find(folder))
        text.replace(i, folder.size(), "%");
    return text;
}

Sound PlayoutTest::make(std::string const &name, int format, int channels, int rate,
                        sf_count_t frames) const
{
    Sound sound{format, channels, rate, {}};
    sound.samples.resize(static_cast<std::size_t>(frames) * static_cast<std::size_t>(channels));
    std::mt19937 random(static_cast<unsigned>(frames + channels));
    std::generate(sound.samples.begin(), sound.samples.end(),
                  [&] { return static_cast<int>(random()); });
    write(name, sound);
    return read(name);
}

Sound PlayoutTest::read(std::string const &name) const
{
    SF_INFO info = {};
    SNDFILE * const file = sf_open(path(name).c_str(), SFM_READ, &info);
    EXPECT_NE(file, nullptr) << name << ": " << sf_strerror(nullptr);
    if (!file)
        return {};
    Sound sound{
        info.format & (SF_FORMAT_TYPEMASK | SF_FORMAT_SUBMASK), info.channels, info.samplerate, {}};
    sound.samples.resize(static_cast<std::size_t>(info.frames * info.channels));
    auto const count = static_cast<sf_count_t>(sound.samples.size());
    EXPECT_EQ(sf_read_int(file, sound.samples.data(), count), count);
    sf_close(file);
    return sound;
}

Outcome PlayoutTest::play(std::string const &input, std::string const &output,
                          std::vector<std::string> options,
                          Playout::Surroundings surroundings) const
{
    options.push_back(path(input));
    options.push_back(path(output));
    return Playout(options, surroundings).finish();
}

} // namespace ZvTest
