// Compiles the umbrella headers behind the macros of <windows.h>. No name of the library may be one
// of them.
//
// The standard headers come first. They have to get along with the system's headers by themselves.

#include <algorithm>
#include <any>
#include <array>
#include <bit>
#include <chrono>
#include <compare>
#include <complex>
#include <concepts>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <exception>
#include <functional>
#include <initializer_list>
#include <iomanip>
#include <iosfwd>
#include <iostream>
#include <iterator>
#include <limits>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <new>
#include <numeric>
#include <optional>
#include <queue>
#include <random>
#include <set>
#include <shared_mutex>
#include <span>
#include <sstream>
#include <stack>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <tuple>
#include <type_traits>
#include <typeinfo>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <variant>
#include <vector>
#include <version>

#ifdef _WIN32

#include <windows.h>

#else

// Macros of the system's headers with names that a library could choose. Their value is no valid
// C++, so that each use fails to compile. A macro with arguments, such as FAILED, is replaced only
// in front of a parenthesis.
#define ABSOLUTE 1 +
#define ALTERNATE 1 +
#define CALLBACK 1 +
#define CONST 1 +
#define CreateEvent 1 +
#define CreateMutex 1 +
#define CreateSemaphore 1 +
#define DELETE 1 +
#define DIFFERENCE 1 +
#define DOMAIN 1 +
#define ERROR 1 +
#define FAILED(result) 1 +
#define FALSE 1 +
#define GetMessage 1 +
#define GetObject 1 +
#define IGNORE 1 +
#define IN 1 +
#define INFINITE 1 +
#define MAXIMUM_ALLOWED 1 +
#define NO_ERROR 1 +
#define OPAQUE 1 +
#define OPTIONAL 1 +
#define OUT 1 +
#define OVERFLOW 1 +
#define PASSTHROUGH 1 +
#define PURE 1 +
#define RELATIVE 1 +
#define STRICT 1 +
#define SUCCEEDED(result) 1 +
#define SYNCHRONIZE 1 +
#define TRANSPARENT 1 +
#define TRUE 1 +
#define UNDERFLOW 1 +
#define VOID 1 +
#define Yield 1 +
#define far 1 +
#define hyper 1 +
#define interface 1 +
#define near 1 +
#define pascal 1 +
#define small 1 +

#endif

#include "resmgt/memoryBuffers.h" // calls std::max in a template

// Without NOMINMAX, <windows.h> defines these two.
#ifndef _WIN32
#define max(a, b) 1 +
#define min(a, b) 1 +
#endif

#include "resmgt/containers.h"
#include "resmgt/deviceManager.h"
#include "resmgt/deviceProtocol.h"
#include "resmgt/dynamicAllocation.h"
#include "resmgt/literals.h"
#include "resmgt/locks.h"
#include "resmgt/packages.h"
#include "resmgt/resmgt.h"
#include "resmgt/smartPtrs.h"
#include "resmgt/syncEngine.h"
#include "resmgt/threadExtensions.h"
#include "resmgt/threads.h"
#include "resmgt/xml.h"
#include "zvbase/zvbase.h"
