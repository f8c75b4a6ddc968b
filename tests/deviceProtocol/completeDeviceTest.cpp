// Example of a complete device: a thread, a sequence, a stream and properties.

#include "recording.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace ZvTest {
namespace {

struct Samples : DevMDStreamBuf
{
    explicit Samples(Vector<double> v) : values(std::move(v)) {}
    Vector<double> values;
};

/// Device that measures the peak of the elements that are pushed into it.
class PeakMeter : public DevMDStdAccessPrtcl,
                  public DevMDStdSyncSeqPrtcl,
                  public DevMDStdStreamPrtcl,
                  public DevMDStdPropertyPrtcl
{
public:
    explicit PeakMeter(LiString const &name, RCShdPtr<DevMDStdFifo> const &fifo)
        : DevMDStdAccessPrtcl(name, fifo, makeObj<DevMDStdLoopThreadProtocol>(fifo),
                              makeAccessANOFactory(*this)),
          DevMDStdSyncSeqPrtcl(name, fifo, makeSyncSeqANOFactory(*this)),
          DevMDStdStreamPrtcl(name),
          DevMDStdPropertyPrtcl(name)
    {
        addStream(makeShd<In>(
            "in", "What is measured", fifo,
            makePushANOFactory([this](ObjPtr<DevMDStreamElem> elem) { measure(*elem); })));
        ObjPtr<DevMDStdPropertySetBuilder> builder(getPropertySetBuilder());
        builder->pushSet("meter", "The measurement");
        _peakProperty =
            makeShd<Peak>("peak", "Largest value so far; set to begin anew", 3u,
                          makePropertyANOFactory<double>([this](double value) { _peak = value; },
                                                         [this](double &value) {
                                                             value = _peak;
                                                             return _running;
                                                         }),
                          fifo);
        builder->addProperty(_peakProperty);
    }

    // Called on the device's thread.
    void open() {}
    void close() { _running = false; }
    void start(ObjPtr<DevANO>, ObjPtr<DevANO>) { _running = true; }
    void sync(DtTimeMark const &) {}
    void sync(DtTime const &) {}
    void recover() {}
    void stop() { _running = false; }
    void abort() { _running = false; }

    // Called on other threads.
    DtTime getLatency() override { return DtTime(); }
    DtTimeMark getMark() override { return DtTimeMark(); }

private:
    struct In : DevMDStdStreamPassiveSink
    {
        using DevMDStdStreamPassiveSink::DevMDStdStreamPassiveSink;
        int getKind() override { return 0; }
        bool isCompatible(RCShdPtr<DevMDStreamFormat> const &) override { return true; }
    };
    struct Peak : DevMDStdProperty<double>
    {
        using DevMDStdProperty<double>::DevMDStdProperty;
        using DevMDStdProperty<double>::notify;
    };

    void measure(DevMDStreamElem const &elem)
    {
        auto const samples = rcDynamicCast<Samples>(elem.getBuf());
        double const peak = *std::max_element(samples->values.begin(), samples->values.end());
        if (_running && peak > _peak) {
            _peak = peak;
            _peakProperty->notify(DevMDPropertyAEO::ALL_EVENTS);
        }
    }

    double _peak = 0;
    bool _running = false;
    RCShdPtr<Peak> _peakProperty;
};

TEST(CompleteDevice, RunsThroughItsFourFaces)
{
    RCShdPtr<DevMDPrtcl> const device(new PeakMeter("meter", makeShd<DevMDStdFifo>()));
    auto &access = dynamic_cast<DevMDAccessPrtcl &>(*device);
    auto &sequence = dynamic_cast<DevMDSyncSeqPrtcl &>(*device);
    auto &streams = dynamic_cast<DevMDStreamPrtcl &>(*device);
    auto &properties = dynamic_cast<DevMDPropertyPrtcl &>(*device);
    RCShdPtr<DevMDStreamPassiveSink> const in =
        rcDynamicCast<DevMDStreamPassiveSink>(*streams.performGetStreams());
    RCShdPtr<DevMDPropertyAny> const any = *(*properties.getPropertySetIter())->getPropertyIter();
    RCShdPtr<DevMDProperty<double>> const peak = rcDynamicCast<DevMDProperty<double>>(any);
    auto const push = [&](Vector<double> values) {
        in->push(
            makeObj<DevMDStreamElem>(makeShd<Samples>(std::move(values)), DevMDStreamElem::Ev{}));
    };

    struct Observer : DevMDPropertyAEO
    {
        explicit Observer(int &n) : nbChanges(n) {}
        void performNotify(unsigned int) override { ++nbChanges; }
        int &nbChanges;
    };
    int nbChanges = 0; // used by the device's thread until it has ended
    peak->setObserverAEO(makeObj<Observer>(nbChanges));

    access.performOpen();
    double value = -1;
    EXPECT_THROW(peak->get(value), DevPrtclEx::ExMDStdPropertyGet); // not yet started
    LkUnnamedSema started("started", 0);
    sequence.performStart(makeACO([&] { started.post(); }), nullptr, nullptr);
    started.wait();
    push({1, 3, 2});
    push({2, 2});
    push({5});
    peak->get(value);
    EXPECT_EQ(value, 5);
    peak->set(0);
    push({4});
    peak->get(value);
    EXPECT_EQ(value, 4);
    access.performClose();
    EXPECT_EQ(nbChanges, 3);
    EXPECT_THROW(peak->get(value), DevPrtclEx::ExMDStdPropertyGet);
}

} // namespace
} // namespace ZvTest
