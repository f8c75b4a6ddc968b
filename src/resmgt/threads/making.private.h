// What a thread makes for its own trace lines must not ask for itself.
#pragma once

namespace Zv {

/// Marks that the calling thread is at making something: its failure may be traced, and that line does without it.
class Making
{
public:
    explicit Making(bool &isMaking) : _isMaking(isMaking) { _isMaking = true; }
    Making(Making const &) = delete;
    Making &operator=(Making const &) = delete;
    ~Making() { _isMaking = false; }

private:
    bool &_isMaking;
};

} // namespace Zv
