// The devices that a show may have.
#pragma once

#include "playoutJob.h"

#include <string>

/// Has a device of the job's show in the registry for as long as it lives.
class Registration
{
public:
    /// Throws `PlayoutEx::Client` where the name is taken.
    Registration(ShowDevice const &device, Zv::RCShdPtr<PlayoutJob> const &job);
    Registration(Registration const &) = delete;
    Registration &operator=(Registration const &) = delete;
    ~Registration() noexcept(false);

private:
    std::string const _name;
};
