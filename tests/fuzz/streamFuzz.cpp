#include "fuzzing.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceManager/access/configParsers.private.h"

namespace ZvTest {

using namespace Zv;

ZV_FUZZ(stream)
{
    LiString const config(reinterpret_cast<char const *>(data), size);
    try {
        StreamConfigParser const parser(config);
        ZV_FUZZ_CHECK(parser.getVerb() == StreamConfigParser::PUSH ||
                      parser.getVerb() == StreamConfigParser::PULL);
    } catch (DevMgrEx::ConfigSyntaxError const &failure) {
        ZV_FUZZ_CHECK(*failure.getReason());
    }
}

} // namespace ZvTest
