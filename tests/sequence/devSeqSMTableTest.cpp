#include "resmgt/deviceManager/sequence/devSeqTreeNode.h"

#include <gtest/gtest.h>

#include <array>
#include <map>
#include <set>
#include <string>
#include <utility>
#include <vector>

namespace ZvTest {

using namespace Zv;

namespace {

struct Target
{
    std::string transition;
    std::string next;
};
using Rows = std::map<std::pair<std::string, std::string>, std::vector<Target>>;

constexpr std::array states{"init", "start",   "wsr", "ready", "wml",   "sync",
                            "lock", "recover", "wss", "stop",  "abort", "final"};
constexpr std::array events{"start",   "ready", "sready",  "proceed",  "lock",  "mlock",
                            "recover", "stop",  "stopped", "sstopped", "abort", "aborted"};
constexpr std::array transitions{"start", "psready", "wsr",     "wsrret",  "ready",  "wml",
                                 "sync",  "lock",    "recover", "wss",     "wssret", "stop",
                                 "pstop", "stopped", "abort",   "aborted", "ignore"};

/// Returns the expected machine, written a second time.
Rows machine()
{
    Rows rows{
        {{"init", "start"}, {{"start", "start"}}},
        {{"start", "ready"}, {{"ready", "ready"}, {"wsr", "wsr"}}},
        {{"start", "sready"}, {{"psready", "start"}}},
        {{"wsr", "sready"}, {{"wsrret", "wsr"}, {"ready", "ready"}}},
        {{"ready", "proceed"}, {{"sync", "sync"}, {"wml", "wml"}}},
        {{"wml", "mlock"}, {{"sync", "sync"}}},
        {{"sync", "lock"}, {{"lock", "lock"}}},
        {{"lock", "stop"}, {{"stop", "stop"}, {"wss", "wss"}}},
        {{"lock", "recover"}, {{"recover", "recover"}}},
        {{"lock", "sready"}, {{"lock", "lock"}}},
        {{"lock", "mlock"}, {{"ignore", "lock"}}},
        {{"recover", "ready"}, {{"ready", "ready"}, {"wsr", "wsr"}}},
        {{"recover", "sready"}, {{"psready", "recover"}}},
        {{"wss", "sstopped"}, {{"wssret", "wss"}, {"stop", "stop"}}},
        {{"stop", "stopped"}, {{"stopped", "final"}}},
        {{"abort", "aborted"}, {{"aborted", "final"}}},
    };
    for (auto const &state : {"start", "wsr", "ready", "wml", "sync", "recover"})
        rows[{state, "stop"}] = {{"pstop", state}};
    for (auto const &state :
         {"start", "wsr", "ready", "wml", "sync", "lock", "recover", "wss", "stop"})
        rows[{state, "abort"}] = {{"abort", "abort"}};
    for (auto const &event : {"ready", "sready", "proceed", "lock", "mlock", "recover", "stop",
                              "stopped", "sstopped", "abort"})
        rows[{"abort", event}] = {{"ignore", "abort"}};
    return rows;
}

class DevSeqSMTableTest : public testing::Test
{
protected:
    ~DevSeqSMTableTest() noexcept override {}

    std::string state(std::int32_t i) const { return table->getStateName(i).getChars(); }
    std::string event(std::int32_t i) const { return table->getEventName(i).getChars(); }
    std::string transition(std::int32_t i) const { return table->getTransitionName(i).getChars(); }
    std::string fired(std::string const &s, std::string const &e) const
    {
        std::int32_t const t =
            table->getTransition(table->getState(LiString(s.c_str())), table->getEvent(e.c_str()));
        return t < 0 ? "" : transition(t);
    }
    std::string next(std::string const &s, std::string const &t) const
    {
        std::int32_t const n = table->getState(table->getState(LiString(s.c_str())),
                                               table->getTransition(LiString(t.c_str())));
        return n < 0 ? "" : state(n);
    }

