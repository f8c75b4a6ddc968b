// Format of a recording.
#pragma once

#include "channels.h"

#include <sndfile.h>

#include <cstdint>

struct AudioFormat
{
    int channels = 0;
    Channels layout;         // the channels, in the order of blocks
    int rate = 0;            // frames per second
    int encoding = 0;        // of the source file, a subtype of libsndfile
    std::int64_t frames = 0; // or UNKNOWN

    static constexpr std::int64_t UNKNOWN = -1;

    /// Returns the bits of a sample if the encoding is PCM, else 0.
    static int getPcmBits(int encoding)
    {
        switch (encoding) {
        case SF_FORMAT_PCM_S8:
        case SF_FORMAT_PCM_U8:
            return 8;
        case SF_FORMAT_PCM_16:
            return 16;
        case SF_FORMAT_PCM_24:
            return 24;
        case SF_FORMAT_PCM_32:
            return 32;
        default:
            return 0;
        }
    }
};
