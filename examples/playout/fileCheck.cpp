#include "fileCheck.h"

#include "partFile.h"
#include "playoutEx.h"
#include "playoutJob.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <filesystem>
#include <set>
#include <tuple>
#include <vector>

namespace {

/// Identifies a file by its device and inode, or by those of its folder and its name if it does not
/// exist.
using Identity = std::tuple<dev_t, ino_t, std::string>;

Identity identify(std::string const &path)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) == 0)
        return {status.st_dev, status.st_ino, ""};
    std::filesystem::path const target = PartFile::getTarget(path);
    auto const folder = target.has_parent_path() ? target.parent_path().string() : ".";
    if (::stat(folder.c_str(), &status) != 0)
        return {0, 0, target};
    return {status.st_dev, status.st_ino, target.filename()};
}

bool isTerminal(std::string const &path)
{
    struct stat status = {};
    if (::stat(path.c_str(), &status) != 0 || !S_ISCHR(status.st_mode))
        return false;
    int const file = ::open(path.c_str(), O_WRONLY | O_NOCTTY | O_NONBLOCK | O_CLOEXEC);
    bool const isTerminal = file >= 0 && ::isatty(file);
    if (file >= 0)
        ::close(file);
    return isTerminal;
}

} // namespace

void checkFiles(Options const &options, Show const &show, std::string const &output)
{
    std::set<Identity> inputs;
    if (options.isShow())
        inputs.insert(identify(options.input));
    for (auto const &clip : show.clips)
        inputs.insert(identify(show.resolve(clip->file)));
    std::vector<std::string> outputs;
    if (!output.empty())
        outputs = {output, PartFile::getPartPath(output)};
    if (auto const picture = PlayoutJob::getPicturePath(show, output);
        !output.empty() && !picture.empty())
        outputs.insert(outputs.end(), {picture, PartFile::getPartPath(picture)});
    if (!options.trace.empty())
        outputs.push_back(options.trace);
    if (!options.report.empty())
        outputs.insert(outputs.end(), {options.report, PartFile::getPartPath(options.report)});
    if (!options.traceEvents.empty())
        outputs.push_back(options.traceEvents);
    for (auto const &path : {options.trace, options.traceEvents})
        if (options.top && isTerminal(path))
            ZV_THROW(PlayoutEx::Output, path.c_str(), "it is a terminal, which --top needs");
    std::set<Identity> known;
    for (auto const &path : outputs) {
        Identity const identity = identify(path);
        if (inputs.contains(identity))
            ZV_THROW(PlayoutEx::Output, path.c_str(), "it is the input");
        if (!known.insert(identity).second)
            ZV_THROW(PlayoutEx::Output, path.c_str(), "it is an output already");
    }
}
