#include "zvbase/typeName.h"

#if __has_include(<cxxabi.h>)
#include <cstdlib>
#include <cxxabi.h>
#include <memory>
#endif

namespace Zv {

std::string nameType(std::type_info const &type)
{
#if __has_include(<cxxabi.h>)
    int status = 0;
    std::unique_ptr<char, void (*)(void *)> const readable(
        abi::__cxa_demangle(type.name(), nullptr, nullptr, &status), std::free);
    if (readable)
        return readable.get();
#endif
    return type.name();
}

} // namespace Zv
