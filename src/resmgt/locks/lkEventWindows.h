// The platform form of LkEvent.
#pragma once

#include "resmgt/export.h"
#include "zvbase/platform/types.h"

#include <iosfwd>

namespace Zv {

/// A manual-reset event with a name. See LkEvent.
class ZVRESMGT_EXPORT LkEventWindows
{
public:
    LkEventWindows(char const *name, bool initialState);
    LkEventWindows(LkEventWindows const &) = delete;
    LkEventWindows &operator=(LkEventWindows const &) = delete;
    ~LkEventWindows() noexcept(false);

    void set();
    void reset();
    void wait() const;
    [[nodiscard]] bool timedWait(double seconds) const;
    char const *getName() const noexcept { return _name; }
    void dump(std::ostream &stream) const;

private:
    ZvPlatform::Handle _event;
    char const *_name;
};

} // namespace Zv
