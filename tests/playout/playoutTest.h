// Fixture that runs zvplayout as a process, on files.
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

inline constexpr unsigned LONGEST_RUN = 300; // seconds until a process counts as hanging

struct Outcome
{
    int status = -1; // of exit; -1 if a signal has killed the process
    std::string out;
    std::string err;
    long largestMemory = 0;   // bytes that were resident
    double processorTime = 0; // seconds
};

/// Running process of the program.
class Playout
{
public:
    struct Surroundings
    {
        std::optional<rlim_t> largestFile; // bytes
        bool closedOutput = false;         // its standard output is a closed pipe
        bool fullOutput = false;           // its standard output is a full pipe, so it blocks
        bool unprivileged = false;         // without the privilege of real time
        std::string noRealTime;            // a value of ZV_THREAD_NO_REALTIME
        std::string refused;               // for ZV_REFUSE, see refusing/refusals.cpp
        bool trapped = false;              // see refusing/callbackTraps.cpp
        std::string provoked;              // for ZV_PROVOKE, see there
        std::string refusals;              // path of the file that counts the refusals
        std::set<int> closed;              // standard streams that are closed
        std::string output;                // a file to which the standard output goes
        std::optional<rlim_t> mostFiles;   // open at a time
    };

    Playout(std::vector<std::string> const &arguments, Surroundings surroundings);
    explicit Playout(std::vector<std::string> const &arguments) : Playout(arguments, Surroundings())
    {}
    Playout(Playout const &) = delete;
    Playout &operator=(Playout const &) = delete;
    ~Playout();

    /// Reads its standard output until it contains a text. Returns false if the output ends before
    /// that.
    bool waitFor(std::string const &text);
    void signal(int number);
    /// Returns whether the process ends within that many seconds.
    bool endsWithin(double seconds);
    /// Returns whether the process catches signals and its main thread sleeps in a system call.
    bool isAsleep() const;
    /// Waits for the end of the process. Returns its status and all of its output.
    Outcome finish();

private:
    pid_t _process = -1;
    int _out = -1;
    int _error = -1;
    std::string _text;
};

// Most recordings have these.
constexpr int PCM = SF_FORMAT_WAV | SF_FORMAT_PCM_16;
constexpr int RATE = 8000;
constexpr int FRAME = RATE / 25; // samples of a frame of PAL

/// Contents of a sound file, as integers of 32 bits.
struct Sound
{
    int format = 0; // of libsndfile
    int channels = 0;
    int rate = 0;
    std::vector<int> samples;
};

/// Fixture with a temporary folder for each test.
class PlayoutTest : public testing::Test
{
protected:
    PlayoutTest();
    ~PlayoutTest() override;

    std::string path(std::string const &name) const { return _folder + "/" + name; }
    /// Returns the names of the files in the folder.
    std::set<std::string> files() const;

    /// Makes a sound file of noise.
    Sound make(std::string const &name, int format, int channels, int rate,
               sf_count_t frames) const;
    Sound read(std::string const &name) const;
    void write(std::string const &name, Sound const &sound) const;
    void writeText(std::string const &name, std::string const &text) const;
    /// Returns a message with the folder's path replaced by "%".
    std::string withoutFolder(std::string text) const;

    /// Runs the program with files of the folder as INPUT and OUTPUT.
    Outcome play(std::string const &input, std::string const &output,
                 std::vector<std::string> options = {},
                 Playout::Surroundings surroundings = Playout::Surroundings()) const;

private:
    std::string _folder;
};

} // namespace ZvTest
