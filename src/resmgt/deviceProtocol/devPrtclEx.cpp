#include "resmgt/deviceProtocol/devPrtclEx.h"

namespace Zv {

DevPrtclEx::DevPrtclEx(char const *file, int line) noexcept : ExBase(file, line) {}

DevPrtclEx::ExNameNotRegistered::ExNameNotRegistered(char const *file, int line)
    : std::logic_error(""), DevPrtclEx(file, line)
{
    setReason("Device name not found in the registry.");
}

DevPrtclEx::ExNameNotRegistered::~ExNameNotRegistered() = default;

DevPrtclEx::ExNameNotUnique::ExNameNotUnique(char const *file, int line)
    : std::logic_error(""), DevPrtclEx(file, line)
{
    setReason("Not a unique name.");
}

DevPrtclEx::ExNameNotUnique::~ExNameNotUnique() = default;

DevPrtclEx::ExMDStdAddStream::ExMDStdAddStream(char const *file, int line)
    : std::logic_error(""), DevPrtclEx(file, line)
{
    setReason("Attempt to add stream after iterator created.");
}

DevPrtclEx::ExMDStdAddStream::~ExMDStdAddStream() = default;

DevPrtclEx::ExMDPropertyIllegalOp::ExMDPropertyIllegalOp(char const *file, int line,
                                                         char const *operation,
                                                         char const *property)
    : std::logic_error(""), DevPrtclEx(file, line)
{
    setReason("\"");
    setReason(operation);
    setReason("\" is not available for property ");
    setReason(property);
    setReason("\".");
}

DevPrtclEx::ExMDPropertyIllegalOp::~ExMDPropertyIllegalOp() = default;

DevPrtclEx::ExMDStdPropertiesReadUnavail::ExMDStdPropertiesReadUnavail(char const *file, int line,
                                                                       char const *device,
                                                                       char const *subject)
    : std::logic_error(""), DevPrtclEx(file, line)
{
    setReason("Read-only access to ");
    setReason(device);
    setReason(" ");
    setReason(subject);
    setReason(" forbidden while property builders are active.");
}

DevPrtclEx::ExMDStdPropertiesReadUnavail::~ExMDStdPropertiesReadUnavail() = default;

DevPrtclEx::ExMDStdPropertiesWriteUnavail::ExMDStdPropertiesWriteUnavail(char const *file, int line,
                                                                         char const *device)
    : std::logic_error(""), DevPrtclEx(file, line)
{
    setReason("Read-write access to ");
    setReason(device);
    setReason(" properties forbidden after read-only access has started.");
}

DevPrtclEx::ExMDStdPropertiesWriteUnavail::~ExMDStdPropertiesWriteUnavail() = default;

DevPrtclEx::ExMDStdPropertySetBuilderPop::ExMDStdPropertySetBuilderPop(char const *file, int line)
    : std::logic_error(""), DevPrtclEx(file, line)
{
    setReason("Trying to pop the builder's property stack when it is empty.");
}

DevPrtclEx::ExMDStdPropertySetBuilderPop::~ExMDStdPropertySetBuilderPop() = default;

DevPrtclEx::ExMDStdPropertyGet::ExMDStdPropertyGet(char const *file, int line, char const *property)
    : std::logic_error(""), DevPrtclEx(file, line)
{
    setReason("Error while getting the value for ");
    setReason(property ? property : "<unknown>");
}

DevPrtclEx::ExMDStdPropertyGet::~ExMDStdPropertyGet() = default;

} // namespace Zv
