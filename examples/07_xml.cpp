// XML in and out: reads a playlist, and writes it again with the time at which each clip begins.
//
// A document is read as a tree. The result is written element by element, by guards that close
// their elements. A text that is no document is refused.
//
// Prints:
//
//     <?xml version="1.0"?>
//     <!DOCTYPE schedule>
//     <schedule name="Evening" >
//     <item begin="00:00:00:00" file="opening.wav" />
//     <item begin="00:00:10:00" file="news.wav" />
//     <item begin="00:15:10:00" file="weather.wav" />
//     </schedule>
//     refused: Syntax error.

#include <resmgt/literals.h>
#include <resmgt/xml.h>
#include <zvbase/zvbase.h>

#include <iostream>

using namespace Zv;

namespace {

char const * const PLAYLIST = R"(<playlist name="Evening">
    <clip file="opening.wav" frames="250"/>
    <clip file="news.wav" frames="22500"/>
    <clip file="weather.wav" frames="3000"/>
</playlist>)";

/// Writes the playlist of `text` with the beginning of each clip. Throws an exception of `XmlEx` if
/// the text is not a document, or if a clip lacks an attribute.
void writeSchedule(std::ostream &output, LiString const &text)
{
    XmlDocument const playlist(text);
    RCShdPtr<LiTimeCode> const rate = LiTimeCodePal::create();
    XmlStreamer streamer(output, true, "schedule");
    XmlStreamer::ElementGuard schedule(streamer, "schedule");
    schedule.addAttribute("name", playlist.getRoot()->getAttribute("name").getChars());
    int begin = 0; // frames
    for (auto clip = playlist.getElementsByTagName("clip"); !clip.atEnd(); ++clip) {
        XmlStreamer::ElementGuard item(schedule, "item");
        item.addAttribute("begin", rate->getTimecode(begin).getChars());
        item.addAttribute("file", (*clip)->getAttribute("file").getChars());
        int frames = 0;
        (*clip)->getAttribute("frames", frames);
        begin += frames;
    }
}

} // namespace

int main()
{
    InPackageScope const packages;
    for (char const *text : {PLAYLIST, "<playlist><clip></playlist>"}) {
        try {
            writeSchedule(std::cout, text);
        } catch (XmlEx const &failure) {
            std::cout << "refused: " << failure.getReason() << '\n';
        }
    }
}
