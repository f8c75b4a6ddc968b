// Numbers as strings.
#pragma once

#include "resmgt/literals/liString.h"

namespace Zv {

/// Writes numbers as a new `std::ostringstream` does in the "C" locale, whatever locale the program has chosen.
class ZVRESMGT_EXPORT LiStringUtil
{
public:
    static LiString convertNb(int number);
    static LiString convertNb(unsigned int number);
    static LiString convertNb(long number);
    static LiString convertNb(unsigned long number);
    static LiString convertNb(float number);
    static LiString convertNb(double number);

    LiStringUtil() = delete;
};

} // namespace Zv
