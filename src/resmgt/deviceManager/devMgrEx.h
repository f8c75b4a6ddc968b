// Failures of the device manager and of the machines that it runs.
#pragma once

#include "resmgt/export.h"
#include "zvbase/exBase.h"

#include <stdexcept>

namespace Zv {

/// Failures that a client of the device manager meets: in names, configuration strings,
/// connections, and in the state machines of devices. All are programmer's or configuration errors,
/// `std::logic_error`.
///
/// `file` is `__FILE__` of the throwing source. Names and details are copied.
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

/// A name is already taken. "Not a unique name."
class ZVRESMGT_EXPORT DevMgrEx::NameNotUnique : public std::logic_error, public DevMgrEx
{
public:
    NameNotUnique(char const *file, int line);
    ~NameNotUnique() override;
    ZV_EXCEPTION_MEMBERS(NameNotUnique)
};

/// An object is not registered. "Not a registered object."
class ZVRESMGT_EXPORT DevMgrEx::NameNotRegistered : public std::logic_error, public DevMgrEx
{
public:
    NameNotRegistered(char const *file, int line);
    ~NameNotRegistered() override;
    ZV_EXCEPTION_MEMBERS(NameNotRegistered)
};

/// There is nothing of this name: no stream of the device, no device in a sequence, no device that was created, or, in a
/// property string, no registered device. "Named device not found."
class ZVRESMGT_EXPORT DevMgrEx::NameNotFound : public std::logic_error, public DevMgrEx
{
public:
    NameNotFound(char const *file, int line);
    ~NameNotFound() override;
    ZV_EXCEPTION_MEMBERS(NameNotFound)
};

/// A sequence or stream string is wrong: the detail, or for a null one "Configuration string Syntax
/// error."
class ZVRESMGT_EXPORT DevMgrEx::ConfigSyntaxError : public std::logic_error, public DevMgrEx
{
public:
    ConfigSyntaxError(char const *file, int line, char const *detail);
    ~ConfigSyntaxError() override;
    ZV_EXCEPTION_MEMBERS(ConfigSyntaxError)
};

/// A device does not implement the protocol that an operation needs, or a stream is not a source or sink of the class
/// that a connection needs. "Managed device protocol not implemented."
class ZVRESMGT_EXPORT DevMgrEx::BadMDPrtclImp : public std::logic_error, public DevMgrEx
{
public:
    BadMDPrtclImp(char const *file, int line);
    ~BadMDPrtclImp() override;
    ZV_EXCEPTION_MEMBERS(BadMDPrtclImp)
};

/// A machine that has ended in failure was given an event. "State machine error condition."
class ZVRESMGT_EXPORT DevMgrEx::SMExecutionError : public std::logic_error, public DevMgrEx
{
public:
    SMExecutionError(char const *file, int line);
    ~SMExecutionError() override;
    ZV_EXCEPTION_MEMBERS(SMExecutionError)
};

/// A state, event or transition is not one of the machine. "State machine domain error."
class ZVRESMGT_EXPORT DevMgrEx::SMDomainError : public std::logic_error, public DevMgrEx
{
public:
    SMDomainError(char const *file, int line);
    ~SMDomainError() override;
    ZV_EXCEPTION_MEMBERS(SMDomainError)
};

/// A machine's table does not fit together. "State machine bad implementation."
class ZVRESMGT_EXPORT DevMgrEx::SMBadImp : public std::logic_error, public DevMgrEx
{
public:
    SMBadImp(char const *file, int line);
    ~SMBadImp() override;
    ZV_EXCEPTION_MEMBERS(SMBadImp)
};

/// A machine's factory lacks a transition, or made one that cannot be asked its condition.
/// "Bad transition implementation."
class ZVRESMGT_EXPORT DevMgrEx::SMBadTransitionImp : public std::logic_error, public DevMgrEx
{
public:
    SMBadTransitionImp(char const *file, int line);
    ~SMBadTransitionImp() override;
    ZV_EXCEPTION_MEMBERS(SMBadTransitionImp)
};

/// A stream is in use: the detail.
class ZVRESMGT_EXPORT DevMgrEx::StreamNotAvailable : public std::logic_error, public DevMgrEx
{
public:
    StreamNotAvailable(char const *file, int line, char const *detail);
    ~StreamNotAvailable() override;
    ZV_EXCEPTION_MEMBERS(StreamNotAvailable)
};

/// Two streams cannot be connected: the detail.
class ZVRESMGT_EXPORT DevMgrEx::StreamsNotCompatible : public std::logic_error, public DevMgrEx
{
public:
    StreamsNotCompatible(char const *file, int line, char const *detail);
    ~StreamsNotCompatible() override;
    ZV_EXCEPTION_MEMBERS(StreamsNotCompatible)
};

/// A property string is wrong: the detail, or for a null one "Property string syntax error."
class ZVRESMGT_EXPORT DevMgrEx::PropertySyntaxError : public std::logic_error, public DevMgrEx
{
public:
    PropertySyntaxError(char const *file, int line, char const *detail);
    ~PropertySyntaxError() override;
    ZV_EXCEPTION_MEMBERS(PropertySyntaxError)
};

/// A property was asked for with a type that is not its own. The misspelling of its text, "Illegal
/// type converion of property ", is part of the interface; a null name reads "<unknown>".
class ZVRESMGT_EXPORT DevMgrEx::PropertyInvalidType : public std::logic_error, public DevMgrEx
{
public:
    PropertyInvalidType(char const *file, int line, char const *property);
    ~PropertyInvalidType() override;
    ZV_EXCEPTION_MEMBERS(PropertyInvalidType)
};

/// A sequence was destroyed, or its manager closed, before a thread that waited for its end had seen it. "The sequence was
/// abandoned before it had ended."
class ZVRESMGT_EXPORT DevMgrEx::SequenceAbandoned : public std::logic_error, public DevMgrEx
{
public:
    SequenceAbandoned(char const *file, int line);
    ~SequenceAbandoned() override;
    ZV_EXCEPTION_MEMBERS(SequenceAbandoned)
};

/// The manager of an object was closed by `DevMgr::close`. "The device manager was closed."
class ZVRESMGT_EXPORT DevMgrEx::ManagerClosed : public std::logic_error, public DevMgrEx
{
public:
    ManagerClosed(char const *file, int line);
    ~ManagerClosed() override;
    ZV_EXCEPTION_MEMBERS(ManagerClosed)
};

/// A call of a supervised sequence makes no sense at the moment. `"start" makes no sense now: the sequence has ended.`
class ZVRESMGT_EXPORT DevMgrEx::SeqIllegalCall : public std::logic_error, public DevMgrEx
{
public:
    SeqIllegalCall(char const *file, int line, char const *call, char const *why);
    ~SeqIllegalCall() override;
    ZV_EXCEPTION_MEMBERS(SeqIllegalCall)
};

/// A device of a supervised sequence has failed. `Device "camera" has failed: No signal.`
class ZVRESMGT_EXPORT DevMgrEx::SeqDeviceFailed : public std::logic_error, public DevMgrEx
{
public:
    SeqDeviceFailed(char const *file, int line, char const *device, char const *failure);
    ~SeqDeviceFailed() override;
    ZV_EXCEPTION_MEMBERS(SeqDeviceFailed)
};

} // namespace Zv
