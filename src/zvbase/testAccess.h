// The one door that tests have to private members (extenders).
#pragma once

namespace Zv {

/// Gives tests access to the private members of `Class`: a class befriends it, and a test specialises it.
template <class Class>
struct TestAccess;

} // namespace Zv
