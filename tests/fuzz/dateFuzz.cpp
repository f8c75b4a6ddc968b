#include "fuzzing.h"

#include "resmgt/literals.h"

namespace ZvTest {

using namespace Zv;

ZV_FUZZ(date)
{
    LiString const text(reinterpret_cast<char const *>(data), size);
    try {
        LiDate const date(text);
        // Written dates are truncated to milliseconds.
        LiDate const again(date.toString(OsDateTypes::UNIVERSAL));
        LiDate late(again);
        late += 0.002;
        ZV_FUZZ_CHECK(again <= date && date < late);
    } catch (OsDateEx::ExInvalidDate const &) {
    }
}

} // namespace ZvTest
