// All headers of the values: strings, timecode, identifiers, dates (applications).
#pragma once

#include "resmgt/literals/liDate.h"
#include "resmgt/literals/liFormat.h"
#include "resmgt/literals/liString.h"
#include "resmgt/literals/liStringEx.h"
#include "resmgt/literals/liStringUtil.h"
#include "resmgt/literals/liTimeCode.h"
#include "resmgt/literals/liTimestamp.h"
#include "resmgt/literals/liUuid.h"
#include "resmgt/literals/liUuidEx.h"
