// Saying what a failure is about.
#pragma once

#include "playoutEx.h"

#include <string>

/// Runs a step; what the library, or a `std::exception`, finds wrong in it becomes a `PlayoutEx::Client` that bears the
/// step's name.
template <class Step>
void inContext(std::string const &context, Step step)
{
    try {
        step();
    } catch (PlayoutEx const &) {
        throw; // says all by itself
    } catch (Zv::ExBase const &failure) {
        ZV_THROW(PlayoutEx::Client, (context + ": " + failure.getReason()).c_str());
    } catch (std::exception const &failure) {
        ZV_THROW(PlayoutEx::Client, (context + ": " + failure.what()).c_str());
    }
}
