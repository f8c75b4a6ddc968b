// The types that the value of a property can have.
#pragma once

#include "zvbase/containers.h"

#include <concepts>
#include <cstdint>

/// Writes `apply(T)` once for each of the 22 value types.
#define ZV_FOR_EACH_PROPERTY_TYPE(apply)                                                           \
    ZV_FOR_PROPERTY_TYPE(apply, bool)                                                              \
    ZV_FOR_PROPERTY_TYPE(apply, signed char)                                                       \
    ZV_FOR_PROPERTY_TYPE(apply, unsigned char)                                                     \
    ZV_FOR_PROPERTY_TYPE(apply, short)                                                             \
    ZV_FOR_PROPERTY_TYPE(apply, unsigned short)                                                    \
    ZV_FOR_PROPERTY_TYPE(apply, int)                                                               \
    ZV_FOR_PROPERTY_TYPE(apply, unsigned int)                                                      \
    ZV_FOR_PROPERTY_TYPE(apply, std::int64_t)                                                      \
    ZV_FOR_PROPERTY_TYPE(apply, std::uint64_t)                                                     \
    ZV_FOR_PROPERTY_TYPE(apply, float)                                                             \
    ZV_FOR_PROPERTY_TYPE(apply, double)
#define ZV_FOR_PROPERTY_TYPE(apply, Type) apply(Type) apply(::Zv::Vector<Type>)

namespace Zv {

namespace Detail {

template <class T, class... Types>
concept OneOf = (std::same_as<T, Types> || ...);

template <class T>
concept PropertyScalar = OneOf<T, bool, signed char, unsigned char, short, unsigned short, int,
                               unsigned int, std::int64_t, std::uint64_t, float, double>;

} // namespace Detail

/// A type that a property can have: one of eleven scalars, or a vector of one. The 64-bit scalars are `std::int64_t` and
/// `std::uint64_t`. On Linux these are `long` types, so that `long long` is not a property type there.
template <class T>
concept DevMDPropertyValue = Detail::PropertyScalar<T> ||
    (Detail::PropertyScalar<typename T::value_type>
         &&std::same_as<T, Vector<typename T::value_type>>);

} // namespace Zv
