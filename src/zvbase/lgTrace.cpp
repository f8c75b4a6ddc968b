#include "zvbase/lgTrace.h"

#include "zvbase/lgLine.h"
#include "zvbase/lgLogImp.private.h"
#include "zvbase/lgQueue.h"
#include "zvbase/lgReader.h"
#include "zvbase/scope.private.h"

#include <charconv>
#include <cstdio>
#include <string_view>

namespace Zv {

namespace {

/// The longest piece of a text that is written at once, so that a long text does not need an empty
/// queue.
constexpr std::size_t LONGEST_PIECE = LgQueue::CAPACITY / 4;

constinit LgTrace::Output output ZV_GUARDED_BY(LgLogImp::_readingLock) = nullptr;
constinit void *outputContext ZV_GUARDED_BY(LgLogImp::_readingLock) = nullptr;
constinit std::FILE *file ZV_GUARDED_BY(LgLogImp::_readingLock) = nullptr;
constinit bool hasFailed ZV_GUARDED_BY(LgLogImp::_readingLock) = false;
constinit bool isWriting ZV_GUARDED_BY(LgLogImp::_readingLock) = false;

bool closeNoLock() ZV_REQUIRES(LgLogImp::_readingLock)
{
    if (!file)
        return false;
    bool const isClosed = std::fclose(file) == 0;
    file = nullptr;
    return isClosed && !hasFailed;
}

/// Writes everything that was ended before to the present output.
void flushNoLock() ZV_REQUIRES(LgLogImp::_readingLock)
{
    LgLog::flush();
    LgOutput::flush();
}

/// Returns the length of the first piece of a text. The piece ends behind its last line end, if it
/// has one.
std::size_t measurePiece(std::string_view text)
{
    if (text.size() <= LONGEST_PIECE)
        return text.size();
    std::size_t const lineEnd = text.rfind('\n', LONGEST_PIECE - 1);
    return lineEnd == text.npos ? LONGEST_PIECE : lineEnd + 1;
}

} // namespace

bool LgOutput::isBusy()
{
    return isWriting;
}

void LgOutput::write(char const *text, std::size_t length)
{
    TemporaryValue const writing(isWriting, true); // the output may throw
    if (output)
        output(outputContext, text, length);
    else if (std::fwrite(text, 1, length, file ? file : stderr) != length && file)
        hasFailed = true;
}

void LgOutput::flush()
{
    if (file && std::fflush(file) != 0)
        hasFailed = true;
}

void LgOutput::appendMoment(std::string &text, double seconds)
{
    // Same as "%12.6f " in the "C" locale.
    constexpr std::size_t WIDTH = 12;
    char digits[64];
    char const * const end =
        std::to_chars(digits, digits + sizeof digits, seconds, std::chars_format::fixed, 6).ptr;
    auto const length = static_cast<std::size_t>(end - digits);
    text.append(length < WIDTH ? WIDTH - length : 0, ' ').append(digits, length) += ' ';
}

void LgTrace::print(char const *text)
{
    std::string_view rest = text;
    do {
        std::size_t const length = measurePiece(rest);
        LgLine piece(LgLine::PLAIN);
        piece.getStream().write(rest.data(), static_cast<std::streamsize>(length));
        rest.remove_prefix(length);
    } while (!rest.empty());
}

void LgTrace::setOutput(Output newOutput, void *context)
{
    BaseGuard const guard(LgLogImp::_readingLock);
    flushNoLock();
    closeNoLock();
    output = newOutput;
    outputContext = context;
}

bool LgTrace::openFile(char const *path)
{
    BaseGuard const guard(LgLogImp::_readingLock);
    std::FILE * const opened = std::fopen(path, "wb");
    if (!opened)
        return false;
    flushNoLock();
    closeNoLock();
    output = nullptr;
    file = opened;
    hasFailed = false;
    return true;
}

bool LgTrace::closeFile()
{
    BaseGuard const guard(LgLogImp::_readingLock);
    flushNoLock();
    return closeNoLock();
}

} // namespace Zv
