// From the events of a show to what is done.
#pragma once

#include "stage.h"

/// Hands the events of the stage's show to the cues of its job. What is wrong with one is thrown as
/// `PlayoutEx::Client`, with its place.
void setCues(Stage const &stage, PlayoutJob &job);
