#include "channels.h"

#include <algorithm>
#include <iterator>
#include <numeric>
#include <stdexcept>
#include <utility>

namespace {

constexpr int FIRST_NUMBER = 1000; // greater than all of libsndfile's values

struct Speaker
{
    int name;
    char const *text;
};

/// All loudspeakers, in the order of WAV.
constexpr Speaker SPEAKERS[] = {{SF_CHANNEL_MAP_MONO, "mono"},
                                {SF_CHANNEL_MAP_LEFT, "left"},
                                {SF_CHANNEL_MAP_RIGHT, "right"},
                                {SF_CHANNEL_MAP_CENTER, "centre"},
                                {SF_CHANNEL_MAP_LFE, "low frequencies"},
                                {SF_CHANNEL_MAP_REAR_LEFT, "rear left"},
                                {SF_CHANNEL_MAP_REAR_RIGHT, "rear right"},
                                {SF_CHANNEL_MAP_FRONT_LEFT_OF_CENTER, "left of centre"},
                                {SF_CHANNEL_MAP_FRONT_RIGHT_OF_CENTER, "right of centre"},
                                {SF_CHANNEL_MAP_REAR_CENTER, "rear centre"},
                                {SF_CHANNEL_MAP_SIDE_LEFT, "side left"},
                                {SF_CHANNEL_MAP_SIDE_RIGHT, "side right"},
                                {SF_CHANNEL_MAP_TOP_CENTER, "top centre"},
                                {SF_CHANNEL_MAP_TOP_FRONT_LEFT, "top front left"},
                                {SF_CHANNEL_MAP_TOP_FRONT_CENTER, "top front centre"},
                                {SF_CHANNEL_MAP_TOP_FRONT_RIGHT, "top front right"},
                                {SF_CHANNEL_MAP_TOP_REAR_LEFT, "top rear left"},
                                {SF_CHANNEL_MAP_TOP_REAR_CENTER, "top rear centre"},
                                {SF_CHANNEL_MAP_TOP_REAR_RIGHT, "top rear right"}};

constexpr int MONO = SF_CHANNEL_MAP_MONO;
constexpr int L = SF_CHANNEL_MAP_LEFT;
constexpr int R = SF_CHANNEL_MAP_RIGHT;
constexpr int C = SF_CHANNEL_MAP_CENTER;
constexpr int LFE = SF_CHANNEL_MAP_LFE;
constexpr int RL = SF_CHANNEL_MAP_REAR_LEFT;
constexpr int RR = SF_CHANNEL_MAP_REAR_RIGHT;
constexpr int RC = SF_CHANNEL_MAP_REAR_CENTER;
constexpr int SL = SF_CHANNEL_MAP_SIDE_LEFT;
constexpr int SR = SF_CHANNEL_MAP_SIDE_RIGHT;

/// Replaces the second of the two names that libsndfile has for each loudspeaker in front.
int toOneName(int name)
{
    return name == SF_CHANNEL_MAP_FRONT_LEFT     ? L
           : name == SF_CHANNEL_MAP_FRONT_RIGHT  ? R
           : name == SF_CHANNEL_MAP_FRONT_CENTER ? C
                                                 : name;
}

/// Returns the place in the order of WAV.
std::ptrdiff_t getRank(int name)
{
    auto const place = std::find_if(std::begin(SPEAKERS), std::end(SPEAKERS),
                                    [&](Speaker const &speaker) { return speaker.name == name; });
    return place - std::begin(SPEAKERS) + (place == std::end(SPEAKERS) ? name : 0);
}

std::vector<int> sorted(std::vector<int> speakers)
{
    std::stable_sort(speakers.begin(), speakers.end(),
                     [](int left, int right) { return getRank(left) < getRank(right); });
    return speakers;
}

void rename(std::vector<int> &speakers, int from, int to)
{
    std::replace(speakers.begin(), speakers.end(), from, to);
}

} // namespace

Channels::Channels(Speakers speakers, bool isNamed)
    : _speakers(std::move(speakers)), _isNamed(isNamed)
{}

/// Returns the channels that WAV and FLAC files with this number of channels have.
Channels::Speakers Channels::getUsual(std::size_t number)
{
    switch (number) {
    case 1:
        return {MONO};
    case 2:
        return {L, R};
    case 3:
        return {L, R, C};
    case 4:
        return {L, R, RL, RR};
    case 5:
        return {L, R, C, RL, RR};
    case 6:
        return {L, R, C, LFE, RL, RR};
    case 7:
        return {L, R, C, LFE, RC, SL, SR};
    case 8:
        return {L, R, C, LFE, RL, RR, SL, SR};
    default:
        Speakers numbers(number);
        std::iota(numbers.begin(), numbers.end(), FIRST_NUMBER);
        return numbers;
    }
}

Channels::Speakers Channels::getVorbis(std::size_t number)
{
    switch (number) {
    case 3:
        return {L, C, R};
    case 5:
        return {L, C, R, RL, RR};
    case 6:
        return {L, C, R, RL, RR, LFE};
    case 7:
        return {L, C, R, SL, SR, RC, LFE};
    case 8:
        return {L, C, R, SL, SR, RL, RR, LFE};
    default:
        return getUsual(number);
    }
}

