// Draws docs/sequence-machine.svg: the states of a device in a sequence and what leads from one to the other.
//
// The states and the events are read from the table of the machine. This file has only places.

#include "chart.h"

#include "resmgt/deviceManager/sequence/seqMachine.private.h"

#include <string>
#include <vector>

namespace {

using namespace Zv;
using namespace ZvCharts;

struct StateBox
{
    char const *state;
    Point centre;
    std::vector<std::string> lines = {};
    int width = 130;
};

// clang-format off
std::vector<StateBox> const stateBoxes = {
    {"init",    {0, 1}},
    {"start",   {1, 1}},
    {"wsr",     {2, 0}, {"waits for the", "children's \"sready\""}},
    {"ready",   {2, 2}},
    {"wml",     {3, 1}, {"waits for the", "parent's \"mlock\""}},
    {"sync",    {3, 2}},
    {"lock",    {4, 2}},
    {"recover", {3, 3.3}},
    {"wss",     {5, 1}, {"waits for the", "children's \"sstopped\""}, 150},
    {"stop",    {5, 2}},
    {"final",   {6, 2}},
    {"abort",   {5, 4.4}},
};

std::vector<Route> const routes = {
    {"init",    "start",   {{0, 1}, {1, 1}}},
    {"start",   "wsr",     {{1, 1}, {1, 0}, {2, 0}}},
    {"start",   "ready",   {{1, 1}, {1, 2}, {2, 2}}},
    {"wsr",     "ready",   {{2, 0}, {2, 2}}, Side::LEFT, 0.6},
    {"ready",   "sync",    {{2, 2}, {3, 2}}},
    {"ready",   "wml",     {{2.2, 2}, {2.2, 1}, {3, 1}}, Side::RIGHT, 0.7},
    {"wml",     "sync",    {{3, 1}, {3, 2}}},
    {"sync",    "lock",    {{3, 2}, {4, 2}}},
    {"lock",    "stop",    {{4, 2}, {5, 2}}},
    {"lock",    "wss",     {{4, 2}, {4, 1}, {5, 1}}, Side::LEFT},
    {"lock",    "recover", {{4, 2}, {4, 3.3}, {3, 3.3}}},
    {"recover", "ready",   {{3, 3.3}, {2, 3.3}, {2, 2}}, Side::RIGHT, 0.5},
    {"recover", "wsr",     {{3, 3.45}, {0.6, 3.45}, {0.6, -0.15}, {2, -0.15}}, Side::RIGHT, 0.5},
    {"wss",     "stop",    {{5, 1}, {5, 2}}},
    {"stop",    "final",   {{5, 2}, {6, 2}}},
    {"abort",   "final",   {{5, 4.4}, {6, 4.4}, {6, 2}}},
};
// clang-format on

/// Returns the changes of state, without those to `abort`, which the footer names.
std::vector<Change> changesOfTable()
{
    std::vector<Change> changes;
    for (SeqMachine::Row const &row : SeqMachine::rows) {
        if (row.state == std::string(row.next))
            continue;
        std::string text = row.event;
        for (SeqMachine::Row const &other : SeqMachine::rows)
            if (&other != &row && other.state == std::string(row.state) && other.event == text)
                text = row.event + std::string(", ") + row.transition;
        changes.push_back({row.state, row.next, text});
    }
    return changes;
}

Chart makeChart()
{
    std::vector<Box> boxes;
    for (char const *state : SeqMachine::states)
        for (StateBox const &box : stateBoxes)
            if (box.state == std::string(state))
                boxes.push_back({state, box.centre, box.width, box.lines.empty() ? 34 : 62,
                                 box.lines.empty() ? "stable" : "transient", box.lines});
    std::string aborted = "\"abort\" leads to the state \"abort\" from: ";
    for (char const *state : SeqMachine::abortable)
        aborted += (state == SeqMachine::abortable[0] ? "" : ", ") + std::string(state);
    static std::string const footer =
        aborted + ". There \"aborted\" leads to \"final\", and every other event but \"start\" is "
                  "ignored. Events that leave the state as it is are not shown.";
    Sheet const sheet = {
        "The states of a device in a sequence",
        {90, 290, 500, 730, 940, 1160, 1350},
        90,
        130,
        1440,
        620,
        "Blue: the event, and the transition if the event has several. Sand: the device waits for "
        "other devices of the tree.",
        footer.c_str()};
    return Chart(sheet, boxes, routes, changesOfTable());
}

} // namespace

int main(int count, char **arguments)
{
    return drawChart(count, arguments, makeChart);
}
