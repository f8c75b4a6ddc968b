#include "fuzzing.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceManager/access/configParsers.private.h"

namespace ZvTest {

using namespace Zv;

ZV_FUZZ(property)
{
    LiString const config(reinterpret_cast<char const *>(data), size);
    try {
        PropertyConfigParser const parser(config);
        ZV_FUZZ_CHECK(!parser.getDeviceName().isEmpty());
    } catch (DevMgrEx::PropertySyntaxError const &failure) {
        ZV_FUZZ_CHECK(*failure.getReason());
    }
}

} // namespace ZvTest
