// Memory of the simulation and of the services that run on it.
#pragma once

#include <cstddef>

namespace ZvPlatform::Simulated {

/// Returns memory that is zero, in whole pages, or null if there is none. It is never given back. A
/// page that is not touched costs nothing.
///
/// The memory comes from one mapping, so that a schedule need not map any. The first call creates
/// the mapping.
void *takeFromPool(std::size_t size);

} // namespace ZvPlatform::Simulated
