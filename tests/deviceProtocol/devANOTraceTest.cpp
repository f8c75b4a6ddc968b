#include "resmgt/deviceProtocol/devANOTrace.h"

#include "resmgt/deviceProtocol/devMDStdFifo.h"
#include "resmgt/deviceProtocol/devMDStdThreadProtocol.h"
#include "testing/traceFile.h"
#include "zvbase/traceEvents.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <thread>

namespace ZvTest {

using namespace Zv;

namespace {

/// Executes requests on the calling thread.
class Loop final : public DevMDStdThreadProtocol
{
public:
    explicit Loop(RCShdPtr<DevMDStdFifo> const &fifo) : DevMDStdThreadProtocol(fifo) {}

    using DevMDStdThreadProtocol::consume;

    void performExecute(MtThread *) override {}
    void performStop(MtThread *) override {}
};

class DevANOTraceTest : public testing::Test
{
protected:
    ~DevANOTraceTest() noexcept override {}

    void send(ObjPtr<DevANO> request) { EXPECT_FALSE(_fifo->send(request)); }
    /// Executes a request on a thread of its own.
    void consume()
    {
        std::thread([this] {
            TraceEvents::nameThread("device");
            Loop(_fifo).consume();
        }).join();
    }
    static std::string getWay(TracedEvents const &events)
    {
        std::string way;
        for (TracedEvent const &event : events.find("request")) {
            if (event.phase == 'X') {
                std::string const thread = events.nameOf(event.thread);
                way += event.name + (thread.empty() ? "; " : " on " + thread + "; ");
            }
        }
        return way;
    }

    TraceRecording _recording;
    RCShdPtr<DevMDStdFifo> const _fifo = makeShd<DevMDStdFifo>();
};

TEST_F(DevANOTraceTest, ARequestIsAFlowFromItsSenderToItsCompletion)
{
    ObjPtr<DevANO> request = makeANO([] { TraceEvents::instant("request", "executed"); });
    request->setACO(makeACO([] { TraceEvents::instant("request", "completing"); }));
    send(request);
    consume();
    TracedEvents const events = _recording.stop();
    events.expectNested();
    EXPECT_EQ(events.expectWholeFlows(), 1u);
    EXPECT_EQ(getWay(events), "send; execute on device; completed on device; ");
    double const completed = events.find("request", "completed").at(0).begin;
    EXPECT_LE(events.find("request", "executed").at(0).begin,
              events.find("request", "completing").at(0).begin);
    EXPECT_LE(events.find("request", "completing").at(0).begin, completed);
    EXPECT_LE(completed, events.find("request", "execute").at(0).end() + TracedEvents::ROUNDING);
}

TEST_F(DevANOTraceTest, WithoutACompletionTheFlowEndsWithTheExecution)
{
    send(makeANO([] {}));
    consume();
    TracedEvents const events = _recording.stop();
    EXPECT_EQ(events.expectWholeFlows(), 1u);
    EXPECT_EQ(getWay(events), "send; execute on device; completed on device; ");
    events.expectNested();
}

TEST_F(DevANOTraceTest, ACompletionThatIsDetachedTakesTheFlowAlong)
{
    ObjPtr<DevACO> completion;
    ObjPtr<DevANO> request = makeANO([&](DevMDStdANO &self) { completion = self.releaseACO(); });
    request->setACO(makeACO([] {}));
    send(request);
    consume();
    TraceEvents::nameThread("client");
    completion->performExecute();
    completion = nullptr;
    TracedEvents const events = _recording.stop();
    EXPECT_EQ(events.expectWholeFlows(), 1u);
    EXPECT_EQ(events.nameOf(events.find("request", "completed").at(0).thread), "client");
    TraceEvents::nameThread("");
}

TEST_F(DevANOTraceTest, ARequestThatIsDestroyedEndsItsFlow)
{
    send(makeANO([] {}));
    ObjPtr<DevANO> request = makeANO([] {});
    request->setACO(makeACO([] {}));
    send(request);
    _fifo->close();
    TracedEvents const events = _recording.stop();
    EXPECT_EQ(events.expectWholeFlows(), 2u);
    EXPECT_EQ(getWay(events), "send; send; completed; completed; ");
}

TEST_F(DevANOTraceTest, ARequestThatThrowsEndsItsFlow)
{
    class Failed final : public DevFailableACO
    {
    public:
        void performExecute() override { ADD_FAILURE(); }
        void performFail(std::exception_ptr const &) override {}
    };
    ObjPtr<DevANO> request = makeANO([] { throw std::runtime_error("x"); });
    request->setACO(makeObj<Failed>());
    send(request);
    consume();
    TracedEvents const events = _recording.stop();
    EXPECT_EQ(events.expectWholeFlows(), 1u);
    EXPECT_EQ(getWay(events), "send; execute on device; completed on device; ");
}

} // namespace
} // namespace ZvTest
