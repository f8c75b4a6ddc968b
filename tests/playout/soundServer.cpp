#include "soundServer.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/file.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <filesystem>
#include <future>
#include <system_error>
#include <utility>

namespace ZvTest {
namespace {

/// Calls a function until it returns true. Returns false if that takes minutes.
bool await(std::function<bool()> const &isDone)
{
    auto const end = std::chrono::steady_clock::now() + std::chrono::minutes(3);
    while (!isDone()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        ::usleep(5000);
    }
    return true;
}

/// JACK has room for eight servers, and the place of one that was killed is free only for a server of
/// the same name.
constexpr char NAME[] = "zvtest";

/// Waits until no other process has a server. The servers of a user share a data base, which one
/// that ends removes, and in which one that is killed may leave a lock.
int lockServers()
{
    std::string const path = std::filesystem::temp_directory_path() / (NAME + std::string(".lock"));
    int const file = ::open(path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0666);
    if (file < 0 || ::flock(file, LOCK_EX) != 0)
        throw std::system_error(errno, std::generic_category(), path);
    return file;
}

} // namespace

SoundServer::SoundServer(std::string const &folder) : _lock(lockServers())
{
    jack_set_error_function([](char const *) {});
    jack_set_info_function([](char const *) {});
    std::string const rate = std::to_string(RATE);
    std::string const period = std::to_string(PERIOD);
    ::setenv("JACK_DEFAULT_SERVER", NAME, 1);
    ::setenv("JACK_NO_AUDIO_RESERVATION", "1", 1);
    _process = ::fork();
    if (_process == 0) {
        ::prctl(PR_SET_PDEATHSIG, SIGKILL);
        int const log = ::open((folder + "/jackd.log").c_str(), O_WRONLY | O_CREAT, 0600);
        ::dup2(log, STDOUT_FILENO);
        ::dup2(log, STDERR_FILENO);
        static_cast<void>(!::chdir(folder.c_str()));
        // Not real-time, and it waits for its clients for a minute.
        ::execlp("jackd", "jackd", "-n", NAME, "-r", "-S", "-t", "60000", "-d", "dummy", "-r",
                 rate.c_str(), "-p", period.c_str(), "-C", "2", "-P", "2", nullptr);
        ::_exit(127);
    }
    bool hasEnded = false;
    EXPECT_TRUE(await([&] {
        jack_client_t * const client = openClient("probe");
        if (client)
            jack_client_close(client);
        hasEnded = !client && ::waitpid(_process, nullptr, WNOHANG) == _process;
        return client || hasEnded;
    }));
    if (hasEnded)
        _process = -1;
    EXPECT_FALSE(hasEnded) << "jackd has not started, see " << folder << "/jackd.log";
}

SoundServer::~SoundServer()
{
    if (_process > 0) {
        signal(SIGCONT);
        signal(SIGTERM);
        ::waitpid(std::exchange(_process, -1), nullptr, 0);
    }
    ::unsetenv("JACK_DEFAULT_SERVER");
    // A server that was killed leaves these behind.
    for (auto const &entry : std::filesystem::directory_iterator("/dev/shm"))
        if (std::string const name = entry.path().filename();
            name.find(std::string("_") + NAME + "_") != name.npos) {
            std::error_code ignored;
            std::filesystem::remove_all(entry.path(), ignored);
        }
    ::close(_lock);
}

void SoundServer::signal(int number)
{
    ASSERT_EQ(::kill(_process, number), 0);
}

void SoundServer::kill()
{
    if (_process < 0)
        return;
    signal(SIGKILL);
    ::waitpid(std::exchange(_process, -1), nullptr, 0);
}

void SoundServer::close(jack_client_t *client)
{
    auto const closing = std::async(std::launch::async, [client] { jack_client_close(client); });
    if (closing.wait_for(std::chrono::seconds(10)) != std::future_status::ready)
        kill();
}

jack_client_t *SoundServer::openClient(char const *name)
{
    return jack_client_open(name, JackNoStartServer, nullptr);
}

SoundTone::SoundTone(SoundServer &server)
    : _server(server), _client(SoundServer::openClient("tone"))
{
    if (!_client)
        throw std::runtime_error("the server does not answer");
    _port = jack_port_register(_client, "out_1", JACK_DEFAULT_AUDIO_TYPE, JackPortIsOutput, 0);
    jack_set_process_callback(
        _client,
        [](jack_nframes_t count, void *argument) {
            auto &tone = *static_cast<SoundTone *>(argument);
            auto * const buffer = static_cast<float *>(jack_port_get_buffer(tone._port, count));
            for (jack_nframes_t i = 0; i < count; ++i)
                buffer[i] = tone._last = getNext(tone._last);
            return 0;
        },
        this);
    EXPECT_EQ(jack_activate(_client), 0);
}

SoundTone::~SoundTone()
{
    _server.close(_client);
}

SoundCapture::SoundCapture(SoundServer &server, int channels)
    : _server(server),
      _client(SoundServer::openClient("capture")),
      _samples(MOST * static_cast<std::size_t>(channels))
{
    if (!_client)
        throw std::runtime_error("the server does not answer");
    for (int i = 0; i < channels; ++i)
        _ports.push_back(jack_port_register(_client, ("in_" + std::to_string(i + 1)).c_str(),
                                            JACK_DEFAULT_AUDIO_TYPE, JackPortIsInput, 0));
    jack_set_process_callback(
        _client,
        [](jack_nframes_t count, void *capture) {
            return static_cast<SoundCapture *>(capture)->process(count);
        },
        this);
    EXPECT_EQ(jack_activate(_client), 0);
}

SoundCapture::~SoundCapture()
{
    _server.close(_client);
}

std::string SoundCapture::getPlace() const
{
    std::string place;
    for (jack_port_t * const port : _ports)
        place += (place.empty() ? "jack:" : ",") + std::string(jack_port_name(port));
    return place;
}

int SoundCapture::process(jack_nframes_t count)
{
    std::size_t const channels = _ports.size();
    std::size_t const before = _count.load(std::memory_order_relaxed);
    if (before + count * channels > _samples.size())
        return 0;
    for (std::size_t i = 0; i < channels; ++i) {
        auto const * const buffer =
            static_cast<float const *>(jack_port_get_buffer(_ports[i], count));
        for (std::size_t k = 0; k < count; ++k)
            _samples[before + k * channels + i] = buffer[k];
    }
    _count.store(before + count * channels, std::memory_order_release);
    return 0;
}

std::vector<float> SoundCapture::getSamples() const
{
    auto const count = static_cast<std::ptrdiff_t>(_count.load(std::memory_order_acquire));
    return {_samples.begin(), _samples.begin() + count};
}

bool SoundCapture::waitUntil(std::function<bool(std::vector<float> const &)> const &condition) const
{
    return await([&] { return condition(getSamples()); });
}

} // namespace ZvTest
