#include "options.h"

#include "microphone.h"
#include "propertyText.h"
#include "showReader.h"
#include "soundCard.h"

#include <zvbase/zvbase.h>

#include <algorithm>
#include <cmath>

namespace {

constexpr int MAX_BLOCK_FRAMES = 1 << 20;

double takeNumber(std::string const &option, std::string const &text)
{
    if (auto const number = parseNumber(text))
        return *number;
    throw Options::Error(option + " takes a number, not \"" + text + "\"");
}

double takeLength(std::string const &option, std::string const &text)
{
    double const seconds = takeNumber(option, text);
    if (seconds <= 0 || seconds > Microphone::LONGEST_LENGTH)
        throw Options::Error(option + " takes more than 0 seconds and at most a year, not \"" +
                             text + "\"");
    return seconds;
}

int takeBlockFrames(std::string const &option, std::string const &text)
{
    double const frames = takeNumber(option, text);
    if (frames < 1 || frames > MAX_BLOCK_FRAMES || frames != std::floor(frames))
        throw Options::Error(option + " takes a whole number from 1 to " +
                             std::to_string(MAX_BLOCK_FRAMES) + ", not \"" + text + "\"");
    return static_cast<int>(frames);
}

void addFault(Faults &faults, std::string const &option, std::string const &text)
{
    try {
        faults.add(text);
    } catch (std::invalid_argument const &failure) {
        throw Options::Error(option + " " + failure.what());
    }
}

std::string takeName(std::string const &option, std::string const &text)
{
    if (text.empty())
        throw Options::Error(option + " takes the name of a file");
    return text;
}

std::string takePlace(std::string const &option, std::string const &text)
{
    try {
        SoundCard::check(text);
    } catch (std::invalid_argument const &failure) {
        throw Options::Error(option + ": " + failure.what());
    }
    return text;
}

} // namespace

Options Options::parse(int argc, char const * const *argv)
{
    Options options;
    std::vector<std::string> files;
    bool isOption = true;
    for (int i = 1; i < argc; ++i) {
        std::string name = argv[i];
        if (!isOption || name.size() < 2 || name[0] != '-') {
            files.push_back(name);
            continue;
        }
        if (name == "--") {
            isOption = false;
            continue;
        }
        if (name == "--help" || name == "-h") {
            options.help = true;
            return options;
        }
        if (bool * const flag = options.findFlag(name)) {
            *flag = true;
            continue;
        }
        std::optional<std::string> attached;
        if (auto const equals = name.find('='); equals != name.npos) {
            attached = name.substr(equals + 1);
            name.resize(equals);
        }
        auto const value = [&]() -> std::string {
            if (attached)
                return *attached;
            if (++i >= argc)
                throw Error(name + " takes a value");
            return argv[i];
        };
        if (name == "--gain")
            options.gain = takeNumber(name, value());
        else if (name == "--length")
            options.length = takeLength(name, value());
        else if (name == "--sequence")
            options.sequence = value();
        else if (name == "--stream")
            options.streams.push_back(value());
        else if (name == "--property")
            options.properties.push_back(value());
        else if (name == "--to")
            options.to = takePlace(name, value());
        else if (name == "--from")
            options.from = takePlace(name, value());
        else if (name == "--trace")
            options.trace = value();
        else if (name == "--trace-events")
            options.traceEvents = value();
        else if (name == "--report")
            options.report = takeName(name, value());
        else if (name == "--fault")
            addFault(options.faults, name, value());
        else if (name == "--block")
            options.blockFrames = takeBlockFrames(name, value());
        else
            throw Error("unknown option " + name);
    }
    options.takeFiles(std::move(files));
    if ((options.isShow() || options.hasCard()) && options.blockFrames)
        throw Error("--block: the blocks of a show are the frames of its clock");
    if (options.dumpShow && (options.gain || options.length || !options.properties.empty()))
        throw Error("--dump-show: a show has properties of its own");
    if (options.dumpShow && !options.faults.isEmpty())
        throw Error("--dump-show: it plays nothing, so that no device can have a --fault");
    if (options.dumpShow && !options.report.empty())
        throw Error("--dump-show: it plays nothing, so that there is nothing to --report");
    if (options.dumpShow && options.top)
        throw Error("--dump-show: it plays nothing, so that there is nothing to see by --top");
    return options;
}

