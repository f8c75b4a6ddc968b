// Tests of what all exception classes have in common.

#include "resmgt/containers/iteratorEx.h"
#include "resmgt/deviceManager/devMgrEx.h"
#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "resmgt/literals/liStringEx.h"
#include "resmgt/literals/liUuidEx.h"
#include "resmgt/locks/lkEx.h"
#include "resmgt/memoryBuffers/mbEx.h"
#include "resmgt/threads/mtEx.h"
#include "resmgt/threads/priorityEx.h"
#include "resmgt/xml/xmlEx.h"
#include "testing/allocations.h"
#include "zvbase/objPtr.h"
#include "zvbase/rcEx.h"
#include "zvbase/typeName.h"

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>

namespace ZvTest {

using namespace Zv;

namespace {

/// The first one of the two bases.
enum First
{
    STANDARD,
    FAMILY
};

bool isAt(void const *base, void const *object)
{
    return base == object;
}

template <First FIRST, class Failure, class Family, class Standard, class... Arguments>
void check(Arguments... arguments)
{
    SCOPED_TRACE(nameType(typeid(Failure)));
    AllocationCount const count;
    Failure const failure("x.cpp", 7, arguments...);
    std::size_t const made = count.get();
    EXPECT_EQ(made, 0u) << "a failure is made without memory";

    Family const &family = failure;
    Standard const &standard = failure;
    EXPECT_EQ(isAt(&standard, &failure), FIRST == STANDARD);
    EXPECT_EQ(isAt(&family, &failure), FIRST == FAMILY);

    ObjPtr<ExBase> const clone(failure.clone());
    EXPECT_EQ(typeid(*clone), typeid(Failure));
    EXPECT_STREQ(clone->getReason(), failure.getReason());
    EXPECT_STREQ(standard.what(), failure.getReason());
    EXPECT_EQ(std::string("x.cpp(7): ") + failure.getReason(), failure.getDetailedReason());
    EXPECT_THROW(throw Failure(failure), Family);
    EXPECT_THROW(throw Failure(failure), Standard);
    EXPECT_THROW(throw Failure(failure), ExBase);
}

TEST(Failures, OfMostFamiliesAreStandardFirst)
{
    check<STANDARD, RCEx::ExNullPtr, RCEx, std::domain_error>();
    check<STANDARD, IteratorEx::ExOutOfRange, IteratorEx, std::out_of_range>();
    check<STANDARD, LiStringEx::ExOutOfBounds, LiStringEx, std::range_error>(3, 0, 2);
    LiString const text("x");
    check<STANDARD, LiUuidEx::ExInvalidUuidString, LiUuidEx, std::invalid_argument>(text);
    check<STANDARD, LiUuidEx::ExInternalError, LiUuidEx, std::runtime_error>("UuidCreate");
    check<STANDARD, MbEx::ExRangeError, MbEx, std::range_error>("x");
    check<STANDARD, MbEx::ExInvalidArgument, MbEx, std::invalid_argument>("x");
    check<STANDARD, MbEx::ExNotEnoughMemory, MbEx, std::range_error>("x");
    check<STANDARD, MbEx::ExIllegalTransition, MbEx, std::logic_error>("x", "lock", "y");
}

TEST(Failures, OfDevicesAreStandardFirst)
{
    using Prtcl = DevPrtclEx;
    check<STANDARD, Prtcl::ExNameNotUnique, Prtcl, std::logic_error>();
    check<STANDARD, Prtcl::ExNameNotRegistered, Prtcl, std::logic_error>();
    check<STANDARD, Prtcl::ExMDStdAddStream, Prtcl, std::logic_error>();
    check<STANDARD, Prtcl::ExMDPropertyIllegalOp, Prtcl, std::logic_error>("get", "x");
    check<STANDARD, Prtcl::ExMDStdPropertiesReadUnavail, Prtcl, std::logic_error>("x", "y");
    check<STANDARD, Prtcl::ExMDStdPropertiesWriteUnavail, Prtcl, std::logic_error>("x");
    check<STANDARD, Prtcl::ExMDStdPropertySetBuilderPop, Prtcl, std::logic_error>();
    check<STANDARD, Prtcl::ExMDStdPropertyGet, Prtcl, std::logic_error>("x");
    using Mgr = DevMgrEx;
    check<STANDARD, Mgr::NameNotUnique, Mgr, std::logic_error>();
    check<STANDARD, Mgr::NameNotRegistered, Mgr, std::logic_error>();
    check<STANDARD, Mgr::NameNotFound, Mgr, std::logic_error>();
    check<STANDARD, Mgr::ConfigSyntaxError, Mgr, std::logic_error>("x");
    check<STANDARD, Mgr::BadMDPrtclImp, Mgr, std::logic_error>();
    check<STANDARD, Mgr::SMExecutionError, Mgr, std::logic_error>();
    check<STANDARD, Mgr::SMDomainError, Mgr, std::logic_error>();
    check<STANDARD, Mgr::SMBadImp, Mgr, std::logic_error>();
    check<STANDARD, Mgr::SMBadTransitionImp, Mgr, std::logic_error>();
    check<STANDARD, Mgr::StreamNotAvailable, Mgr, std::logic_error>("x");
    check<STANDARD, Mgr::StreamsNotCompatible, Mgr, std::logic_error>("x");
    check<STANDARD, Mgr::PropertySyntaxError, Mgr, std::logic_error>("x");
    check<STANDARD, Mgr::PropertyInvalidType, Mgr, std::logic_error>("x");
    check<STANDARD, Mgr::SequenceAbandoned, Mgr, std::logic_error>();
    check<STANDARD, Mgr::ManagerClosed, Mgr, std::logic_error>();
    check<STANDARD, Mgr::SeqIllegalCall, Mgr, std::logic_error>("stop", "x");
    check<STANDARD, Mgr::SeqDeviceFailed, Mgr, std::logic_error>("x", "y");
}

TEST(Failures, OfXmlAreStandardFirst)
{
    check<STANDARD, XmlEx::ExSyntaxError, XmlEx, std::domain_error>();
    check<STANDARD, XmlEx::ExLexicalError, XmlEx, std::domain_error>();
    check<STANDARD, XmlEx::ExXmlVersionNotSupported, XmlEx, std::domain_error>();
    check<STANDARD, XmlEx::ExChildNotFound, XmlEx, std::domain_error>();
    check<STANDARD, XmlEx::ExNonExistentAttribute, XmlEx, std::domain_error>();
    check<STANDARD, XmlEx::ExConversionError, XmlEx, std::domain_error>();
    check<STANDARD, XmlEx::ExSaxParsingError, ExBase, std::invalid_argument>("x");
}

TEST(Failures, OfLocksThreadsAndPrioritiesAreOfTheirFamilyFirst)
{
    check<FAMILY, LkEx::ExDeadLock, LkEx, std::runtime_error>("LkMutex", "x", 7u, "self");
    check<FAMILY, MtEx::ExNotImplemented, MtEx, std::runtime_error>("x");
    check<FAMILY, MtEx::ExNoContent, MtEx, std::runtime_error>("MtOpaqueData", "x");
    check<FAMILY, MtEx::ExStdThrownException, MtEx, std::runtime_error>("x", "y");
    check<FAMILY, MtEx::ExRealTimeNotEnabled, MtEx, std::runtime_error>("x");
    using Priority = PriorityEx;
    check<FAMILY, Priority::ExTransientInvalid, Priority, std::logic_error>("x", 1, 2);
    check<FAMILY, Priority::ExRelationInvalid, Priority, std::logic_error>("x", "a", 1, "<", "b",
                                                                           2);
}

TEST(Failures, OfPrioritiesHaveOneThatIsNoStandardException)
{
    static_assert(!std::is_base_of_v<std::exception, PriorityEx::ExError>);
    AllocationCount const count;
    PriorityEx::ExError const failure("x.cpp", 7, "the text");
    EXPECT_EQ(count.get(), 0u);
    EXPECT_STREQ(failure.getReason(), "the text");
}

TEST(Failures, ThatCarryOneAreMadeWithoutMemory)
{
    ExBase * const carried = RCEx::ExNullPtr("y.cpp", 8).clone();
    AllocationCount const count;
    MtEx::ExThrownException const failure("x.cpp", 7, carried);
    EXPECT_EQ(count.get(), 0u);
    EXPECT_TRUE(isAt(static_cast<MtEx const *>(&failure), &failure));
    EXPECT_FALSE(isAt(static_cast<std::runtime_error const *>(&failure), &failure));
    EXPECT_STREQ(failure.what(), "Dereferencing a null pointer");
}

} // namespace
} // namespace ZvTest
