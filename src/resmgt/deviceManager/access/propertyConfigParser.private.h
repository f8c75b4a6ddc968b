// The property string: `device : set : set : property`, with any number of sets.
#pragma once

#include "resmgt/deviceManager/access/configTokens.private.h"

namespace Zv {

/// Parses in its constructor. A bad string is a `DevMgrEx::PropertySyntaxError` whose reason is the echo of what was
/// accepted and the complaint.
class PropertyConfigParser
{
public:
    explicit PropertyConfigParser(LiString const &config);

    LiString const &getDeviceName() const { return _deviceName; }
    LiString const &getPropertyName() const { return _propertyName; }
    /// From the device's root inwards.
    Vector<LiString> const &getSetNames() const { return _setNames; }

private:
    [[noreturn]] void fail(char const *message) const;
    LiString take();
    void takeColon(char const *message);

    ConfigTokens _tokens;
    LiString const _nullString;
    LiString _deviceName;
    LiString _propertyName;
    Vector<LiString> _setNames;
};

} // namespace Zv
