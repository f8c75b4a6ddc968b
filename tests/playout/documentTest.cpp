// Tests of shows: reading and writing their documents, and playing them.

#include "playoutTest.h"

#include <filesystem>

namespace ZvTest {
namespace {

class DocumentTest : public PlayoutTest
{
protected:
    DocumentTest() : _sound(make("in.wav", PCM, 1, 8000, 3000)) {}

    void expectRefused(std::string const &reason, std::string const &text)
    {
        SCOPED_TRACE(text);
        writeText("show.xml", text);
        auto const before = files();
        Outcome const outcome = Playout({path("show.xml"), path("out.wav")}).finish();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: %show.xml:" + reason + "\n");
        EXPECT_EQ(files(), before);
    }
    /// `text` is put inside the show, from line 2 on.
    void expectRefusedInside(std::string const &reason, std::string const &text)
    {
        expectRefused(reason, "<show>\n" + text + "<clip file='in.wav'/>\n</show>\n");
    }
    std::string dump(std::vector<std::string> arguments)
    {
        arguments.insert(arguments.begin(), "--dump-show");
        Outcome const outcome = Playout(arguments).finish();
        EXPECT_EQ(outcome.status, 0);
        EXPECT_EQ(outcome.err, "");
        return outcome.out;
    }

    Sound const _sound;
};

TEST_F(DocumentTest, IsWrittenWithWhatItMayLeaveOut)
{
    writeText("show.xml", "<show><clip file='in.wav'/></show>");
    EXPECT_EQ(dump({path("show.xml")}), R"xml(<?xml version='1.0'?>

<!DOCTYPE show>

<show>

    <clock
        rate="PAL">
    </clock>

    <memory
        manager="heap"
        strategy="LRU"
        budget="4194304"
        page="262144"
        ahead="4">
    </memory>

    <device
        name="player"
        kind="player">
    </device>

    <device
        name="fader"
        kind="fader">
    </device>

    <device
        name="recorder"
        kind="recorder">
    </device>

    <clip
        file="in.wav">
    </clip>

    <sequence
        tree="( recorder ( fader ( player ) ) )">
    </sequence>

    <connection
        stream="player:out push fader:in">
    </connection>

    <connection
        stream="fader:out push recorder:in">
    </connection>
</show>
)xml");
    EXPECT_EQ(files(), (std::set<std::string>{"in.wav", "show.xml"}));
}

TEST_F(DocumentTest, IsReadAsItWasWritten)
{
    writeText("show.xml", R"xml(<?xml version="1.0"?>
<!DOCTYPE show>
<!-- All that there is. -->
<show output="a&quot;&lt;b&gt;&amp;&apos;c.wav">
    <event at="00;00;00;00" action="mute" value="on"/>
    <event at="00;00;00;02" action="gain" value="2"/>
    <clock rate="NTSC DF"/>
    <memory manager="arena" strategy="random" budget="1000000" page="4096" ahead="0"/>
    <connection stream="left:out push tape:in"/>
    <connection stream="deck:out push left:in"/>
    <sequence tree="( tape ( left ( deck ) ) )"/>
    <clip file="in.wav"/>
    <clip file="other.wav"/>
    <device name="left" kind="fader">
        <property name="levels:gain" value="0.5"/>
        <property name="levels:gain" value="0.25"/>
    </device>
    <device name="tape" kind="recorder"></device>
    <device name="deck" kind="player"/>
</show>
)xml");
    std::string const text = dump({path("show.xml")});
    writeText("again.xml", text);
    EXPECT_EQ(dump({path("again.xml")}), text);
    for (std::string const attribute :
         {"output=\"a&#34;&#60;b&#62;&#38;&#39;c.wav\"", "at=\"00;00;00;02\"", "action=\"mute\"",
          "value=\"on\"", "rate=\"NTSC DF\"", "manager=\"arena\"", "strategy=\"random\"",
          "budget=\"1000000\"", "page=\"4096\"", "ahead=\"0\"", "stream=\"left:out push tape:in\"",
          "tree=\"( tape ( left ( deck ) ) )\"", "file=\"other.wav\"", "name=\"left\"",
          "kind=\"fader\"", "name=\"levels:gain\"", "value=\"0.25\""})
        EXPECT_NE(text.find(attribute), text.npos) << attribute;
}

TEST_F(DocumentTest, IsWhatACommandLineAmountsTo)
{
    std::string const text = dump({"--sequence", "( recorder ( player ) )", "--stream",
                                   "player:out push recorder:in", path("in.wav"), path("out.wav")});
    EXPECT_NE(text.find("output=\"" + path("out.wav") + "\""), text.npos) << text;
    EXPECT_NE(text.find("file=\"" + path("in.wav") + "\""), text.npos) << text;
    writeText("show.xml", text);
    EXPECT_EQ(Playout({path("show.xml")}).finish().status, 0);
    EXPECT_EQ(read("out.wav").samples, _sound.samples);
}

TEST_F(DocumentTest, PlaysItsClipsInARow)
{
    std::vector<int> expected = _sound.samples;
    for (int const frames : {1, 0, 5000}) {
        std::string const name = std::to_string(frames) + ".aiff";
        Sound const sound = make(name, SF_FORMAT_AIFF | SF_FORMAT_PCM_24, 1, 8000, frames);
        expected.insert(expected.end(), sound.samples.begin(), sound.samples.end());
    }
    writeText("show.xml", "<show output='out.wav'><clip file='in.wav'/><clip file='1.aiff'/>"
                          "<clip file='0.aiff'/><clip file='5000.aiff'/></show>");
    Outcome const outcome = Playout({"--fast", path("show.xml")}).finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(read("out.wav").samples, expected);
    EXPECT_EQ(read("out.wav").format, SF_FORMAT_WAV | SF_FORMAT_PCM_24);
}

TEST_F(DocumentTest, NamesDevicesOfItsOwn)
{
    writeText("show.xml", R"xml(<show output="out.wav">
        <device name="deck" kind="player"/>
        <device name="one" kind="fader"><property name="levels:gain" value="0.5"/></device>
        <device name="two" kind="fader"><property name="levels:gain" value="0"/></device>
        <device name="tape" kind="recorder"/>
        <clip file="in.wav"/>
        <sequence tree="( tape ( two ( one ( deck ) ) ) )"/>
        <connection stream="deck:out push one:in"/>
        <connection stream="one:out push two:in"/>
        <connection stream="two:out push tape:in"/>
    </show>)xml");
    Outcome const outcome = Playout({path("show.xml")}).finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(outcome.out.find("( tape ( two ( one ( deck ) ) ) )\n"), 0u) << outcome.out;
    EXPECT_EQ(read("out.wav").samples, std::vector<int>(3000, 0));
}

TEST_F(DocumentTest, TheCommandLineOverridesIt)
{
    writeText("show.xml", R"xml(<show output="none/out.wav">
        <clip file="in.wav"/>
        <sequence tree="( nobody )"/>
        <connection stream="nothing"/>
    </show>)xml");
    Outcome const outcome =
        Playout({"--sequence", "( recorder ( player ) )", "--stream", "player:out push recorder:in",
                 path("show.xml"), path("out.wav")})
            .finish();
    EXPECT_EQ(outcome.status, 0) << outcome.err;
    EXPECT_EQ(read("out.wav").samples, _sound.samples);
}

TEST_F(DocumentTest, AFileThatIsNoDocumentIsRefusedWithItsLine)
{
    expectRefused("1: Syntax error.", "");
    expectRefused("3: Syntax error.", "<show>\n<clip file='in.wav'/>\n\n");
    expectRefused("2: Syntax error.", "<show>\n<clip file=in.wav/>\n</show>");
    expectRefused("3: Lexical error.", "<show>\n<clip\nfile='a<b'/>\n</show>");
    expectRefused("2: Syntax error.", "<show>\n<clip file/>\n</show>");
    expectRefused("3: Syntax error.", "<show>\n<clip file='in.wav'>\n</show>\n</clip>\n");
    expectRefused("3: Syntax error.", "<show>\n<clip file='in.wav'/>\n</shwo>\n");
    expectRefused("4: Syntax error.", "<show>\n<clip file='in.wav'/>\n</show>\n<show/>");
    expectRefused("1: Syntax error.", "<?xml version='1.0' encoding='UTF-8'?><show/>");
    expectRefused("2: Lexical error.", "<show>\n<!-- a -- b -->\n</show>");
    // A token that is longer than a block of the parser, before a wrong line.
    expectRefused("3: Lexical error.",
                  "<show>\n<clip file='" + std::string(40000, 'a') + "'/>\n&\n</show>");
}

TEST_F(DocumentTest, ThatIsNoShowIsRefusedWithItsLine)
{
    expectRefused("2: film: the document is no show", "\n<film/>");
    expectRefused("2: a show needs a clip", "<show>\n</show>");
    expectRefused("1: show: it takes no length", "<show length='1'\n>\n<clip file='a'/></show>");
    expectRefusedInside("2: reel: it has no place in show", "<reel/>\n");
    expectRefusedInside("2: clip: it has no place in clip",
                        "<clip file='a'><clip file='b'/></clip>\n");
    expectRefusedInside("2: a show has no text between its tags", "two");
    expectRefusedInside("2: a show has no text between its tags", "<![CDATA[two]]>\n");
    expectRefusedInside("3: clock: a show has one at most", "<clock/>\n<clock/>\n");
    expectRefusedInside("2: clip: file: Non existent attribute.", "<clip\n/>\n");
    expectRefusedInside("2: clip: file: it stands there twice", "<clip file='a' file='b'/>\n");
    expectRefusedInside("2: clip: file: its value goes over the end of a line",
                        "<clip file='a\nb'/>\n");
    expectRefusedInside("2: clock: rate: \"30\" is none of PAL, Film24, NTSC ND, NTSC DF",
                        "<clock rate='30'/>\n");
    expectRefusedInside("2: memory: manager: \"pool\" is none of heap, arena",
                        "<memory manager='pool'/>\n");
    expectRefusedInside("2: memory: strategy: \"FIFO\" is none of LRU, random",
                        "<memory strategy='FIFO'/>\n");
    std::string const bytes = "is no whole number from 1 to 1099511627776";
    for (std::string const value : {"", "0", "-1", "1.5", "4M", " 1", "99999999999999999999"})
        expectRefusedInside("2: memory: budget: \"" + value + "\" " + bytes,
                            "<memory budget='" + value + "'/>\n");
    expectRefusedInside(
        "2: device: \"mixer\" is none of player, fader, recorder, speaker, microphone",
        "<device name='mixer'/>\n");
    expectRefusedInside("2: event: action: \"stop\" is none of gain, mute, jump",
                        "<event at='00:00:00:00' action='stop' value='1'/>\n");
}

TEST_F(DocumentTest, ARefusalOfTheLibraryHasItsLine)
{
    expectRefusedInside("2: sequence \"( recorder\": Configuration string Syntax error.",
                        "<sequence tree='( recorder'/>\n");
    expectRefusedInside(
        "2: sequence \"( recorder ( mixer ) )\": Device name not found in the registry.",
        "<sequence tree='( recorder ( mixer ) )'/>\n");
    expectRefusedInside(
        "2: stream \"player:out throw fader:in\": player : out [ expected pull/push verb ]",
        "<connection stream='player:out throw fader:in'/>\n");
    std::string const device =
        "<device name='player'/><device name='recorder'/>\n<device name='fader'>\n";
    expectRefusedInside("4: property \"fader:levels:treble=1\": Not a registered object.",
                        device + "<property name='levels:treble' value='1'/></device>\n");
    expectRefusedInside("4: property \"fader:levels:gain=loud\": \"loud\" is no value for it",
                        device + "<property name='levels:gain' value='loud'/></device>\n");
    expectRefusedInside("3: device \"player\": Not a unique name.",
                        "<device name='player'/>\n<device name='player'/>\n");
    expectRefusedInside(
        "4: sequence \"( recorder ( a b ) )\": it has more than one player: a and b",
        "<device name='a' kind='player'/><device name='b' kind='player'/>\n"
        "<device name='recorder'/>\n<sequence tree='( recorder ( a b ) )'/>\n");
}

TEST_F(DocumentTest, FilesThatItNamesMayBeMissing)
{
    auto const expectFailure = [&](std::string const &message, std::string const &text) {
        writeText("show.xml", text);
        auto const before = files();
        Outcome const outcome = Playout({path("show.xml")}).finish();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(withoutFolder(outcome.err), "zvplayout: " + message + "\n");
        EXPECT_EQ(files(), before);
    };
    expectFailure("%show.xml:2: show: it names no output", "\n<show><clip file='in.wav'/></show>");
    expectFailure("cannot read %none.wav: No such file or directory",
                  "<show output='out.wav'><clip file='none.wav'/></show>");
    expectFailure("cannot write %none/out.wav.part: No such file or directory",
                  "<show output='none/out.wav'><clip file='in.wav'/></show>");
    expectFailure("cannot write %in.wav: it is the input",
                  "<show output='in.wav'><clip file='show.xml'/><clip file='in.wav'/></show>");
    make("stereo.wav", PCM, 2, 8000, 10);
    expectFailure(
        "cannot read %stereo.wav: its channels and its rate are not those of the clip before it",
        "<show output='out.wav'><clip file='in.wav'/><clip file='stereo.wav'/></show>");
}

TEST_F(DocumentTest, ThatCannotBeReadIsNamed)
{
    std::filesystem::create_directory(path("folder.xml"));
    for (auto const &[name, reason] : {std::pair{"none.xml", "No such file or directory"},
                                       std::pair{"folder.xml", "Is a directory"}}) {
        Outcome const outcome = Playout({path(name), path("out.wav")}).finish();
        EXPECT_EQ(outcome.status, 1);
        EXPECT_EQ(withoutFolder(outcome.err),
                  std::string("zvplayout: cannot read %") + name + ": " + reason + "\n");
    }
}

} // namespace
} // namespace ZvTest
