// Request for real-time scheduling.
#pragma once

#include <string>
#include <vector>

namespace RealTime {

/// Asks for real-time scheduling. Must be called before the packages start.
void request();
/// Returns the result of the request as lines for the user: that it was granted, or why not and
/// what would grant it. Must be called while the packages are up.
std::vector<std::string> getOutcome();

} // namespace RealTime
