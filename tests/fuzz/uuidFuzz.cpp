#include "fuzzing.h"

#include "resmgt/literals.h"

namespace ZvTest {

using namespace Zv;

ZV_FUZZ(uuid)
{
    LiString const text(reinterpret_cast<char const *>(data), size);
    try {
        LiUuid const uuid(text);
        ZV_FUZZ_CHECK(LiUuid(uuid.toString()) == uuid);
        ZV_FUZZ_CHECK(LiUuid(uuid.toString()).hash() == uuid.hash());
    } catch (LiUuidEx const &) {
    }
}

} // namespace ZvTest
