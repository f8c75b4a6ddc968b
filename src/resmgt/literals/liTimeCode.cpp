#include "resmgt/literals/liTimeCode.h"

#include "zvbase/objPtr.h"

#include <algorithm>
#include <cstddef>
#include <cstdlib>
#include <limits>

namespace Zv {

namespace {

constexpr DtTimeIndex SECONDS_PER_DAY = 86400;

// Drop-frame NTSC: 30 labels a second, without two in each of nine minutes out of ten.
constexpr DtTimeIndex DROPPED = 2;
constexpr DtTimeIndex FRAMES_PER_SHORT_MINUTE = 30 * 60 - DROPPED;
constexpr DtTimeIndex FRAMES_PER_TEN_MINUTES = 30 * 600 - 9 * DROPPED;
constexpr DtTimeIndex DROP_FRAMES_PER_24H = 24 * 6 * FRAMES_PER_TEN_MINUTES;
static_assert(FRAMES_PER_SHORT_MINUTE == 1798);
static_assert(FRAMES_PER_TEN_MINUTES == 17982);
static_assert(DROP_FRAMES_PER_24H == 2589408);

constexpr int LONGEST_NUMBER = std::numeric_limits<DtTimeIndex>::digits10 + 2; // with its sign

/// Writes a number in front of a text and returns the new beginning of the text.
// A stream would group the digits in some locales of the program.
char *prepend(char * const text, DtTimeIndex number, int width, char fill)
{
    char *first = text;
    DtTimeIndex rest = number;
    do {
        *--first = static_cast<char>('0' + std::abs(rest % 10));
        rest /= 10;
    } while (rest != 0);
    if (number < 0)
        *--first = '-';
    while (text - first < width)
        *--first = fill;
    return first;
}

} // namespace

// ---- LiTimeCode

LiTimeCode::LiTimeCode(LiString const &fullName, LiString const &shortName,
                       Rational const &editRate, bool dropFlag, DtTimeIndex framesPerTCSecond)
    : _fullName(fullName),
      _shortName(shortName),
      _editRate(editRate),
      _dropFlag(dropFlag),
      _framesPerTCSecond(framesPerTCSecond)
{}

LiTimeCode::~LiTimeCode() noexcept(false) = default;

LiString LiTimeCode::getTimecode(DtTimeIndex const &index) const
{
    return getGenericTimecode(wrap(index), ':', ':', ':', 2, '0');
}

DtTimeIndex LiTimeCode::getFramesPerTC24h() const
{
    return _framesPerTCSecond * SECONDS_PER_DAY;
}

DtTimeIndex LiTimeCode::getDay(DtTimeIndex const &index) const
{
    DtTimeIndex const frames = getFramesPerTC24h();
    return index < 0 ? (index + 1) / frames - 1 : index / frames;
}

DtTimeIndex LiTimeCode::wrap(DtTimeIndex index) const
{
    DtTimeIndex const frames = getFramesPerTC24h();
    DtTimeIndex const rest = index % frames;
    return rest < 0 ? rest + frames : rest;
}

LiString LiTimeCode::getGenericTimecode(DtTimeIndex const &frame, char sep1, char sep2, char sep3,
                                        int width, char fill) const
{
    DtTimeIndex const perSecond = _framesPerTCSecond;
    DtTimeIndex const perMinute = perSecond * 60;
    DtTimeIndex const perHour = perSecond * 3600;
    std::size_t const size = 4 * static_cast<std::size_t>(std::max(width, LONGEST_NUMBER)) + 4;
    char local[4 * LONGEST_NUMBER + 4];
    ArrayPtr<char> const wide(size > sizeof local ? new char[size] : nullptr);
    char *text = (wide ? wide.get() : local) + size;
    *--text = '\0';
    text = prepend(text, frame % perSecond, width, fill);
    *--text = sep3;
    text = prepend(text, frame % perMinute / perSecond, width, fill);
    *--text = sep2;
    text = prepend(text, frame % perHour / perMinute, width, fill);
    *--text = sep1;
    text = prepend(text, frame / perHour, width, fill);
    return LiString(text);
}

// ---- LiTimeCodeNtscNd

LiTimeCodeNtscNd::LiTimeCodeNtscNd()
    : LiTimeCode("NTSC Non-Drop Frame 29.97 FPS", "NTSC ND", Rational(2997, 100), false, 30)
{}

LiTimeCodeNtscNd::~LiTimeCodeNtscNd() noexcept(false) = default;

RCShdPtr<LiTimeCodeNtscNd> LiTimeCodeNtscNd::create()
{
    return new LiTimeCodeNtscNd;
}

// ---- LiTimeCodeNtscDf

LiTimeCodeNtscDf::LiTimeCodeNtscDf()
    : LiTimeCode("NTSC Drop Frame 29.97 FPS", "NTSC DF", Rational(2997, 100), true, 30)
{}

LiTimeCodeNtscDf::~LiTimeCodeNtscDf() noexcept(false) = default;

RCShdPtr<LiTimeCodeNtscDf> LiTimeCodeNtscDf::create()
{
    return new LiTimeCodeNtscDf;
}

LiString LiTimeCodeNtscDf::getTimecode(DtTimeIndex const &index) const
{
    DtTimeIndex const frame = wrap(index);
    DtTimeIndex const tens = frame / FRAMES_PER_TEN_MINUTES;
    DtTimeIndex const rest = frame % FRAMES_PER_TEN_MINUTES;
    // The first minute of ten is longer by the two frames that are subtracted here. They give 0.
    DtTimeIndex const drops = (rest - DROPPED) / FRAMES_PER_SHORT_MINUTE;
    DtTimeIndex const label = frame + DROPPED * (drops + 9 * tens);
    return getGenericTimecode(label, ';', ';', ';', 2, '0');
}

DtTimeIndex LiTimeCodeNtscDf::getFramesPerTC24h() const
{
    return DROP_FRAMES_PER_24H;
}

// ---- LiTimeCodePal

LiTimeCodePal::LiTimeCodePal() : LiTimeCode("PAL 25 FPS", "PAL", Rational(25, 1), false, 25) {}

LiTimeCodePal::~LiTimeCodePal() noexcept(false) = default;

RCShdPtr<LiTimeCodePal> LiTimeCodePal::create()
{
    return new LiTimeCodePal;
}

// ---- LiTimeCodeFilm24

LiTimeCodeFilm24::LiTimeCodeFilm24()
    : LiTimeCode("Film 24 FPS", "Film24", Rational(24, 1), false, 24)
{}

LiTimeCodeFilm24::~LiTimeCodeFilm24() noexcept(false) = default;

RCShdPtr<LiTimeCodeFilm24> LiTimeCodeFilm24::create()
{
    return new LiTimeCodeFilm24;
}

} // namespace Zv
