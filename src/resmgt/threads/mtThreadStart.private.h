// Start of a thread by a caller that waits for the thread's body.
#pragma once

namespace Zv {

class MtThread;

/// Starts a thread like `MtThread::start`, but may return before the thread has begun. The thread
/// then registers its log queue before its body. For a caller that waits for something that the
/// body does, or does not need the thread to have begun. It saves a switch to the new thread and
/// back.
void startWithoutMeeting(MtThread &thread);

} // namespace Zv
