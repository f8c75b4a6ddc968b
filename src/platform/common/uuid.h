// Functions for identifiers that all forms of the platform share. Each form has its own source of
// random bytes.
#pragma once

#include "platform/services.h"

namespace ZvPlatform {

/// Makes an identifier from 16 random bytes.
void makeRandomUuid(unsigned char (&bytes)[16], UUID &uuid);

} // namespace ZvPlatform