Channels Channels::ofFile(SNDFILE *file, SF_INFO const &info)
{
    auto const number = static_cast<std::size_t>(info.channels);
    Speakers names(number);
    int const size = static_cast<int>(number * sizeof(int));
    bool const isTold = sf_command(file, SFC_GET_CHANNEL_MAP_INFO, names.data(), size) == SF_TRUE;
    std::transform(names.begin(), names.end(), names.begin(), &toOneName);
    bool const areAllKnown = std::all_of(names.begin(), names.end(), [](int name) {
        return getRank(name) < static_cast<std::ptrdiff_t>(std::size(SPEAKERS));
    });
    if (number == 1)
        return Channels({MONO}, true);
    if (isTold && areAllKnown)
        return Channels(names, true);
    int const type = info.format & SF_FORMAT_TYPEMASK;
    bool const isOrdered = number < 9 && (type == SF_FORMAT_OGG || type == SF_FORMAT_FLAC);
    return Channels(type == SF_FORMAT_OGG ? getVorbis(number) : getUsual(number), isOrdered);
}

/// Returns the channels with a uniform name for a single pair of surrounds, which files call "side"
/// or "rear". It is the name that the pair has in `getUsual`.
Channels::Speakers Channels::withOnePair() const
{
    Speakers speakers = _speakers;
    auto const has = [&](int name) {
        return std::find(speakers.begin(), speakers.end(), name) != speakers.end();
    };
    if (has(SL) != has(RL) && has(SR) != has(RR) && has(SL) == has(SR)) {
        bool const isSide = has(RC);
        rename(speakers, isSide ? RL : SL, isSide ? SL : RL);
        rename(speakers, isSide ? RR : SR, isSide ? SR : RR);
    }
    return speakers;
}

Channels Channels::inBlockOrder() const
{
    Speakers const names = withOnePair();
    std::vector<std::size_t> indices(names.size());
    std::iota(indices.begin(), indices.end(), 0u);
    std::stable_sort(indices.begin(), indices.end(), [&](std::size_t left, std::size_t right) {
        return getRank(names[left]) < getRank(names[right]);
    });
    Speakers speakers;
    for (std::size_t const index : indices)
        speakers.push_back(_speakers[index]);
    return Channels(speakers, _isNamed);
}

bool Channels::needNames() const
{
    return _isNamed && (_speakers.size() > 2 || sorted(_speakers) != getUsual(_speakers.size()));
}

Channels Channels::assignTo(SNDFILE *file, int type) const
{
    bool const isUsual = sorted(withOnePair()) == getUsual(getNumber());
    auto const tell = [&](Speakers speakers) {
        int const size = static_cast<int>(speakers.size() * sizeof(int));
        return sf_command(file, SFC_SET_CHANNEL_MAP_INFO, speakers.data(), size) == SF_TRUE;
    };
    auto const inOrder = [&](Speakers const &order) {
        // The order has uniform names. The result has the names that the channels have here.
        Channels result(order, _isNamed);
        auto const indices = Channels(withOnePair(), _isNamed).getIndices(result);
        for (std::size_t i = 0; i < indices.size(); ++i)
            result._speakers[i] = _speakers[indices[i]];
        return result;
    };
    if (type == SF_FORMAT_OGG || type == SF_FORMAT_FLAC) {
        if (!isUsual)
            refuse();
        return inOrder(type == SF_FORMAT_OGG ? getVorbis(getNumber()) : getUsual(getNumber()));
    }
    if (!needNames())
        return inBlockOrder();
    if (type == SF_FORMAT_WAV || type == SF_FORMAT_WAVEX) {
        Speakers const speakers = sorted(_speakers);
        if (!tell(speakers))
            refuse();
        return Channels(speakers, true);
    }
    // AIFF can name some sets of channels, each in one order. The usual sets need no names.
    if (isUsual) {
        tell(getUsual(getNumber()));
        return inOrder(getUsual(getNumber()));
    }
    if (!tell(sorted(_speakers)))
        refuse();
    return Channels(sorted(_speakers), true);
}

std::vector<std::size_t> Channels::getIndices(Channels const &order) const
{
    std::vector<std::size_t> indices;
    std::vector<bool> isTaken(getNumber());
    for (int const speaker : order._speakers)
        for (std::size_t i = 0; i < getNumber(); ++i)
            if (!isTaken[i] && _speakers[i] == speaker) {
                isTaken[i] = true;
                indices.push_back(i);
                break;
            }
    return indices;
}

bool Channels::areThoseOf(Channels const &other) const
{
    return sorted(withOnePair()) == sorted(other.withOnePair());
}

std::string Channels::getName(std::size_t index) const
{
    auto const rank = static_cast<std::size_t>(getRank(_speakers[index]));
    return rank < std::size(SPEAKERS) ? SPEAKERS[rank].text
                                      : "channel " + std::to_string(index + 1);
}

std::string Channels::toText() const
{
    std::string text;
    for (int const name : _speakers) {
        text += text.empty() ? "" : ", ";
        auto const rank = static_cast<std::size_t>(getRank(name));
        text += rank < std::size(SPEAKERS) ? SPEAKERS[rank].text : "one without a name";
    }
    return text;
}

void Channels::refuse() const
{
    throw std::invalid_argument("such a file has no place for these channels: " + toText());
}

void reorder(std::vector<double> &samples, std::vector<std::size_t> const &indices)
{
    std::vector<double> frame(indices.size());
    for (auto first = samples.begin(); first != samples.end();
         first += static_cast<std::ptrdiff_t>(frame.size())) {
        for (std::size_t i = 0; i < frame.size(); ++i)
            frame[i] = first[static_cast<std::ptrdiff_t>(indices[i])];
        std::copy(frame.begin(), frame.end(), first);
    }
}
