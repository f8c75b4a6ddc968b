// Tests of the lines of the live table, for windows of several sizes.

#include "topLayout.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace ZvTest {
namespace {

using Style = TopLine::Style;

TopFigures makeFigures()
{
    TopFigures figures;
    figures.title = "show.xml";
    figures.phase = "playing";
    figures.position = "00:00:03:12";
    figures.share = 0.25;
    figures.peak = 0.5;
    figures.memory = {"heap, LRU", 1 << 20, 4 << 20, 12, 1, 7, 9, 10};
    TopFigures::Device recorder;
    recorder.name = "recorder";
    recorder.state = "lock";
    recorder.waiting = 1;
    recorder.blocks = 3;
    recorder.mostBlocks = 10;
    recorder.done = 86;
    recorder.beats = 87;
    recorder.late = 2;
    recorder.lateness = 0.0415;
    recorder.busy = 0.25;
    TopFigures::Device player;
    player.name = "player";
    player.depth = 1;
    player.state = "lock";
    player.done = 90;
    figures.devices = {recorder, player};
    figures.threads = {{"main", 3, "nice 0", "nice 0", 0.125, 0.01},
                       {"recorder", 4, "nice -2", "nice 0", 1.5, 0.2},
                       {"gone", 0, "nice 14", "", -1, -1}};
    return figures;
}

std::vector<std::string> lay(TopFigures const &figures, int width, int height, TopView view = {},
                             std::deque<std::string> const &log = {})
{
    std::vector<std::string> texts;
    for (TopLine const &line : layOutTop(figures, log, width, height, view).lines) {
        EXPECT_LE(measureText(line.text), width) << line.text;
        texts.push_back(line.text);
        texts.back().erase(texts.back().find_last_not_of(' ') + 1);
    }
    EXPECT_LE(texts.size(), static_cast<std::size_t>(height));
    return texts;
}

using Lines = std::vector<std::string>;

TEST(TopLayout, ShowsAllInAWideWindow)
{
    std::deque<std::string> const log = {"earlier", "later"};
    EXPECT_EQ(lay(makeFigures(), 100, 24, {}, log),
              (Lines{
                  "playing 00:00:03:12  25 %  show.xml",
                  "late beats 2  buffers 25 %  1 MiB of 4 MiB  peak -6.0 dB  loads 12  reloads 1  "
                  "unloads 7",
                  "prefetch hits 9 of 10  heap, LRU",
                  "device    state  input  queue  blocks  beats  late    latest   busy",
                  "recorder  lock    3/10      1      86     87     2  41.50 ms  0.2 s",
                  "  player  lock       -      0      90      -     -         -      -",
                  "",
                  "thread    level  asked    got     cpu s  cpu %",
                  "main          3  nice 0   nice 0   0.12    1.0",
                  "recorder      4  nice -2  nice 0   1.50   20.0",
                  "gone          0  nice 14  -           -      -",
                  "",
                  "latest lines",
                  "later",
                  "earlier",
                  "",
                  "",
                  "",
                  "",
                  "",
                  "",
                  "",
                  "",
                  "q end  s busiest threads first",
              }));
}

TEST(TopLayout, LeavesOutTheLeastImportantColumnsInANarrowWindow)
{
    EXPECT_EQ(lay(makeFigures(), 40, 12), (Lines{
                                              "playing 00:00:03:12  25 %  show.xml",
                                              "late beats 2  buffers 25 %",
                                              "1 MiB of 4 MiB  peak -6.0 dB  loads 12",
                                              "device    state  input  queue  late",
                                              "recorder  lock    3/10      1     2",
                                              "  player  lock       -      0     -",
                                              "",
                                              "thread    level  got     cpu s  cpu %",
                                              "main          3  nice 0   0.12    1.0",
                                              "recorder      4  nice 0   1.50   20.0",
                                              "gone          0  -           -      -",
                                              "q end  s busiest threads first",
                                          }));
}

TEST(TopLayout, ShowsTheDevicesInASmallWindow)
{
    EXPECT_EQ(lay(makeFigures(), 20, 5), (Lines{
                                             "playing 00:00:03:12~",
                                             "late beats 2",
                                             "device    state",
                                             "recorder  lock",
                                             "  player  lock",
                                         }));
}

TEST(TopLayout, FitsIntoAWindowOfAnySize)
{
    std::deque<std::string> const log(5, "a line of the log");
    for (int width = 0; width <= 120; width += width < 30 ? 1 : 6)
        for (int const height : {0, 1, 2, 3, 5, 7, 8, 16, 30})
            lay(makeFigures(), width, height, {3, true}, log);
    EXPECT_EQ(lay(makeFigures(), 0, 5), Lines());
    EXPECT_EQ(lay(makeFigures(), 5, 0), Lines());
    EXPECT_EQ(lay(makeFigures(), 1, 1), Lines{"~"});
}

TEST(TopLayout, ScrollsToTheEndAndNoFurther)
{
    TopFigures const figures = makeFigures();
    EXPECT_EQ(layOutTop(figures, {}, 20, 5, {-1}).scroll, 0);
    TopPicture const picture = layOutTop(figures, {}, 20, 5, {100});
    EXPECT_EQ(picture.scroll, 5); // eight lines, of which three have room
    EXPECT_EQ(lay(figures, 20, 5, {100}), (Lines{
                                              "playing 00:00:03:12~",
                                              "late beats 2",
                                              "main          3",
                                              "recorder      4",
                                              "gone          0",
                                          }));
    EXPECT_EQ(layOutTop(figures, {}, 100, 40, {100}).scroll, 0); // all has room
}

TEST(TopLayout, SaysHowMuchIsBelow)
{
    EXPECT_EQ(lay(makeFigures(), 60, 8).back(),
              "q end  s busiest threads first  arrows scroll, 4 more");
    EXPECT_EQ(lay(makeFigures(), 60, 8, {3}).back(),
              "q end  s busiest threads first  arrows scroll, 1 more");
}

TEST(TopLayout, PutsTheBusiestThreadsFirst)
{
    Lines const lines = lay(makeFigures(), 80, 24, {0, true});
    auto const find = [&](std::string const &name) {
        auto const table = std::find_if(lines.begin(), lines.end(), [](std::string const &line) {
            return line.starts_with("thread ");
        });
        return std::find_if(table, lines.end(),
                            [&](std::string const &line) { return line.starts_with(name + " "); }) -
               lines.begin();
    };
    EXPECT_LT(find("recorder"), find("main"));
    EXPECT_LT(find("main"), find("gone"));
}

TEST(TopLayout, MarksWhatIsLateOrLost)
{
    auto const getAlarms = [](TopFigures const &figures) {
        Lines alarms;
        for (TopLine const &line : layOutTop(figures, {}, 100, 24, {}).lines)
            if (line.style == Style::ALARM)
                alarms.push_back(line.text.substr(0, line.text.find(' ')));
        return alarms;
    };
    TopFigures figures = makeFigures();
    EXPECT_EQ(getAlarms(figures), (Lines{"recorder", "recorder"})); // late, and not at its level
    figures.devices[0].late = 0;
    figures.threads[1].got = figures.threads[1].asked;
    EXPECT_EQ(getAlarms(figures), Lines());
    figures.devices[0].state = "recover";
    figures.devices[1].busy = 4;
    EXPECT_EQ(getAlarms(figures), (Lines{"recorder", ""}));
    figures = makeFigures();
    figures.devices.clear();
    figures.threads.clear();
    figures.card = {"JACK", 0.1, 1.2, 1, 0, 0};
    EXPECT_EQ(getAlarms(figures).size(), 1u);
    figures.card->underruns = 0;
    EXPECT_EQ(getAlarms(figures), Lines());
    figures.card->overruns = 1;
    EXPECT_EQ(getAlarms(figures).size(), 1u);
}

TEST(TopLayout, ShowsTheSoundCard)
{
    TopFigures figures;
    figures.phase = "playing";
    figures.title = "show.xml";
    figures.card = {"JACK", 0.18, 1.2, 3, 2, 1};
    EXPECT_EQ(lay(figures, 100, 5),
              (Lines{"playing  show.xml",
                     "underruns 3  overruns 2  late periods 1  ready 0.18 s of 1.20 s  JACK"}));
    figures.card->ready = -1; // it only captures
    EXPECT_EQ(lay(figures, 100, 5)[1], "underruns 3  overruns 2  late periods 1  JACK");
}

TEST(TopLayout, TextFromOutsideIsSafeAndCutByColumns)
{
    TopFigures figures;
    figures.phase = "playing";
    figures.title = "a\033[31m\n\xff";
    TopFigures::Device device;
    for (int i = 0; i < 8; ++i)
        device.name += "\xe4\xb8\xad"; // two columns wide
    device.state = "lock";
    figures.devices = {device};
    EXPECT_EQ(lay(figures, 60, 6)[0], "playing  a\\x1b[31m\\x0a\\xff");
    EXPECT_EQ(measureText(device.name), 16);
    // The name has twelve columns, of which half a character would fill the last but one.
    EXPECT_EQ(lay(figures, 19, 6)[2], device.name.substr(0, 15) + "~   lock");
    figures.devices[0].name.assign(100000, 'x');
    lay(figures, 60, 6);
}

} // namespace
} // namespace ZvTest
