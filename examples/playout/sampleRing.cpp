#include "sampleRing.h"

#include <sys/mman.h>

#include <algorithm>

SampleRing::SampleRing(int channels, std::int64_t frames)
    : _channels(static_cast<std::size_t>(channels)),
      _capacity(std::max<std::int64_t>(frames, 1)),
      _samples(static_cast<std::size_t>(_capacity) * _channels)
{
    ::mlock(_samples.data(), _samples.size() * sizeof(float));
}

SampleRing::~SampleRing()
{
    ::munlock(_samples.data(), _samples.size() * sizeof(float));
}
