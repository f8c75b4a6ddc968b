#include "fuzzing.h"

#include "resmgt/literals.h"

#include <sstream>
#include <string>

namespace ZvTest {

using namespace Zv;

ZV_FUZZ(token)
{
    std::istringstream stream(std::string(reinterpret_cast<char const *>(data), size));
    std::size_t taken = 0;
    while (stream) {
        LiString const token = LiStringParser().readToken(stream);
        taken += static_cast<std::size_t>(token.getLength());
        ZV_FUZZ_CHECK(!stream.fail() || token.isEmpty());
    }
    ZV_FUZZ_CHECK(taken <= size);

    // A word is read like a std::string, and the stream is at the same place after it.
    std::istringstream words(std::string(reinterpret_cast<char const *>(data), size));
    std::istringstream same(words.str());
    LiString word;
    std::string expected;
    words >> word;
    same >> expected;
    ZV_FUZZ_CHECK(words.fail() == same.fail());
    ZV_FUZZ_CHECK(words.tellg() == same.tellg());
}

} // namespace ZvTest
