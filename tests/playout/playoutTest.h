// Runs the program as its users do: as a process, on files.
#pragma once

#include <gtest/gtest.h>
#include <sndfile.h>
#include <sys/resource.h>
#include <sys/types.h>

#include <optional>
#include <set>
#include <string>
#include <vector>

namespace ZvTest {

struct Outcome
{
    int status = -1; // of exit; -1 where a signal has killed the process
    std::string out;
    std::string err;
    long largestMemory = 0;   // bytes that were resident
    double processorTime = 0; // seconds
};

/// The program on its way.
class Playout
{
public:
    struct Surroundings
    {
        std::optional<rlim_t> largestFile; // bytes
        bool closedOutput = false;         // nobody reads its standard output
        bool fullOutput = false;           // its standard output takes nothing, and blocks
        bool unprivileged = false;         // as far as real time goes
        std::string noRealTime;            // a value of ZV_THREAD_NO_REALTIME
        std::string refused;               // what refusing/refusals.cpp takes
        std::string refusals;              // the file in which it counts
        std::set<int> closed;              // of the standard streams
        std::string output;                // a file in place of the standard output
        std::optional<rlim_t> mostFiles;   // open at a time
    };

    Playout(std::vector<std::string> const &arguments, Surroundings surroundings);
    explicit Playout(std::vector<std::string> const &arguments) : Playout(arguments, Surroundings())
    {}
    Playout(Playout const &) = delete;
    Playout &operator=(Playout const &) = delete;
    ~Playout();

    /// Reads its standard output until a text has come; false where it ends before.
    bool waitFor(std::string const &text);
    void signal(int number);
    /// Whether it ends within so many seconds.
    bool endsWithin(double seconds);
    /// Whether it catches signals and its main thread sleeps in a call of the system, as the system says it.
    bool isAsleep() const;
    Outcome finish();

private:
    pid_t _process = -1;
    int _out = -1;
    int _error = -1;
    std::string _text;
};

/// A sound file's frames as numbers of 32 bits.
struct Sound
{
    int format = 0; // of libsndfile
    int channels = 0;
    int rate = 0;
    std::vector<int> samples;
};

/// A folder of its own for each test.
class PlayoutTest : public testing::Test
{
protected:
    PlayoutTest();
    ~PlayoutTest() override;

    std::string path(std::string const &name) const { return _folder + "/" + name; }
    /// The names that stand in the folder.
    std::set<std::string> files() const;

    /// Makes a sound file of noise.
    Sound make(std::string const &name, int format, int channels, int rate,
               sf_count_t frames) const;
    Sound read(std::string const &name) const;
    void write(std::string const &name, Sound const &sound) const;
    void writeText(std::string const &name, std::string const &text) const;
    /// A message, with the folder's path as "%".
    std::string withoutFolder(std::string text) const;

    /// With the folder's files as INPUT and OUTPUT.
    Outcome play(std::string const &input, std::string const &output,
                 std::vector<std::string> options = {},
                 Playout::Surroundings surroundings = Playout::Surroundings()) const;

private:
    std::string _folder;
};

} // namespace ZvTest
