#include "resmgt/deviceManager/devMgrFailure.h"

#include "zvbase/exBase.h"

#include <ostream>

namespace Zv {

DevMgrFailureHandler::~DevMgrFailureHandler() = default;

LiString DevMgrFailure::getReason() const
{
    if (!exception)
        return "illegal event";
    try {
        std::rethrow_exception(exception);
    } catch (ExBase const &failure) {
        return failure.getDetailedReason();
    } catch (std::exception const &failure) {
        return failure.what();
    } catch (...) {
        return "exception of an unknown class";
    }
}

std::ostream &operator<<(std::ostream &stream, DevMgrFailure const &failure)
{
    if (!failure.device.isEmpty())
        stream << "device " << failure.device << ": ";
    if (!failure.property.isEmpty())
        stream << "observer of property " << failure.property << ": ";
    bool const hasEvent = !failure.event.isEmpty();
    bool const hasState = !failure.state.isEmpty();
    if (hasEvent)
        stream << "event \"" << failure.event << (hasState ? "\" " : "\": ");
    if (hasState)
        stream << "in state \"" << failure.state << "\": ";
    return stream << failure.getReason();
}

// ---- DevMgrCloseReport

Vector<LiString> DevMgrCloseReport::getLeftBehind() const
{
    Vector<LiString> names;
    for (Device const &device : devices)
        if (device.end == End::NOT_CLOSED || device.end == End::NOT_OPENED)
            names.push_back(device.name);
    return names;
}

} // namespace Zv
