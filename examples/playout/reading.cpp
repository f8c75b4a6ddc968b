#include "reading.h"

using namespace Zv;

Reading::Reading(LiString const &name, LiString const &description, RCShdPtr<DevMDStdFifo> fifo)
    : DevMDStdProperty<double>(name, description, READABLE,
                               makePropertyANOFactory<double>([](double) {},
                                                              [this](double &value) {
                                                                  value = _value;
                                                                  _isUnread = false;
                                                              }),
                               fifo)
{}

void Reading::show(double value)
{
    if (value == _value)
        return;
    _value = value;
    if (_isUnread)
        return;
    _isUnread = true;
    notify(DevMDPropertyAEO::ALL_EVENTS);
}
