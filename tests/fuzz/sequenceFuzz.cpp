#include "fuzzing.h"

#include "resmgt/deviceManager.h"
#include "resmgt/deviceManager/access/configParsers.private.h"

namespace ZvTest {

using namespace Zv;

ZV_FUZZ(sequence)
{
    LiString const config(reinterpret_cast<char const *>(data), size);
    try {
        SeqConfigParser const parser(config);
        for (SeqConfigParser::Edge const &edge : parser.getEdges()) {
            ZV_FUZZ_CHECK(edge.size() == 2);
            ZV_FUZZ_CHECK(!edge[1].isEmpty());
        }
    } catch (DevMgrEx::ConfigSyntaxError const &) {
    }
}

} // namespace ZvTest
