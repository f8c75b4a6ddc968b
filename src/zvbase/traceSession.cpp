#include "zvbase/traceSession.h"

#include "platform/services.h"
#include "zvbase/baseLock.private.h"
#include "zvbase/exBody.private.h"
#include "zvbase/exSysError.h"
#include "zvbase/failures.h"
#include "zvbase/traceJson.private.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <new>
#include <string_view>
#include <utility>

namespace Zv {

ZV_EXCEPTION_FAMILY_BODY(TraceEx)
ZV_EXCEPTION_BODY(TraceEx, ExAlreadyOn, std::logic_error, (),
                  setReason("The trace of events is on already."))
ZV_EXCEPTION_BODY(TraceEx, ExFile, std::runtime_error, (char const *path, int systemError),
                  formatReason("The trace of events \"%s\" cannot be written: %s", path,
                               std::strerror(systemError)))

namespace {

/// The end of the array. The next events overwrite it.
constexpr std::string_view END = "\n]\n";
constexpr DWORD PERIOD = 20; // milliseconds between two looks at the ring
/// A thread that takes longer to write a record is probably dead.
constexpr int LOOKS = 1000;                   // each a millisecond apart
constexpr std::size_t LARGEST_TEXT = 1 << 20; // bytes that are written at once
/// If a process is killed while it writes, the file ends at a multiple of this size, in bytes.
constexpr std::size_t PAGE = 4096;
constexpr std::string_view SEPARATOR = ",\n"; // the objects themselves have no line ends

/// Returns the objects with spaces between them, so that no object that fits into a page crosses the
/// end of a page, if the first one is written at `position`.
std::string fillPages(std::string_view objects, std::uintmax_t position)
{
    std::string text;
    for (;;) {
        std::size_t const room = PAGE - (position + text.size()) % PAGE;
        if (objects.size() <= room)
            return text += objects;
        std::size_t fitting = objects.rfind(SEPARATOR, room);
        if (room == PAGE && (fitting == 0 || fitting == objects.npos)) {
            fitting = std::min(objects.find(SEPARATOR, 1), objects.size());
            text += objects.substr(0, fitting);
        } else {
            fitting = fitting == objects.npos ? 0 : fitting;
            text += objects.substr(0, fitting);
            text.append(room - fitting, ' ');
        }
        objects.remove_prefix(fitting);
    }
}

/// An array in a file that is complete after each operation. During an operation it may lack the
/// end of the array.
class ArrayFile
{
public:
    explicit ArrayFile(std::string const &path) : _path(path), _file(std::fopen(path.c_str(), "wb"))
    {
        if (!_file)
            ZV_THROW(TraceEx::ExFile, path.c_str(), errno);
        // So a fork copies no text that is not written yet.
        std::setvbuf(_file, nullptr, _IONBF, 0);
        _isSeekable = std::fseek(_file, 0, SEEK_SET) == 0;
    }
    ~ArrayFile()
    {
        if (_file)
            std::fclose(_file);
    }
    ArrayFile(ArrayFile const &) = delete;
    ArrayFile &operator=(ArrayFile const &) = delete;

    /// Adds objects. After a failure does nothing.
    void append(std::string_view objects)
    {
        if (_error)
            return;
        if (!_isSeekable) {
            write(objects);
            return;
        }
        std::fpos_t end;
        bool const isAtEnd =
            (_size == 0 || std::fseek(_file, -static_cast<long>(END.size()), SEEK_END) == 0) &&
            std::fgetpos(_file, &end) == 0;
        if (!isAtEnd) {
            _error = errno;
            return;
        }
        std::string const text = fillPages(objects, _size) += END;
        if (write(text)) {
            _size += text.size() - END.size();
        } else if (std::fsetpos(_file, &end) == 0) {
            // The end needs no new place on the disk, because it was here before.
            int const error = std::exchange(_error, 0);
            write(END);
            _error = error;
            std::error_code ignored;
            std::filesystem::resize_file(_path, _size + END.size(), ignored);
        }
    }
    /// Ends the file. Throws the first failure.
    void close()
    {
        if (!_isSeekable && !_error)
            write(END);
        if (std::fclose(std::exchange(_file, nullptr)) != 0 && !_error)
            _error = errno;
        if (_error)
            ZV_THROW(TraceEx::ExFile, _path.c_str(), _error);
    }

private:
    bool write(std::string_view text)
    {
        while (!text.empty()) {
            errno = 0;
            text.remove_prefix(std::fwrite(text.data(), 1, text.size(), _file));
            if (!text.empty() && errno != EINTR) {
                _error = errno ? errno : EIO;
                return false;
            }
            std::clearerr(_file);
        }
        return true;
    }

