#include "resmgt/deviceManager/devMgrCloseReport.h"

namespace Zv {

Vector<LiString> DevMgrCloseReport::getLeftBehind() const
{
    Vector<LiString> names;
    for (Device const &device : devices)
        if (device.end == End::NOT_CLOSED || device.end == End::NOT_OPENED)
            names.push_back(device.name);
    return names;
}

} // namespace Zv
