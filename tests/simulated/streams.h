// Sink and source streams of simulated devices.
#pragma once

#include "resmgt/deviceProtocol.h"

namespace Zv::Simulated {

struct Samples : DevMDStreamBuf
{
    explicit Samples(int v) : value(v) {}
    int value;
};

struct Format : DevMDStreamFormat
{};

class Sink : public DevMDStdStreamPassiveSink
{
public:
    using DevMDStdStreamPassiveSink::DevMDStdStreamPassiveSink;
    int getKind() override { return 0; }
    bool isCompatible(RCShdPtr<DevMDStreamFormat> const &) override { return true; }
};

class Source : public DevMDStdStreamActiveSource
{
public:
    using DevMDStdStreamActiveSource::DevMDStdStreamActiveSource;
    int getKind() override { return 0; }
    RCShdPtr<DevMDStreamFormat> getFormat() override { return makeShd<Format>(); }
    void connect(RCShdPtr<DevMDStreamPassiveSink> sink) override { _sink = sink; }
    void push(int value)
    {
        _sink->push(makeObj<DevMDStreamElem>(makeShd<Samples>(value), DevMDStreamElem::Ev{}));
    }

private:
    RCShdPtr<DevMDStreamPassiveSink> _sink;
};

} // namespace Zv::Simulated
