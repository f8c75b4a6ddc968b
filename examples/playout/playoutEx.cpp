#include "playoutEx.h"

#include "shownText.h"

namespace {

constexpr std::size_t LONGEST_TEXT = 900; // bytes; a reason has room for 1023
constexpr std::size_t LONGEST_NAME = 400;

} // namespace

PlayoutEx::Input::Input(char const *file, int line, char const *path, char const *reason)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("cannot read %s: %s", shorten(path, LONGEST_NAME).c_str(),
                 shorten(reason, LONGEST_NAME).c_str());
}

PlayoutEx::Output::Output(char const *file, int line, char const *path, char const *reason)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("cannot write %s: %s", shorten(path, LONGEST_NAME).c_str(),
                 shorten(reason, LONGEST_NAME).c_str());
}

PlayoutEx::NotConnected::NotConnected(char const *file, int line, char const *device,
                                      char const *stream)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("%s:%s is not connected", shorten(device, LONGEST_NAME).c_str(), stream);
}

PlayoutEx::NotStarted::NotStarted(char const *file, int line, char const *device)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("%s was pushed into, but not started: it is not in the sequence",
                 shorten(device, LONGEST_NAME).c_str());
}

PlayoutEx::NeighbourFailed::NeighbourFailed(char const *file, int line, char const *device)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("%s gave up: a device at its streams has failed",
                 shorten(device, LONGEST_NAME).c_str());
}

PlayoutEx::Client::Client(char const *file, int line, char const *text)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    setReason(shorten(text, LONGEST_TEXT).c_str());
}

PlayoutEx::Show::Show(char const *file, int line, char const *path, int lineOfShow,
                      char const *reason)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("%s:%d: %s", shorten(path, LONGEST_NAME).c_str(), lineOfShow,
                 shorten(reason, LONGEST_NAME).c_str());
}

PlayoutEx::Interrupted::Interrupted(char const *file, int line)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    setReason("interrupted");
}

PlayoutEx::Fault::Fault(char const *file, int line, char const *device, char const *phase)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    formatReason("%s fails at \"%s\", as --fault asks", shorten(device, LONGEST_NAME).c_str(),
                 phase);
}

PlayoutEx::NoAnswer::NoAnswer(char const *file, int line, char const *text)
    : std::runtime_error(""), PlayoutEx(file, line)
{
    setReason(shorten(text, LONGEST_TEXT).c_str());
}

std::string describeMissing(char const *system, char const *package)
{
    return std::string("this program was built without ") + system +
           ". Install its development files (" + package + ") and build it again";
}