    std::string _path;
    std::FILE *_file;
    std::uintmax_t _size = 0; // without the end of the array
    bool _isSeekable = false;
    int _error = 0;
};

constinit BaseLock sessionLock;
constinit bool isAnySession ZV_GUARDED_BY(sessionLock) = false;

} // namespace

/// The thread that empties the ring, and what it needs.
class TraceSession::Writer
{
public:
    Writer(std::string const &path, Settings const &settings);
    ~Writer();
    Writer(Writer const &) = delete;
    Writer &operator=(Writer const &) = delete;

    void stop();
    std::uint64_t getNbLost() const { return _ring.getNbLost() - _nbLostBefore; }

private:
    static TraceRing &provideRing();
    static ZvPlatform::ThreadResult run(void *writer);
    bool isInChild() const { return ::GetCurrentProcessId() != _process; }
    void work() noexcept;
    void drain() noexcept;
    void drainLast() noexcept;
    void formatFront(TraceRecord const &record) noexcept;
    void flush() noexcept;

    BaseLock _stopLock;
    DWORD _process = ::GetCurrentProcessId();
    TraceRing &_ring = provideRing();
    std::uint64_t _nbLostBefore = _ring.getNbLost();
    std::uint64_t _nbLostTold = 0;
    ArrayFile _file;
    TraceJson _json;
    std::string _text;
    std::uint64_t _blocked = 0; // position of the record that was not whole at the last look
    int _nbLooks = 0;
    HANDLE _wake = nullptr;
    HANDLE _thread = nullptr;
    bool _isStopping = false; // guarded by _stopLock
    ZvPlatform::Shared<bool> _mustEnd{false};
};

/// Kept for the next session, because a thread may be recording a late event.
TraceRing &TraceSession::Writer::provideRing()
{
    if (!TraceEvents::_ring.load(ZvPlatform::Order::RELAXED))
        TraceEvents::_ring.store(new TraceRing(CAPACITY), ZvPlatform::Order::RELEASE);
    return *TraceEvents::_ring.load(ZvPlatform::Order::RELAXED);
}

TraceSession::Writer::Writer(std::string const &path, Settings const &settings)
    : _file(path), _json(_process, _ring.getNbFlows())
{
    _file.append("[\n" + _json.getProcessName(settings.processName));
    LARGE_INTEGER frequency;
    ::QueryPerformanceFrequency(&frequency);
    TraceEvents::_waitLimit.store(
        static_cast<std::int64_t>(settings.lockWaitLimit * static_cast<double>(frequency.QuadPart)),
        ZvPlatform::Order::RELAXED);
    _wake = ::CreateEventA(nullptr, FALSE, FALSE, nullptr);
    if (_wake)
        _thread = ::CreateThread(nullptr, 0, &run, this, 0, nullptr);
    if (!_thread) {
        ExSysErrorWindows const failure(__FILE__, __LINE__);
        if (_wake)
            ::CloseHandle(_wake);
        throw failure;
    }
    ::SetThreadDescription(_thread, L"TraceSession");
    TraceEvents::_session.fetch_add(1, ZvPlatform::Order::RELAXED);
    TraceEvents::setOn(true);
}

TraceSession::Writer::~Writer()
{
    try {
        stop();
    } catch (...) {
        // A destructor has no caller to tell.
    }
}

void TraceSession::Writer::stop()
{
    // The lock may belong to a thread that the child does not have.
    if (isInChild()) {
        TraceEvents::setOn(false);
        return;
    }
    BaseGuard const guard(_stopLock);
    if (std::exchange(_isStopping, true))
        return;
    TraceEvents::setOn(false);
    _mustEnd.store(true, ZvPlatform::Order::RELEASE);
    ::SetEvent(_wake);
    ::WaitForSingleObject(_thread, INFINITE);
    ::CloseHandle(_thread);
    ::CloseHandle(_wake);
    {
        BaseGuard const session(sessionLock);
        isAnySession = false;
    }
    _file.close();
}

ZvPlatform::ThreadResult TraceSession::Writer::run(void *writer)
{
    static_cast<Writer *>(writer)->work();
    return 0;
}

void TraceSession::Writer::work() noexcept
{
    while (!_mustEnd.load(ZvPlatform::Order::ACQUIRE)) {
        ::WaitForSingleObject(_wake, PERIOD);
        drain();
    }
    drainLast();
}

/// Writes the records that are whole. Withdraws a place whose writer takes too long.
void TraceSession::Writer::drain() noexcept
{
    while (TraceRecord const * const record = _ring.getFront())
        formatFront(*record);
    std::uint64_t const head = _ring.getHead();
    if (head == _ring.getTail() || head != std::exchange(_blocked, head))
        _nbLooks = 0;
    else if (++_nbLooks == LOOKS / static_cast<int>(PERIOD))
        _ring.withdrawFront();
    flush();
}

void TraceSession::Writer::drainLast() noexcept
{
    std::uint64_t const end = _ring.getTail(); // later records belong to no session
    for (int nbLooks = 0; _ring.getHead() < end;) {
        if (TraceRecord const * const record = _ring.getFront()) {
            formatFront(*record);
        } else if (_ring.getHead() < end && ++nbLooks <= LOOKS) {
            ::Sleep(1);
        } else {
            _ring.withdrawFront();
        }
    }
    try {
        _json.appendOpenSpans(_text);
    } catch (std::bad_alloc const &) {
        _ring.countLoss();
    }
    flush();
}

void TraceSession::Writer::formatFront(TraceRecord const &record) noexcept
{
    std::size_t const length = _text.size();
    try {
        _json.append(_text, record);
    } catch (std::bad_alloc const &) {
        _text.resize(length);
        _ring.countLoss();
    }
    _ring.pop();
    if (_text.size() > LARGEST_TEXT)
        flush();
}

void TraceSession::Writer::flush() noexcept
{
    try {
        if (std::uint64_t const nbLost = getNbLost(); nbLost != _nbLostTold) {
            _json.appendLoss(_text, nbLost);
            _nbLostTold = nbLost;
        }
        if (!_text.empty())
            _file.append(_text);
    } catch (std::bad_alloc const &) {
        _ring.countLoss();
    }
    _text.clear();
}

// ---- TraceSession

TraceSession::TraceSession(std::string const &path, Settings const &settings)
{
    {
        BaseGuard const guard(sessionLock);
        if (std::exchange(isAnySession, true))
            ZV_THROW(TraceEx::ExAlreadyOn);
    }
    try {
        _writer.reset(new Writer(path, settings));
    } catch (...) {
        BaseGuard const guard(sessionLock);
        isAnySession = false;
        throw;
    }
}

TraceSession::TraceSession(std::string const &path) : TraceSession(path, Settings()) {}

TraceSession::~TraceSession() = default;

void TraceSession::stop()
{
    _writer->stop();
}

std::uint64_t TraceSession::getNbLost() const
{
    return _writer->getNbLost();
}

} // namespace Zv
