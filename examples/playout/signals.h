// Being stopped from outside.
#pragma once

/// SIGINT, SIGTERM and SIGHUP ask for an orderly stop, instead of ending the process, from `install` on. What cannot be
/// written, to a pipe or beyond a limit, is an error of the call and not the end of the process.
namespace Signals {

void install();
/// The signal that has asked for a stop; 0 while there is none.
int getCaught();

} // namespace Signals
