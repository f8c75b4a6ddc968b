// Registration of the devices of a show.
#pragma once

#include "playoutJob.h"

#include <string>

/// Keeps an entry for a device in the registry while it lives.
class Registration
{
public:
    /// Throws `PlayoutEx::Client` if the registry refuses the entry, for example because the name
    /// is taken.
    Registration(ShowDevice const &device, Zv::RCShdPtr<PlayoutJob> const &job);
    Registration(Registration const &) = delete;
    Registration &operator=(Registration const &) = delete;
    ~Registration() noexcept(false);

private:
    std::string const _name;
};
