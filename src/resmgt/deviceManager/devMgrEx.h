// Exceptions of the device manager and of the state machines that it runs (applications).
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Exceptions that a client of the device manager meets: in names, configuration strings and
/// connections, and in the state machines of devices. All are errors of the program or of its
/// configuration, so all are `std::logic_error`.
///
/// Constructors copy the names and details that they get.
class ZVRESMGT_EXPORT DevMgrEx : public ExBase
{
public:
    class NameNotUnique;
    class NameNotRegistered;
    class NameNotFound;
    class ConfigSyntaxError;
    class BadMDPrtclImp;
    class SMExecutionError;
    class SMDomainError;
    class SMBadImp;
    class SMBadTransitionImp;
    class StreamNotAvailable;
    class StreamsNotCompatible;
    class PropertySyntaxError;
    class PropertyInvalidType;
    class SequenceAbandoned;
    class ManagerClosed;
    class SeqIllegalCall;
    class SeqDeviceFailed;

    DevMgrEx(char const *file, int line) noexcept;
};

/// Thrown if a name is already taken. "Not a unique name."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, NameNotUnique, std::logic_error, DevMgrEx);

/// Thrown if a device has no property or property set of a name, or if a stream string names a
/// stream that is not registered. "Not a registered object."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, NameNotRegistered, std::logic_error, DevMgrEx);

/// Thrown if a device is unknown: it is not in the sequence, it was never created, or, in a
/// property string, it is not registered. Also thrown if a device has no stream of a name.
/// "Named device not found."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, NameNotFound, std::logic_error, DevMgrEx);

/// Thrown if a sequence string or a stream string has a syntax error. The reason is `detail`, or
/// "Configuration string Syntax error." if `detail` is null.
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, ConfigSyntaxError, std::logic_error, DevMgrEx,
             char const *detail);

/// Thrown if a device does not implement the protocol that an operation needs, or if a stream is
/// not a source or sink of the class that a connection needs.
/// "Managed device protocol not implemented."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, BadMDPrtclImp, std::logic_error, DevMgrEx);

/// Thrown if a state machine that has failed before gets an event. "State machine error condition."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, SMExecutionError, std::logic_error, DevMgrEx);

/// Thrown if a state, event or transition does not belong to the state machine.
/// "State machine domain error."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, SMDomainError, std::logic_error, DevMgrEx);

/// Thrown if the table of a state machine is inconsistent. "State machine bad implementation."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, SMBadImp, std::logic_error, DevMgrEx);

/// Thrown if the factory of a state machine lacks a transition, or if it made a transition that
/// cannot be asked for its condition. "Bad transition implementation."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, SMBadTransitionImp, std::logic_error, DevMgrEx);

/// Thrown if a stream is in use already. The reason is `detail`.
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, StreamNotAvailable, std::logic_error, DevMgrEx,
             char const *detail);

/// Thrown if two streams cannot be connected. The reason is `detail`.
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, StreamsNotCompatible, std::logic_error, DevMgrEx,
             char const *detail);

/// Thrown if a property string has a syntax error. The reason is `detail`, or
/// "Property string syntax error." if `detail` is null.
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, PropertySyntaxError, std::logic_error, DevMgrEx,
             char const *detail);

/// Thrown if a property is accessed as a type that is not its own. The reason is "Illegal type
/// converion of property " and the name, or "<unknown>" if the name is null. The misspelling is
/// part of the interface.
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, PropertyInvalidType, std::logic_error, DevMgrEx,
             char const *property);

/// Thrown if a sequence is destroyed, or its manager is closed, while a thread waits for the end of
/// the sequence. "The sequence was abandoned before it had ended."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, SequenceAbandoned, std::logic_error, DevMgrEx);

/// Thrown if an object is used after its manager was closed by `DevMgr::close`.
/// "The device manager was closed."
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, ManagerClosed, std::logic_error, DevMgrEx);

/// Thrown if the state of a supervised sequence does not allow a call.
/// `"start" makes no sense now: the sequence has ended.`
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, SeqIllegalCall, std::logic_error, DevMgrEx,
             char const *call, char const *why);

/// Thrown if a device of a supervised sequence has failed. `Device "camera" has failed: No signal.`
ZV_EXCEPTION(ZVRESMGT_EXPORT, DevMgrEx, SeqDeviceFailed, std::logic_error, DevMgrEx,
             char const *device, char const *failure);

} // namespace Zv