/// Takes the arguments that are no options: INPUT and OUTPUT, as far as the options leave them.
void Options::takeFiles(std::vector<std::string> files)
{
    if (!files.empty())
        input = files[0];
    bool const hasInput = from.empty() || isShow();
    if (!hasInput) {
        input.clear();
        if (files.size() > 1)
            throw Error("--from captures, so that there is no INPUT");
        files.insert(files.begin(), "");
    }
    bool const needsOutput = to.empty() && !isShow();
    if (files.empty() || files.size() > 2 || (needsOutput && files.size() < 2))
        throw Error(!to.empty() ? "an INPUT is needed"
                    : hasInput  ? "an INPUT and an OUTPUT are needed"
                                : "an OUTPUT is needed");
    if (files.size() == 2 && !to.empty())
        throw Error("--to plays, so that there is no OUTPUT");
    if (files.size() == 2)
        output = files[1];
    if ((hasInput && input.empty()) || (files.size() == 2 && output.empty()))
        throw Error("the name of a file is empty");
}

bool Options::isShow() const
{
    return Zv::OsFilePath(input).getExtension() == ".xml";
}

bool *Options::findFlag(std::string const &name)
{
    return name == "--dump-show"  ? &dumpShow
           : name == "--fast"     ? &fast
           : name == "--realtime" ? &realTime
           : name == "--top"      ? &top
                                  : nullptr;
}

std::unique_ptr<Show> Options::makeShow() const
{
    std::unique_ptr<Show> show;
    if (isShow()) {
        show = ShowReader(input).read();
    } else {
        show = std::make_unique<Show>();
        if (from.empty())
            show->clips.push_back(std::make_unique<ShowClip>(input));
        show->complete(dumpShow || hasCard(), from.empty() ? "player" : "microphone",
                       to.empty() ? "recorder" : "speaker");
    }
    if (!output.empty())
        show->output = output;
    if (sequence)
        show->sequence = std::make_unique<ShowSequence>(*sequence);
    useCards(*show);
    if (sequence && show->clips.empty() == !show->find("microphone"))
        throw Error(show->clips.empty() ? "--sequence: without a microphone, a show needs a clip"
                                        : "--sequence: a show with a microphone plays no clips");
    ShowDevice const * const speaker = show->find("speaker");
    ShowDevice const * const microphone = show->find("microphone");
    if ((speaker || microphone) && fast)
        throw Error("--fast: a sound card has a pace of its own");
    if (speaker && !output.empty())
        throw Error("the show has a speaker, so that there is no OUTPUT");
    if (length && !microphone)
        throw Error("--length: the show has no microphone");
    if (speaker && microphone &&
        SoundCard::getSystem(speaker->card) != SoundCard::getSystem(microphone->card))
        throw Error("the cards are " + microphone->card + " and " + speaker->card +
                    ", but one sound system must pace a show");
    if (!streams.empty())
        show->connections.clear();
    for (auto const &stream : streams)
        show->connections.push_back(std::make_unique<ShowConnection>(stream));
    return show;
}

/// Puts a speaker in the place of the recorder, and a microphone in that of the player, if the
/// command line asks for them.
void Options::useCards(Show &show) const
{
    auto const replace = [&](char const *option, std::string const &place, char const *kind,
                             char const *other) {
        if (place.empty())
            return;
        ShowDevice *device = show.find(kind);
        if (!device)
            device = show.find(other);
        if (!device)
            throw Error(std::string(option) + ": the sequence has no " + other);
        device->kind = kind;
        device->card = place;
    };
    replace("--to", to, "speaker", "recorder");
    replace("--from", from, "microphone", "player");
    if (!to.empty())
        show.output.clear();
    if (!from.empty())
        show.clips.clear();
}

void Options::checkFaults(Show const &show) const
{
    auto const names = show.sequence->listDevices();
    std::string list;
    for (auto const &name : names)
        list += (list.empty() ? "" : ", ") + name;
    for (Fault const &fault : faults.getAll())
        if (!names.empty() && std::find(names.begin(), names.end(), fault.device) == names.end())
            throw Error("--fault: the sequence has no device \"" + fault.device + "\", only " +
                        list);
}

