// What a user of the installed libraries can do with them: each package by its umbrella header, a
// lock, a string, a solved priority, and a device tree of one device.

#include <resmgt/containers.h>
#include <resmgt/deviceManager.h>
#include <resmgt/deviceProtocol.h>
#include <resmgt/literals.h>
#include <resmgt/locks.h>
#include <resmgt/smartPtrs.h>
#include <resmgt/syncEngine.h>
#include <resmgt/threadExtensions.h>
#include <resmgt/threads.h>
#include <resmgt/xml.h>
#include <zvbase/zvbase.h>

#include <cstdio>
#include <mutex>

using namespace Zv;

namespace {

int failures = 0;

LiString writeDocument()
{
    XmlWriter writer;
    writer.startElement("show");
    writer.startElement("clip");
    writer.endElement("clip");
    writer.endElement("show");
    return writer.getXml();
}

/// Written while the statics of the program are constructed. Those of the library must exist by
/// then.
LiString const earlyDocument = writeDocument();

void expect(bool condition, char const *what)
{
    if (!condition) {
        std::fprintf(stderr, "consumer: %s\n", what);
        ++failures;
    }
}

/// Completes each step at once.
class Prompt : public DevMDSyncSeqPrtcl
{
public:
    void performStart(ObjPtr<DevACO> aco, ObjPtr<DevANO>, ObjPtr<DevANO>) override
    {
        aco->performExecute();
    }
    void performSync(ObjPtr<DevACO> aco, DtTimeMark const &) override { aco->performExecute(); }
    void performSync(ObjPtr<DevACO> aco, DtTime const &) override { aco->performExecute(); }
    void performRecover(ObjPtr<DevACO> aco) override { aco->performExecute(); }
    void performStop(ObjPtr<DevACO> aco) override { aco->performExecute(); }
    void performAbort(ObjPtr<DevACO> aco) override { aco->performExecute(); }
    DtTime getLatency() override { return DtTime(); }
    DtTimeMark getMark() override { return DtTimeMark(); }
};

class PromptEntry : public DevRegistryEntry
{
public:
    PromptEntry() : DevRegistryEntry("prompt", "completes each step at once") {}
    RCShdPtr<DevMDPrtcl> createPrtcl() override { return makeShd<Prompt>(); }
};

void runTree()
{
    DevRegistry::getInstance().add(makeObj<PromptEntry>());
    ObjPtr<DevMgr> manager = DevMgr::create();
    ObjPtr<DevMgrSyncSeqAcc> sequence = manager->createSyncSeqAcc();
    sequence->configure("( prompt )");
    sequence->start();
    sequence->stop();
    sequence->wait();
    expect(sequence->getState("prompt") == "final", "the tree did not come to its end");
}

void failAcrossLibraries()
{
    try {
        static_cast<void>(*RCShdPtr<DevMDPrtcl>());
        expect(false, "a null pointer was dereferenced");
    } catch (std::domain_error const &failure) {
        expect(LiString(failure.what()) == "Dereferencing a null pointer",
               "another reason was expected");
    }
    try {
        LkMutex mutex("consumer");
        mutex.unlock();
        expect(false, "a free mutex was released");
    } catch (AssertionFailed const &failure) {
        expect(failure.getSystemError() == 288, "another system error was expected");
    }
}

} // namespace

int main()
{
    InPackageScope packages;
    expect(earlyDocument == writeDocument(), "a document was written too early");
    LkMutex const mutex("consumer");
    {
        std::lock_guard guard(mutex);
        expect(mutex.isLocked(), "the mutex is not locked");
    }
    expect(LiString("abc").hash() == (97 * 5 + 98) * 5 + 99, "the hash is another");
    expect(RtPriorities::getInstance().getInterruptPriority().getPriority() == 6,
           "interrupt is not 6");
    runTree();
    failAcrossLibraries();
    return failures;
}
