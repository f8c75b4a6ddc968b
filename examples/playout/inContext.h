// Adds context to failures.
#pragma once

#include "playoutEx.h"

#include <string>

/// Runs a step. Throws `PlayoutEx::Client`, with `context` before the reason, if the step throws an
/// exception of the library or a `std::exception`. A `PlayoutEx` is passed on as it is.
template <class Step>
void inContext(std::string const &context, Step step)
{
    try {
        step();
    } catch (PlayoutEx const &) {
        throw; // needs no context
    } catch (Zv::ExBase const &failure) {
        ZV_THROW(PlayoutEx::Client, (context + ": " + failure.getReason()).c_str());
    } catch (std::exception const &failure) {
        ZV_THROW(PlayoutEx::Client, (context + ": " + failure.what()).c_str());
    }
}
