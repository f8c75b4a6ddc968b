// Shared helpers of the tests of devices: a log that threads write to, requests that write to it,
// and a turnstile.
#pragma once

#include "resmgt/deviceProtocol.h"
#include "testing/failures.h"
#include "testing/journal.h"
#include "testing/turnstile.h"

#include <algorithm>
#include <exception>
#include <mutex>
#include <semaphore>
#include <stdexcept>
#include <string>
#include <vector>

namespace ZvTest {

using namespace Zv;

/// Request that logs its name when it is executed and when it is destroyed.
class RecordingANO : public DevMDStdANO
{
public:
    RecordingANO(Journal &log, std::string name) : _log(log), _name(std::move(name)) {}
    ~RecordingANO() override { _log.add("~" + _name); }

    void performExecute() override { _log.add(_name); }

private:
    Journal &_log;
    std::string _name;
};

class RecordingACO : public DevACO
{
public:
    RecordingACO(Journal &log, std::string name) : _log(log), _name(std::move(name)) {}
    ~RecordingACO() override { _log.add("~" + _name); }

    void performExecute() override { _log.add(_name); }

private:
    Journal &_log;
    std::string _name;
};

/// A member whose destructor throws, so that the destructor of its object does.
class FailingEnd
{
public:
    FailingEnd(Journal &log, std::string name) : _log(log), _name(std::move(name)) {}
    FailingEnd(FailingEnd const &) = delete;
    FailingEnd &operator=(FailingEnd const &) = delete;
    ~FailingEnd() noexcept(false)
    {
        _log.add("~" + _name);
        if (std::uncaught_exceptions() == 0)
            throw std::runtime_error(_name);
    }

private:
    Journal &_log;
    std::string _name;
};

class FailingANO : public DevMDStdANO
{
public:
    FailingANO(Journal &log, std::string const &name) : _end(log, name) {}

    void performExecute() override {}

private:
    FailingEnd _end;
};

inline ObjPtrRet<DevMDStdANO> recordingANO(Journal &log, std::string const &name)
{
    return ObjPtrRet<DevMDStdANO>(new RecordingANO(log, name));
}

inline ObjPtrRet<DevACO> recordingACO(Journal &log, std::string const &name)
{
    return ObjPtrRet<DevACO>(new RecordingACO(log, name));
}

inline void produce(DevMDStdFifo &fifo, ObjPtr<DevANO> ano)
{
    DevANOQueueEntry entry(ano);
    fifo.produce(entry);
}

/// Executes the requests in the FIFO, on the calling thread.
inline void drain(DevMDStdFifo &fifo)
{
    for (DevANOQueueEntry entry; fifo.tryConsume(entry);) {
        ObjPtr<DevANO> ano(entry.release());
        ano->performExecute();
        ano->notify();
    }
}

/// Observer that releases a semaphore for each entry that is put into its FIFO.
class CountingObs : public DevMDStdFifoObs
{
public:
    explicit CountingObs(std::counting_semaphore<> &produced) : _produced(produced) {}

    void performProduced(DevANOQueue &, DevANOQueueEntry const &) override { _produced.release(); }

private:
    std::counting_semaphore<> &_produced;
};

} // namespace ZvTest
