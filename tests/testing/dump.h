// Text that an object writes, for tests to compare.
#pragma once

#include <sstream>
#include <string>

namespace ZvTest {

/// Returns what `object.dump` writes with these arguments after the stream.
template <class Object, class... Arguments>
std::string dumpOf(Object const &object, Arguments... arguments)
{
    std::ostringstream text;
    object.dump(text, arguments...);
    return text.str();
}

/// Returns what `<<` writes.
template <class Object>
std::string textOf(Object const &object)
{
    std::ostringstream text;
    text << object;
    return text.str();
}

} // namespace ZvTest
