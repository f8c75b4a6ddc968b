// Turns the events of a show into cues.
#pragma once

#include "stage.h"

/// Gives the events of the show to the cues of `job`. Throws `PlayoutEx::Client`, with the place in
/// the show, if an event is wrong.
void setCues(Stage const &stage, PlayoutJob &job);
