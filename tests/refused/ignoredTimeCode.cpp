// error: ignoring return value

#pragma GCC diagnostic error "-Wunused-result"

#include <resmgt/literals.h>

void use()
{
    Zv::LiTimeCodePal::create();
}
