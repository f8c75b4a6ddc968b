#include "resmgt/deviceManager/sequence/devSeqEv.h"

namespace Zv {

namespace {

constexpr DevSeqEv::Names names = {"start",   "ready", "sready",  "proceed",  "lock",  "mlock",
                                   "recover", "stop",  "stopped", "sstopped", "abort", "aborted"};

} // namespace

DevSeqEv::Names const &DevSeqEv::getNames()
{
    return names;
}

} // namespace Zv
