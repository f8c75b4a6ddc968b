#include "resmgt/deviceManager/devMgrEx.h"

namespace Zv {

DevMgrEx::DevMgrEx(char const *file, int line) noexcept : ExBase(file, line) {}

DevMgrEx::NameNotUnique::NameNotUnique(char const *file, int line)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason("Not a unique name.");
}

DevMgrEx::NameNotUnique::~NameNotUnique() = default;

DevMgrEx::NameNotRegistered::NameNotRegistered(char const *file, int line)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason("Not a registered object.");
}

DevMgrEx::NameNotRegistered::~NameNotRegistered() = default;

DevMgrEx::NameNotFound::NameNotFound(char const *file, int line)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason("Named device not found.");
}

DevMgrEx::NameNotFound::~NameNotFound() = default;

DevMgrEx::ConfigSyntaxError::ConfigSyntaxError(char const *file, int line, char const *detail)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason(detail ? detail : "Configuration string Syntax error.");
}

DevMgrEx::ConfigSyntaxError::~ConfigSyntaxError() = default;

DevMgrEx::BadMDPrtclImp::BadMDPrtclImp(char const *file, int line)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason("Managed device protocol not implemented.");
}

DevMgrEx::BadMDPrtclImp::~BadMDPrtclImp() = default;

DevMgrEx::SMExecutionError::SMExecutionError(char const *file, int line)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason("State machine error condition.");
}

DevMgrEx::SMExecutionError::~SMExecutionError() = default;

DevMgrEx::SMDomainError::SMDomainError(char const *file, int line)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason("State machine domain error.");
}

DevMgrEx::SMDomainError::~SMDomainError() = default;

DevMgrEx::SMBadImp::SMBadImp(char const *file, int line)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason("State machine bad implementation.");
}

DevMgrEx::SMBadImp::~SMBadImp() = default;

DevMgrEx::SMBadTransitionImp::SMBadTransitionImp(char const *file, int line)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason("Bad transition implementation.");
}

DevMgrEx::SMBadTransitionImp::~SMBadTransitionImp() = default;

DevMgrEx::StreamNotAvailable::StreamNotAvailable(char const *file, int line, char const *detail)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason(detail);
}

DevMgrEx::StreamNotAvailable::~StreamNotAvailable() = default;

DevMgrEx::StreamsNotCompatible::StreamsNotCompatible(char const *file, int line, char const *detail)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason(detail);
}

DevMgrEx::StreamsNotCompatible::~StreamsNotCompatible() = default;

DevMgrEx::PropertySyntaxError::PropertySyntaxError(char const *file, int line, char const *detail)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason(detail ? detail : "Property string syntax error.");
}

DevMgrEx::PropertySyntaxError::~PropertySyntaxError() = default;

DevMgrEx::PropertyInvalidType::PropertyInvalidType(char const *file, int line, char const *property)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason("Illegal type converion of property ");
    setReason(property ? property : "<unknown>");
}

DevMgrEx::PropertyInvalidType::~PropertyInvalidType() = default;

DevMgrEx::SequenceAbandoned::SequenceAbandoned(char const *file, int line)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason("The sequence was abandoned before it had ended.");
}

DevMgrEx::SequenceAbandoned::~SequenceAbandoned() = default;

DevMgrEx::ManagerClosed::ManagerClosed(char const *file, int line)
    : std::logic_error(""), DevMgrEx(file, line)
{
    setReason("The device manager was closed.");
}

DevMgrEx::ManagerClosed::~ManagerClosed() = default;

DevMgrEx::SeqIllegalCall::SeqIllegalCall(char const *file, int line, char const *call,
                                         char const *why)
    : std::logic_error(""), DevMgrEx(file, line)
{
    formatReason("\"%s\" makes no sense now: %s", call, why);
}

DevMgrEx::SeqIllegalCall::~SeqIllegalCall() = default;

DevMgrEx::SeqDeviceFailed::SeqDeviceFailed(char const *file, int line, char const *device,
                                           char const *failure)
    : std::logic_error(""), DevMgrEx(file, line)
{
    formatReason("Device \"%s\" has failed: %s", device, failure);
}

DevMgrEx::SeqDeviceFailed::~SeqDeviceFailed() = default;

} // namespace Zv
