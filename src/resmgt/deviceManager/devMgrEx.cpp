#include "resmgt/deviceManager/devMgrEx.h"

#include "zvbase/exBody.private.h"

namespace Zv {

ZV_EXCEPTION_FAMILY_BODY(DevMgrEx)
ZV_EXCEPTION_BODY(DevMgrEx, NameNotUnique, std::logic_error, (), setReason("Not a unique name."))
ZV_EXCEPTION_BODY(DevMgrEx, NameNotRegistered, std::logic_error, (),
                  setReason("Not a registered object."))
ZV_EXCEPTION_BODY(DevMgrEx, NameNotFound, std::logic_error, (),
                  setReason("Named device not found."))
ZV_EXCEPTION_BODY(DevMgrEx, ConfigSyntaxError, std::logic_error, (char const *detail),
                  setReason(detail ? detail : "Configuration string Syntax error."))
ZV_EXCEPTION_BODY(DevMgrEx, BadMDPrtclImp, std::logic_error, (),
                  setReason("Managed device protocol not implemented."))
ZV_EXCEPTION_BODY(DevMgrEx, SMExecutionError, std::logic_error, (),
                  setReason("State machine error condition."))
ZV_EXCEPTION_BODY(DevMgrEx, SMDomainError, std::logic_error, (),
                  setReason("State machine domain error."))
ZV_EXCEPTION_BODY(DevMgrEx, SMBadImp, std::logic_error, (),
                  setReason("State machine bad implementation."))
ZV_EXCEPTION_BODY(DevMgrEx, SMBadTransitionImp, std::logic_error, (),
                  setReason("Bad transition implementation."))
ZV_EXCEPTION_BODY(DevMgrEx, StreamNotAvailable, std::logic_error, (char const *detail),
                  setReason(detail))
ZV_EXCEPTION_BODY(DevMgrEx, StreamsNotCompatible, std::logic_error, (char const *detail),
                  setReason(detail))
ZV_EXCEPTION_BODY(DevMgrEx, PropertySyntaxError, std::logic_error, (char const *detail),
                  setReason(detail ? detail : "Property string syntax error."))
ZV_EXCEPTION_BODY(DevMgrEx, PropertyInvalidType, std::logic_error, (char const *property),
                  setReason("Illegal type converion of property "),
                  setReason(property ? property : "<unknown>"))
ZV_EXCEPTION_BODY(DevMgrEx, SequenceAbandoned, std::logic_error, (),
                  setReason("The sequence was abandoned before it had ended."))
ZV_EXCEPTION_BODY(DevMgrEx, ManagerClosed, std::logic_error, (),
                  setReason("The device manager was closed."))
ZV_EXCEPTION_BODY(DevMgrEx, SeqIllegalCall, std::logic_error, (char const *call, char const *why),
                  formatReason("\"%s\" makes no sense now: %s", call, why))
ZV_EXCEPTION_BODY(DevMgrEx, SeqDeviceFailed, std::logic_error,
                  (char const *device, char const *failure),
                  formatReason("Device \"%s\" has failed: %s", device, failure))

} // namespace Zv
