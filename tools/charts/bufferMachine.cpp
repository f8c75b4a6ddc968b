// Draws docs/buffer-machine.svg: the states of a memory buffer and what leads from one to the other.
//
// The states, the events and the work of a state are read from the table of the machine. This file has only places.

#include "chart.h"

#include "resmgt/memoryBuffers/mbStates.private.h"

#include <cstddef>
#include <string>
#include <vector>

namespace {

using namespace Zv;
using namespace ZvCharts;
using enum MbStateId;

struct StateBox
{
    MbStateId state;
    Point centre;
    int width = 176;
    int height = 46;
    bool isCopy = false;
};

// clang-format off
constexpr StateBox stateBoxes[] = {
    {RD_LOCKED,              {2.895, -1.25}, 1540, 34},
    {WR_LOCKED,              {2.895, 11.25}, 1540, 34},
    {FREED,                  {0, 2.5},      116, 246},
    {UNLOADED,               {0, 7.5},      116, 246},
    {LOADED,                 {3, 5},         90, 660},
    {SYNCHED,                {6, 5},         90, 760},
    {BEING_RD_LOADED,        {0, -0.2},        176, 62},
    {RD_LOCKED_FREED,        {1, 0},        150, 30},
    {BEING_FREED,            {1, 1}},
    {BEING_ASYNC_LOADED,     {1, 2}},
    {WAIT_ASYNC_LOADED,      {2, 2},        150, 30},
    {ASYNC_LOAD_FAILED,      {1, 3}},
    {ASYNC_LOAD_SUCCEEDED,   {2, 3}},
    {BEING_WR_LOADED,        {1, 4},        176, 62},
    {DESTROYED,              {0.13, 5},     92, 30, true},
    {BEING_RD_RELOADED,      {1, 6},        176, 62},
    {BEING_ASYNC_RELOADED,   {1, 7}},
    {WAIT_ASYNC_RELOADED,    {2, 7},        150, 30},
    {ASYNC_RELOAD_FAILED,    {1, 8}},
    {ASYNC_RELOAD_SUCCEEDED, {2, 8}},
    {BEING_UNLOADED,         {1, 9}},
    {BEING_WR_RELOADED,      {0, 10.2},       176, 62},
    {WR_LOCKED_FREED,        {1, 10},       150, 30},
    {BEING_SYNCHED,          {4, 1.7}},
    {BEING_DESTROYED,        {4, 3.4}},
    {DESTROYED,              {5, 3.4},       92, 30},
    {BEING_UNLOCKED,         {4, 5}},
    {BEING_ASYNC_SYNCHED,    {4, 7}},
    {WAIT_ASYNC_SYNCHED,     {5, 7},        150, 30},
    {ASYNC_SYNC_FAILED,      {4, 8}},
    {ASYNC_SYNC_SUCCEEDED,   {5, 8}},
};
// clang-format on

struct StateRoute
{
    MbStateId from;
    MbStateId to;
    std::vector<Point> points;
    Side side = Side::RIGHT;
    double at = 0.5;
    bool isToCopy = false;
};

// clang-format off
std::vector<StateRoute> const stateRoutes = {
    {FREED,                  BEING_RD_LOADED,        {{0, 1.5}, {0, -0.2}}},
    {BEING_RD_LOADED,        RD_LOCKED,              {{0, -0.2}, {0, -1.25}}},
    {FREED,                  BEING_WR_LOADED,        {{0, 4}, {1, 4}}},
    {BEING_WR_LOADED,        WR_LOCKED,              {{1, 4}, {1.42, 4}, {1.42, 11.25}}},
    {FREED,                  BEING_ASYNC_LOADED,     {{0, 2}, {1, 2}}},
    {BEING_ASYNC_LOADED,     WAIT_ASYNC_LOADED,      {{1, 2}, {2, 2}}},
    {WAIT_ASYNC_LOADED,      ASYNC_LOAD_SUCCEEDED,   {{2, 2}, {2, 3}}},
    {WAIT_ASYNC_LOADED,      ASYNC_LOAD_FAILED,      {{2, 2}, {1, 3}}, Side::LEFT},
    {ASYNC_LOAD_SUCCEEDED,   LOADED,                 {{2, 3}, {3, 3}}},
    {ASYNC_LOAD_FAILED,      FREED,                  {{1, 3}, {0, 3}}},
    {FREED,                  DESTROYED,              {{0.13, 4}, {0.13, 5}}, Side::RIGHT, 0.5, true},
    {UNLOADED,               BEING_RD_RELOADED,      {{0, 6}, {1, 6}}},
    {BEING_RD_RELOADED,      RD_LOCKED,              {{1, 6}, {1.48, 6}, {1.48, -1.25}}},
    {UNLOADED,               BEING_WR_RELOADED,      {{0, 9}, {0, 10.2}}},
    {BEING_WR_RELOADED,      WR_LOCKED,              {{0, 10.2}, {0, 11.25}}},
    {UNLOADED,               BEING_ASYNC_RELOADED,   {{0, 7}, {1, 7}}},
    {BEING_ASYNC_RELOADED,   WAIT_ASYNC_RELOADED,    {{1, 7}, {2, 7}}},
    {WAIT_ASYNC_RELOADED,    ASYNC_RELOAD_SUCCEEDED, {{2, 7}, {2, 8}}},
    {WAIT_ASYNC_RELOADED,    ASYNC_RELOAD_FAILED,    {{2, 7}, {1, 8}}, Side::LEFT},
    {ASYNC_RELOAD_SUCCEEDED, LOADED,                 {{2, 8}, {3, 8}}},
    {ASYNC_RELOAD_FAILED,    UNLOADED,               {{1, 8}, {0, 8}}},
    {UNLOADED,               FREED,                  {{-0.12, 6}, {-0.12, 4}}, Side::LEFT},
    {UNLOADED,               DESTROYED,              {{0.13, 6}, {0.13, 5}}, Side::RIGHT, 0.5, true},
    {LOADED,                 RD_LOCKED,              {{3, 1}, {3, -1.25}}},
    {LOADED,                 WR_LOCKED,              {{3, 9}, {3, 11.25}}},
    {LOADED,                 BEING_SYNCHED,          {{3, 1.7}, {4, 1.7}}},
    {BEING_SYNCHED,          SYNCHED,                {{4, 1.7}, {6, 1.7}}},
    {LOADED,                 BEING_ASYNC_SYNCHED,    {{3, 7}, {4, 7}}},
    {BEING_ASYNC_SYNCHED,    WAIT_ASYNC_SYNCHED,     {{4, 7}, {5, 7}}},
    {WAIT_ASYNC_SYNCHED,     ASYNC_SYNC_SUCCEEDED,   {{5, 7}, {5, 8}}},
    {WAIT_ASYNC_SYNCHED,     ASYNC_SYNC_FAILED,      {{5, 7}, {4, 8}}, Side::LEFT},
    {ASYNC_SYNC_SUCCEEDED,   SYNCHED,                {{5, 8}, {6, 8}}},
    {ASYNC_SYNC_FAILED,      LOADED,                 {{4, 8}, {3, 8}}},
    {LOADED,                 BEING_UNLOADED,         {{3, 9}, {1, 9}}},
    {BEING_UNLOADED,         UNLOADED,               {{1, 9}, {0, 9}}},
    {LOADED,                 BEING_FREED,            {{3, 1}, {1, 1}}},
    {BEING_FREED,            FREED,                  {{1, 1}, {0, 1}}},
    {LOADED,                 BEING_DESTROYED,        {{3, 3.4}, {4, 3.4}}},
    {BEING_DESTROYED,        DESTROYED,              {{4, 3.4}, {5, 3.4}}},
    {SYNCHED,                RD_LOCKED,              {{6, 1}, {6, -1.25}}},
    {SYNCHED,                WR_LOCKED,              {{6, 9}, {6, 11.25}}},
    {SYNCHED,                BEING_UNLOADED,         {{6, 9.7}, {1.6, 9.7}, {1.6, 9.15}, {1, 9.15}}},
    {SYNCHED,                BEING_FREED,            {{6, 0.2}, {1.6, 0.2}, {1.6, 0.85}, {1, 0.85}}},
    {SYNCHED,                DESTROYED,              {{6, 3.4}, {5, 3.4}}},
    {RD_LOCKED,              BEING_UNLOCKED,         {{4.5, -1.25}, {4.5, 4.85}, {4, 4.85}}, Side::RIGHT, 0.06},
    {WR_LOCKED,              BEING_UNLOCKED,         {{4.5, 11.25}, {4.5, 5.15}, {4, 5.15}}, Side::RIGHT, 0.06},
    {BEING_UNLOCKED,         LOADED,                 {{4, 5}, {3, 5}}},
    {RD_LOCKED,              RD_LOCKED_FREED,        {{1, -1.25}, {1, 0}}},
    {RD_LOCKED_FREED,        BEING_FREED,            {{1, 0}, {1, 1}}},
    {WR_LOCKED,              WR_LOCKED_FREED,        {{1, 11.25}, {1, 10}}},
    {WR_LOCKED_FREED,        BEING_FREED,            {{1, 10}, {1.54, 10}, {1.54, 1.15}, {1, 1.15}}, Side::RIGHT, 1.3},
};
// clang-format on

std::string nameOf(MbStateId state)
{
    return MbTable::rowOf(state).name;
}

std::vector<Change> changesOfTable()
{
    std::vector<Change> changes;
    for (MbStateRow const &row : MbTable::states) {
        for (std::size_t column = 0; column < std::size(row.reactions); ++column) {
            MbReaction const reaction = row.reactions[column];
            if (reaction.next == NONE)
                continue;
            std::string text = MbTable::eventNames[column];
            if (reaction.kind == MbReaction::ADD_LOCK)
                text += ", +1";
            else if (reaction.kind == MbReaction::DROP_LOCK)
                text += ", last";
            else if (reaction.kind == MbReaction::DEALLOCATE)
                text += ", dealloc";
            changes.push_back({nameOf(row.state), nameOf(reaction.next), text});
        }
    }
    for (MbEnteringRow const &row : MbTable::enterings)
        if (row.next != NONE)
            changes.push_back({nameOf(row.state), nameOf(row.next), ""});
    return changes;
}

bool isTransient(MbStateId state)
{
    MbEnteringRow const * const row = MbTable::enteringOf(state);
    return row && row->next != NONE;
}

/// Returns what a transient state does, for the lines of its box.
std::vector<std::string> workOf(MbStateId state)
{
    std::vector<std::string> lines;
    MbEnteringRow const * const row = MbTable::enteringOf(state);
    if (!row || row->next == NONE)
        return lines;
    if (row->before == MbStep::ALLOCATE)
        lines.emplace_back("allocateRegion");
    std::string calls = std::string(row->calls.first.name) + "()";
    if (row->calls.second.name)
        calls += std::string(", ") + row->calls.second.name + "()";
    lines.push_back(calls);
    if (row->after == MbStep::ADD_LOCK)
        lines.emplace_back("lock count +1");
    else if (row->after == MbStep::DEALLOCATE)
        lines.emplace_back("deallocateRegion");
    return lines;
}

Chart makeChart()
{
    std::vector<Box> boxes;
    for (StateBox const &box : stateBoxes)
        boxes.push_back({nameOf(box.state), box.centre, box.width, box.height,
                         box.isCopy               ? "copy"
                         : isTransient(box.state) ? "transient"
                                                  : "stable",
                         workOf(box.state)});
    std::vector<Route> routes;
    for (StateRoute const &route : stateRoutes)
        routes.push_back({nameOf(route.from), nameOf(route.to), route.points, route.side, route.at,
                          route.isToCopy});
    Sheet const sheet = {
        "The states of a memory buffer",
        {115, 370, 620, 810, 1030, 1290, 1500},
        74,
        148,
        1580,
        1030,
        "Green: stable states. Sand: transient states, with what is done when the state is "
        "entered. The state at the arrow then follows at once.",
        "Blue: events. +1: the lock count goes up. last: the lock count has come to "
        "0. dealloc: deallocateRegion comes first. Events that leave the state "
        "as it is are not shown."};
    return Chart(sheet, boxes, routes, changesOfTable());
}

} // namespace

int main(int count, char **arguments)
{
    return drawChart(count, arguments, makeChart);
}