char const *Options::getHelp()
{
    return R"help(usage: zvplayout [options] INPUT OUTPUT
       zvplayout [options] SHOW.xml [OUTPUT]
       zvplayout [options] INPUT|SHOW.xml --to CARD
       zvplayout [options] --from CARD OUTPUT|--to CARD

Plays a sound file through a tree of three devices into another one: `player` reads it, `fader` applies a gain and
measures the peak, `recorder` writes it. OUTPUT's extension chooses its kind: .wav, .aiff, .flac or .ogg. Each channel
stays at its loudspeaker; a kind that has no place for one of them is refused.

A show names all that, and more: its clips, its devices and their properties, how they are connected, the clock that
paces them, the memory that clips may take, and events at timecodes. Its files are looked for beside it. OUTPUT goes
before the show's own, and a picture of the waveform with the events stands beside it, named .svg.

  --to CARD           play through a sound card instead of writing OUTPUT; see below
  --from CARD         capture from a sound card instead of reading INPUT; see below
  --length SECONDS    how long a sound card is captured from, in place of until Ctrl-C
  --gain X            the factor on every sample, in place of 1
  --sequence STRING   the tree, in place of "( recorder ( fader ( player ) ) )"
  --stream STRING     a connection; given once or more often, in place of
                      "player:out push fader:in" and "fader:out push recorder:in", source before sink
  --property STRING   a property and its value, such as "fader:levels:gain=0.5"; may be given more often
  --block FRAMES      frames in a block, in place of 1024; not for shows
  --fast              a show goes through as fast as it can, not by its clock
  --realtime          ask the system for real-time scheduling, and say what came of it
  --dump-show         write the show, or the one that the command line amounts to, and play nothing
  --fault DEVICE:PHASE:KIND
                      let a device misbehave, to see what comes of it; may be given more often
  --trace FILE        keep what the library and the devices trace
  --trace-events FILE keep timed events for a viewer of traces, such as ui.perfetto.dev
  --report FILE       write a page about the show, for a browser; see below
  --top               show a live table in the terminal; see below
  --help              this text

With --to, a speaker is in the place of the recorder, and with --from a microphone in that of the player. CARD is one of
  jack                the ports of the card that the JACK server uses, at most two unless the recording has more channels
  jack:PORT,PORT...   these ports, one for each channel, such as jack:system:playback_1,system:playback_2
  alsa                the device "default" of ALSA
  alsa:DEVICE         a device of ALSA, such as alsa:plughw:0; "aplay -L" and "arecord -L" list them
A JACK server must run for jack, and its rate must be that of the clips. A device of ALSA is set to their rate. It is
captured from at 48000 samples a second and in stereo, or what is nearest. The clock of the card paces the show, so that
--fast is refused, and speaker and microphone must both be of JACK or both of ALSA. In a show, devices with
kind="speaker" or kind="microphone" and card="CARD" do the same. It may list several of them, each with its own card. The
sequence chooses at most one of each kind. The clock is that of the speaker's card, else of the microphone's.

Ctrl-C ends a microphone's recording, which is then complete as far as it went, with status 0. The waveform of the
recording is beside it, named .svg. The property speaker:card:latency is how many seconds of sound are kept ready for the
card, 0.2 if it is not set, and microphone:card:reserve how many may wait for slow devices, 2 if it is not set. The
progress shows how often there was too little sound for the card (underruns) or sound that was lost (overruns), and how
many periods the JACK server has called late.

A report is one page of HTML that needs no other file and no network. It shows the waveform with the events, the states
of the devices, their requests and the loads of pages over time, how late the beats of the clock were, the memory under
its budget, the levels of the threads, and the tables of the end. It is written after a show that has failed, too, and
says so first. A show that is refused before its devices are created leaves none.

With --top, the terminal shows a table as long as the show goes: how late the beats of the clock are, the memory under its
budget, underruns and overruns of the card; each device with its state, the blocks that wait at its input and the
requests in its queue; each thread with its level, what the system has given it and its processor time; and the latest
lines. q does what Ctrl-C does. Arrows, Page Up, Page Down, Home and End scroll, and s puts the busiest threads first.
Ctrl-Z works as ever. The table adapts to the size of the window, and leaves out its least important columns. Afterwards
the terminal is as it was, and the lines and tables of the show are written to it. If the standard output is a file, they
are written to it meanwhile.

A fault, such as recorder:start:hangs, has one of these phases:
  open, close         the device is opened or closed
  start, sync, stop   a step of the sequence
  ready               the device is asked for its latency
  lock                the device is at work on its first block
  recover, abort      the same; the device asks for that step when it is at work on its first block
and one of these kinds:
  fails               throws an exception of the program's own
  fails-otherwise     throws another exception
  hangs               does not return
  slow                returns 1.5 seconds late
  silent              a step: returns, but never answers
  drops               a step: forgets to answer
  twice               a step: answers twice
  recovers            start, sync, lock, stop: reports that it has lost its lock
  aborts              start, sync, lock, stop, recover: reports an abort

A device that does not answer a step within 10 seconds is given up, and the others are stopped and closed. A device that
hangs while it is opened, or while it works, may only be slow: the program says so, and waits. Ctrl-C ends the program
within a few seconds in any case, a second Ctrl-C at once. A table says in the end what became of each device.

Exit status: 0 when the recording has gone through, 1 for a failure, 2 for a wrong command line, 3 if a device gave no
answer, and 128 with the signal's number added when a signal has stopped it, which is 130 for Ctrl-C. OUTPUT appears
only when it is complete and on the disk. Until then it is beside its place, with ".part" behind its name. If OUTPUT is
a link, the file that the link leads to is written.
)help";
}
