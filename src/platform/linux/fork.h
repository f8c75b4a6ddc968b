// Keeps the services usable in the child of a fork.
#pragma once

namespace ZvPlatform::Linux {

/// Prepares the process for forks. In the child of a fork the other threads have ended as if each
/// had been killed: their handles are signalled, their mutexes are abandoned, and they wait for
/// nothing. Must be called once.
void prepareForForks();

} // namespace ZvPlatform::Linux
