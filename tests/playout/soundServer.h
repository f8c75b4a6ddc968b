// Server of JACK without a sound card, a client that plays and one that captures.
#pragma once

#include <jack/jack.h>
#include <sys/types.h>

#include <atomic>
#include <cmath>
#include <functional>
#include <string>
#include <vector>

namespace ZvTest {

/// Server with a dummy driver that waits for its clients, so that no period is lost on a busy
/// machine. If a client was killed, it waits a minute for that one, too. It runs in a folder of its
/// own and with a name of its own, which all programs that are started later use. There is one
/// server at a time, also among several test programs.
class SoundServer
{
public:
    static constexpr int RATE = 48000;
    static constexpr int PERIOD = 1024;

    explicit SoundServer(std::string const &folder);
    SoundServer(SoundServer const &) = delete;
    SoundServer &operator=(SoundServer const &) = delete;
    ~SoundServer();

    void signal(int number);
    /// Kills the server and waits for its end, unless it was killed before.
    void kill();
    /// Closes a client. A server that waits for its clients may never answer that if another client
    /// has left in the same period, or if it was stopped. It is killed then.
    void close(jack_client_t *client);

    /// Opens a client. Returns null if no server answers.
    static jack_client_t *openClient(char const *name);

private:
    int _lock;
    pid_t _process = -1;
};

/// Client that plays a tone: the values 1/N, 2/N and so on to 1, again and again.
class SoundTone
{
public:
    explicit SoundTone(SoundServer &server);
    SoundTone(SoundTone const &) = delete;
    SoundTone &operator=(SoundTone const &) = delete;
    ~SoundTone();

    static std::string getPlace() { return "jack:tone:out_1"; }
    /// Returns the sample behind a sample.
    static float getNext(float sample)
    {
        return sample < 1 ? sample + 1.0f / LENGTH : 1.0f / LENGTH;
    }

    /// Returns how many samples later than a sample the other one comes, less than `LENGTH`.
    static long getDistance(float from, float to)
    {
        return (std::lround((to - from) * LENGTH) + LENGTH) % LENGTH;
    }

    static constexpr int LENGTH = 32768; // a power of two, so that the values are exact

private:
    SoundServer &_server;
    jack_client_t *_client;
    jack_port_t *_port;
    float _last = 1;
};

/// Client with ports "NAME:in_1" and so on that keeps all samples from its start on.
class SoundCapture
{
public:
    SoundCapture(SoundServer &server, int channels);
    SoundCapture(SoundCapture const &) = delete;
    SoundCapture &operator=(SoundCapture const &) = delete;
    ~SoundCapture();

    /// Returns "jack:" and the names of the ports.
    std::string getPlace() const;
    /// Returns the samples so far, interleaved.
    std::vector<float> getSamples() const;
    /// Waits until the samples meet a condition. Returns false if it takes minutes.
    bool waitUntil(std::function<bool(std::vector<float> const &)> const &condition) const;
    jack_client_t *getClient() const { return _client; }

private:
    int process(jack_nframes_t count);

    static constexpr std::size_t MOST = 120 * SoundServer::RATE; // samples of a channel

    SoundServer &_server;
    jack_client_t *_client;
    std::vector<jack_port_t *> _ports;
    std::vector<float> _samples;
    std::atomic<std::size_t> _count = 0;
};

} // namespace ZvTest
