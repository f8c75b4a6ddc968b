// Real-time operation.
#pragma once

#include <string>
#include <vector>

namespace RealTime {

/// Asks for it. To be called before the packages come up.
void request();
/// What came of it, for the user, line by line: what the threads have, or why not and what would grant it. To be called when the
/// packages are up.
std::vector<std::string> getOutcome();

} // namespace RealTime
