// Reads the file of a `TraceSession`, and checks it against the format.
#pragma once

#include "testing/json.h"
#include "zvbase/traceSession.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <random>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ZvTest {

inline std::string readFile(std::string const &path)
{
    std::ifstream stream(path, std::ios::binary);
    EXPECT_TRUE(stream.is_open()) << path;
    return {std::istreambuf_iterator<char>(stream), {}};
}

/// Reads the file of a process that was killed, which may lack the end of the array.
inline std::string readCutFile(std::string const &path)
{
    std::string const text = readFile(path);
    std::size_t const last = text.find_last_not_of(" \n");
    return last != text.npos && text[last] == ']' ? text : text + ']';
}

/// An event of the file. What it does not have is empty.
struct TracedEvent
{
    char phase = 0;
    long thread = 0;
    std::string category;
    std::string name;
    double begin = 0;  // microseconds
    double length = 0; // of slices
    long id = 0;       // of flows
    Json::Object args;

    double end() const { return begin + length; }
    bool hasValue(std::string const &key) const { return args.contains(key); }
    long value(std::string const &key = "value") const
    {
        return static_cast<long>(args.at(key).getNumber());
    }
    std::string detail() const { return args.at("detail").getString(); }
};

/// The events of a file, which has been checked. Roundings of the moments are allowed for.
class TracedEvents
{
public:
    static constexpr double ROUNDING = 0.0021; // microseconds; each number is rounded to 0.001

    explicit TracedEvents(std::string const &path) : TracedEvents(Json::parse(readFile(path))) {}
    explicit TracedEvents(Json const &array)
    {
        for (Json const &entry : array.getArray())
            read(entry);
        EXPECT_FALSE(_processName.empty());
    }

    std::vector<TracedEvent> const &all() const { return _events; }
    std::string const &processName() const { return _processName; }
    std::map<long, std::string> const &threads() const { return _threads; }
    /// Returns the name of a thread or track. It is empty if the file has none.
    std::string nameOf(long thread) const
    {
        auto const entry = _threads.find(thread);
        return entry == _threads.end() ? "" : entry->second;
    }
    /// Returns the events of a category and, if it is given, a name, in the order of their begin.
    std::vector<TracedEvent> find(std::string const &category, std::string const &name = "") const
    {
        std::vector<TracedEvent> found;
        std::copy_if(_events.begin(), _events.end(), std::back_inserter(found),
                     [&](TracedEvent const &event) {
                         return event.category == category && (name.empty() || event.name == name);
                     });
        std::stable_sort(found.begin(), found.end(),
                         [](auto const &a, auto const &b) { return a.begin < b.begin; });
        return found;
    }

    /// Expects that slices of each thread or track enclose each other or do not overlap.
    void expectNested() const
    {
        std::map<long, std::vector<TracedEvent const *>> threads;
        for (TracedEvent const &event : _events)
            if (event.phase == 'X')
                threads[event.thread].push_back(&event);
        for (auto &[thread, slices] : threads) {
            std::stable_sort(slices.begin(), slices.end(), [](auto const *a, auto const *b) {
                return a->begin != b->begin ? a->begin < b->begin : a->length > b->length;
            });
            std::vector<TracedEvent const *> open;
            for (TracedEvent const *slice : slices) {
                while (!open.empty() && open.back()->end() <= slice->begin + ROUNDING)
                    open.pop_back();
                if (!open.empty()) {
                    EXPECT_LE(slice->end(), open.back()->end() + ROUNDING)
                        << slice->name << " in " << open.back()->name << " of " << nameOf(thread);
                }
                open.push_back(slice);
            }
        }
    }
    /// Expects that each flow has one start and one end, in this order, and that each of its points
    /// lies in a slice. Returns the number of flows.
    std::size_t expectWholeFlows() const
    {
        struct Flow
        {
            int starts = 0, ends = 0;
            double start = 0, end = 0;
        };
        std::map<long, Flow> flows;
        for (TracedEvent const &event : _events) {
            if (event.phase != 's' && event.phase != 't' && event.phase != 'f')
                continue;
            Flow &flow = flows[event.id];
            if (event.phase == 's')
                ++flow.starts, flow.start = event.begin;
            if (event.phase == 'f')
                ++flow.ends, flow.end = event.begin;
            EXPECT_TRUE(std::any_of(_events.begin(), _events.end(),
                                    [&](TracedEvent const &slice) {
                                        return slice.phase == 'X' && slice.thread == event.thread &&
                                               slice.begin <= event.begin &&
                                               event.begin <= slice.end() + ROUNDING;
                                    }))
                << event.phase << event.id;
        }
        for (auto const &[id, flow] : flows) {
            EXPECT_EQ(flow.starts, 1) << id;
            EXPECT_EQ(flow.ends, 1) << id;
            EXPECT_LE(flow.start, flow.end) << id;
        }
        return flows.size();
    }

private:
    void read(Json const &json)
    {
        std::string const &phase = json["ph"].getString();
        ASSERT_EQ(phase.size(), 1u);
        ASSERT_NE(std::string("XiCstfM").find(phase), std::string::npos) << phase;
        long const process = static_cast<long>(json["pid"].getNumber());
        EXPECT_GT(process, 0);
        long const former = std::exchange(_process, process);
        EXPECT_TRUE(former == 0 || former == process) << former << " and " << process;
        TracedEvent event;
        event.phase = phase[0];
        event.thread = static_cast<long>(json["tid"].getNumber());
        event.name = json["name"].getString();
        if (json.has("args"))
            event.args = json["args"].getObject();
        if (event.phase == 'M') {
            std::string const &name = event.args.at("name").getString();
            if (event.name == "process_name")
                _processName = name;
            else if (event.name == "thread_name")
                _threads[event.thread] = name;
            else
                ADD_FAILURE() << event.name;
            return;
        }
        event.category = json["cat"].getString();
        event.begin = json["ts"].getNumber();
        EXPECT_GE(event.begin, 0);
        if (event.phase == 'X') {
            event.length = json["dur"].getNumber();
            EXPECT_GE(event.length, 0);
        }
        if (event.phase == 's' || event.phase == 't' || event.phase == 'f')
            event.id = static_cast<long>(json["id"].getNumber());
        EXPECT_EQ(json.has("bp"), event.phase == 'f');
        EXPECT_EQ(json.has("s"), event.phase == 'i');
        EXPECT_TRUE(event.phase != 'C' || event.args.at("value").isNumber());
        _events.push_back(event);
    }

    long _process = 0;
    std::string _processName;
    std::map<long, std::string> _threads;
    std::vector<TracedEvent> _events;
};

/// A session with a file of its own.
class TraceRecording
{
public:
    explicit TraceRecording(double lockWaitLimit = 1000)
        : _path(makePath()), _session(_path, {.lockWaitLimit = lockWaitLimit})
    {}
    ~TraceRecording() { std::filesystem::remove(_path); }
    TraceRecording(TraceRecording const &) = delete;
    TraceRecording &operator=(TraceRecording const &) = delete;

    /// Ends the session.
    TracedEvents stop()
    {
        _session.stop();
        return TracedEvents(_path);
    }

private:
    static std::string makePath()
    {
        auto const folder = std::filesystem::temp_directory_path();
        return (folder / ("zv_trace_" + std::to_string(std::random_device()()) + ".json")).string();
    }

    std::string _path;
    Zv::TraceSession _session;
};

} // namespace ZvTest
