#include "resmgt/deviceProtocol/devPrtclEx.h"

#include "zvbase/exBody.private.h"

namespace Zv {

ZV_EXCEPTION_FAMILY_BODY(DevPrtclEx)
ZV_EXCEPTION_BODY(DevPrtclEx, ExNameNotRegistered, std::logic_error, (),
                  setReason("Device name not found in the registry."))
ZV_EXCEPTION_BODY(DevPrtclEx, ExNameNotUnique, std::logic_error, (),
                  setReason("Not a unique name."))
ZV_EXCEPTION_BODY(DevPrtclEx, ExMDStdAddStream, std::logic_error, (),
                  setReason("Attempt to add stream after iterator created."))
ZV_EXCEPTION_BODY(DevPrtclEx, ExMDPropertyIllegalOp, std::logic_error,
                  (char const *operation, char const *property), setReason("\""),
                  setReason(operation), setReason("\" is not available for property "),
                  setReason(property), setReason("\"."))
ZV_EXCEPTION_BODY(DevPrtclEx, ExMDStdPropertiesReadUnavail, std::logic_error,
                  (char const *device, char const *subject), setReason("Read-only access to "),
                  setReason(device), setReason(" "), setReason(subject),
                  setReason(" forbidden while property builders are active."))
ZV_EXCEPTION_BODY(DevPrtclEx, ExMDStdPropertiesWriteUnavail, std::logic_error, (char const *device),
                  setReason("Read-write access to "), setReason(device),
                  setReason(" properties forbidden after read-only access has started."))
ZV_EXCEPTION_BODY(DevPrtclEx, ExMDStdPropertySetBuilderPop, std::logic_error, (),
                  setReason("Trying to pop the builder's property stack when it is empty."))
ZV_EXCEPTION_BODY(DevPrtclEx, ExMDStdPropertyGet, std::logic_error, (char const *property),
                  setReason("Error while getting the value for "),
                  setReason(property ? property : "<unknown>"))

} // namespace Zv
