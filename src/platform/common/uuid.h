// What all forms of the layer know of identifiers; where the random bytes come from is each one's own business.
#pragma once

#include "platform/services.h"

namespace ZvPlatform {

/// Makes an identifier of 16 random bytes.
void makeRandomUuid(unsigned char (&bytes)[16], UUID &uuid);

} // namespace ZvPlatform