    RCShdPtr<DevSMTable> table = DevSeqSMTable::getInstance().getTable();
};

TEST_F(DevSeqSMTableTest, IsOneForTheProcess)
{
    EXPECT_EQ(&DevSeqSMTable::getInstance(), &DevSeqSMTable::getInstance());
    EXPECT_EQ(DevSeqSMTable::getInstance().getTable(), table);
}

TEST_F(DevSeqSMTableTest, EventsHaveTheNumbersOfTheEnumeration)
{
    EXPECT_EQ(DevSeqEv::START, 0);
    EXPECT_EQ(DevSeqEv::READY, 1);
    EXPECT_EQ(DevSeqEv::SREADY, 2);
    EXPECT_EQ(DevSeqEv::PROCEED, 3);
    EXPECT_EQ(DevSeqEv::LOCK, 4);
    EXPECT_EQ(DevSeqEv::MLOCK, 5);
    EXPECT_EQ(DevSeqEv::RECOVER, 6);
    EXPECT_EQ(DevSeqEv::STOP, 7);
    EXPECT_EQ(DevSeqEv::STOPPED, 8);
    EXPECT_EQ(DevSeqEv::SSTOPPED, 9);
    EXPECT_EQ(DevSeqEv::ABORT, 10);
    EXPECT_EQ(DevSeqEv::ABORTED, 11);
    EXPECT_EQ(table->getEvent(DevSeqEv::getNames().sstopped), DevSeqEv::SSTOPPED);
    for (std::size_t i = 0; i < events.size(); ++i)
        EXPECT_EQ(event(static_cast<std::int32_t>(i)), events[i]);
}

TEST_F(DevSeqSMTableTest, HasItsSize)
{
    EXPECT_EQ(table->getNbStates(), 73);
    EXPECT_EQ(table->getNbEvents(), 22);
    EXPECT_EQ(table->getNbTransitions(), 26);
}

TEST_F(DevSeqSMTableTest, NumbersItsStates)
{
    for (std::size_t i = 0; i < states.size(); ++i)
        EXPECT_EQ(state(static_cast<std::int32_t>(i)), states[i]);
    EXPECT_TRUE(table->isPrimaryState(11));
    EXPECT_FALSE(table->isPrimaryState(12));
    std::vector<std::string> const choices{"_cs(start:ready)",   "_cs(wsr:sready)",
                                           "_cs(ready:proceed)", "_cs(lock:stop)",
                                           "_cs(recover:ready)", "_cs(wss:sstopped)"};
    for (std::size_t i = 0; i < choices.size(); ++i)
        EXPECT_EQ(state(static_cast<std::int32_t>(12 + i)), choices[i]);
    for (std::int32_t i = 18; i <= 70; ++i)
        EXPECT_EQ(state(i).rfind("_exchk(", 0), 0u) << state(i);
    EXPECT_EQ(state(71), "_exc");
    EXPECT_EQ(state(72), "_ill");
}

TEST_F(DevSeqSMTableTest, NumbersItsEvents)
{
    std::vector<std::string> const added{"_ce(ready)", "_ce(wsr)",  "_ce(wsrret)", "_ce(sync)",
                                         "_ce(wml)",   "_ce(stop)", "_ce(wss)",    "_ce(wssret)",
                                         "_noexc",     "_exc"};
    EXPECT_TRUE(table->isPrimaryEvent(11));
    EXPECT_FALSE(table->isPrimaryEvent(12));
    for (std::size_t i = 0; i < added.size(); ++i)
        EXPECT_EQ(event(static_cast<std::int32_t>(12 + i)), added[i]);
}

TEST_F(DevSeqSMTableTest, NumbersItsTransitions)
{
    for (std::size_t i = 0; i < transitions.size(); ++i)
        EXPECT_EQ(transition(static_cast<std::int32_t>(i)), transitions[i]);
    EXPECT_TRUE(table->isPrimaryTransition(16));
    EXPECT_FALSE(table->isPrimaryTransition(17));
    std::vector<std::string> const added{"_ct(start:ready)",
                                         "_ct(wsr:sready)",
                                         "_ct(ready:proceed)",
                                         "_ct(lock:stop)",
                                         "_ct(recover:ready)",
                                         "_ct(wss:sstopped)",
                                         "_noexc",
                                         "_exc",
                                         "_ill"};
    for (std::size_t i = 0; i < added.size(); ++i)
        EXPECT_EQ(transition(static_cast<std::int32_t>(17 + i)), added[i]);
}

TEST_F(DevSeqSMTableTest, DescribesItsSixChoices)
{
    auto const descs = table->getConditionalTransitions();
    ASSERT_EQ(descs.size(), 6u);
    std::vector<std::pair<std::string, std::vector<std::string>>> const expected{
        {"_ct(start:ready)", {"ready", "wsr"}},   {"_ct(wsr:sready)", {"wsrret", "ready"}},
        {"_ct(ready:proceed)", {"sync", "wml"}},  {"_ct(lock:stop)", {"stop", "wss"}},
        {"_ct(recover:ready)", {"ready", "wsr"}}, {"_ct(wss:sstopped)", {"wssret", "stop"}}};
    for (std::size_t i = 0; i < descs.size(); ++i) {
        EXPECT_EQ(descs[i].name, expected[i].first.c_str());
        ASSERT_EQ(descs[i].transitions.size(), 2u);
        ASSERT_EQ(descs[i].events.size(), 2u);
        for (std::size_t j = 0; j < 2; ++j) {
            std::string const &name = expected[i].second[j];
            EXPECT_EQ(descs[i].transitions[j], name.c_str());
            EXPECT_EQ(descs[i].events[j], ("_ce(" + name + ")").c_str());
        }
    }
}

TEST_F(DevSeqSMTableTest, EveryStateAndEventDoesWhatTheMachineSays)
{
    Rows const rows = machine();
    for (std::string const s : states)
        for (std::string const e : events) {
            SCOPED_TRACE(s + ", " + e);
            auto const row = rows.find({s, e});
            if (row == rows.end()) {
                EXPECT_EQ(fired(s, e), "_ill");
                EXPECT_EQ(next(s, "_ill"), "_ill");
            } else if (row->second.size() == 1) {
                Target const &target = row->second[0];
                EXPECT_EQ(fired(s, e), target.transition);
                // All events that are ignored in abort share the check of the last one.
                std::string const last =
                    target.transition == "ignore" && s == "abort" ? "abort" : e;
                std::string const check =
                    "_exchk(" + s + ":" + last + ":" + target.transition + ")";
                EXPECT_EQ(next(s, target.transition), check);
                EXPECT_EQ(fired(check, "_noexc"), "_noexc");
                EXPECT_EQ(next(check, "_noexc"), target.next);
                EXPECT_EQ(fired(check, "_exc"), "_exc");
                EXPECT_EQ(next(check, "_exc"), "_exc");
            } else {
                std::string const choice = "_ct(" + s + ":" + e + ")";
                std::string const choosing = "_cs(" + s + ":" + e + ")";
                std::string const check = "_exchk(" + s + ":" + e + ":" + choice + ")";
                EXPECT_EQ(fired(s, e), choice);
                EXPECT_EQ(next(s, choice), check);
                EXPECT_EQ(next(check, "_noexc"), choosing);
                EXPECT_EQ(next(check, "_exc"), "_exc");
                for (Target const &target : row->second) {
                    std::string const selecting = "_ce(" + target.transition + ")";
                    EXPECT_EQ(fired(choosing, selecting), target.transition);
                    std::string const chosen =
                        "_exchk(" + choosing + ":" + selecting + ":" + target.transition + ")";
                    EXPECT_EQ(next(choosing, target.transition), chosen);
                    EXPECT_EQ(next(chosen, "_noexc"), target.next);
                    EXPECT_EQ(next(chosen, "_exc"), "_exc");
                }
            }
        }
}

TEST_F(DevSeqSMTableTest, TheTableHasNoOtherRows)
{
    std::size_t pairs = 0;
    for (std::int32_t s = 0; s < table->getNbStates(); ++s)
        for (std::int32_t e = 0; e < table->getNbEvents(); ++e)
            pairs += table->getTransition(s, e) >= 0;
    // 144 primary pairs, two selecting events for each choice, two events for each check.
    EXPECT_EQ(pairs, 144u + 12u + 106u);
    for (char const * const end : {"_exc", "_ill"})
        for (std::int32_t e = 0; e < table->getNbEvents(); ++e)
            EXPECT_EQ(table->getTransition(table->getState(LiString(end)), e), -1);
}

TEST_F(DevSeqSMTableTest, NineChecksAreOutOfReach)
{
    std::set<std::int32_t> reached;
    for (std::int32_t s = 0; s < table->getNbStates(); ++s)
        for (std::int32_t t = 0; t < table->getNbTransitions(); ++t)
            reached.insert(table->getState(s, t));
    std::set<std::string> unreached;
    for (std::int32_t s = 18; s <= 70; ++s)
        if (!reached.contains(s))
            unreached.insert(state(s));
    std::set<std::string> expected;
    for (auto const &e :
         {"ready", "sready", "proceed", "lock", "mlock", "recover", "stop", "stopped", "sstopped"})
        expected.insert("_exchk(abort:" + std::string(e) + ":ignore)");
    EXPECT_EQ(unreached, expected);
}

} // namespace
} // namespace ZvTest
