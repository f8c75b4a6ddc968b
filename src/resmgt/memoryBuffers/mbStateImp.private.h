// What all states do unless they say otherwise.
#pragma once

#include "resmgt/memoryBuffers/mbEvent.h"
#include "resmgt/memoryBuffers/mbState.h"

#include <string>

namespace Zv {

/// The name of an event, as reports have it: "rdlock".
char const *nameOf(MbEvent event);

/// Refuses every event, and is stable.
class MbStateImp : public MbState
{
public:
    void rdlock(MbBufferImp *buffer) const override;
    void wrlock(MbBufferImp *buffer) const override;
    void wrdup(MbBufferImp *buffer) const override;
    void prefetch(MbBufferImp *buffer) const override;
    void asyncSync(MbBufferImp *buffer) const override;
    void sync(MbBufferImp *buffer) const override;
    void unlock(MbBufferImp *buffer) const override;
    void unload(MbBufferImp *buffer) const override;
    void free(MbBufferImp *buffer) const override;
    void destroy(MbBufferImp *buffer) const override;
    void asyncOpSucceeded(MbBufferImp *buffer) const override;
    void asyncOpFailed(MbBufferImp *buffer) const override;

    bool isLoaded() const override;
    MbState const *entering(MbBufferImp *buffer) const override;
    void leaving(MbBufferImp *buffer) const override;

    /// The state's name in reports.
    std::string getTypeName() const;

protected:
    /// Writes one line at the level "MbBuffers": `what` happens to the buffer in this state.
    void write(MbBufferImp const &buffer, char const *what) const;

private:
    [[noreturn]] void refuse(MbBufferImp const &buffer, MbEvent event) const;
};

} // namespace Zv
