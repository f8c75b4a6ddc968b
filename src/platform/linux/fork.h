// What a fork does to the services.
#pragma once

namespace ZvPlatform::Linux {

/// Arranges that the services can be used in the child of a fork. There the other threads have ended as if each had
/// been killed: their handles are signalled, their mutexes abandoned, and they wait for nothing. Called once.
void prepareForForks();

} // namespace ZvPlatform::Linux
