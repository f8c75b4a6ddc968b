#include "zvbase/assertions.h"

#include "zvbase/exSysError.h"
#include "zvbase/lgLine.h"
#include "zvbase/unwinding.h"

#include <cstdio>
#include <string>

namespace Zv {

namespace {

/// A report without its place. The text lies in the object, so that a report needs no memory.
class Report
{
public:
    explicit Report(char const *expression)
    {
        std::snprintf(_text, sizeof _text, "Assertion \"%s\" failed", expression);
    }
    Report(char const *expression, int systemError)
    {
        char const * const meaning = ExSysError::getMeaning(systemError);
        std::snprintf(_text, sizeof _text, "Assertion \"%s\" failed, system error %d%s%s",
                      expression, systemError, meaning ? ": " : "", meaning ? meaning : "");
    }

    char const *get() const { return _text; }

private:
    char _text[1024];
};

constexpr char ABORTED[] = "Program aborted";

std::string withPlace(char const *file, int line, char const *text)
{
    return std::string(file) + "(" + std::to_string(line) + "): " + text;
}

/// Writes a report to the trace. If that fails, the assertion is still thrown.
void trace(char const *file, int line, char const *text) noexcept
{
    try {
        LgLine trace;
        trace.begin(file, line) << text;
    } catch (...) {
    }
}

} // namespace

AssertionFailed::AssertionFailed(char const *file, int line, char const *expression)
    : std::logic_error(withPlace(file, line, Report(expression).get())),
      _file(file),
      _line(line),
      _expression(expression),
      _hasSystemError(false),
      _systemError(0)
{}

AssertionFailed::AssertionFailed(char const *file, int line, char const *expression,
                                 int systemError)
    : std::logic_error(withPlace(file, line, Report(expression, systemError).get())),
      _file(file),
      _line(line),
      _expression(expression),
      _hasSystemError(true),
      _systemError(systemError)
{}

AssertionFailed::~AssertionFailed() = default;

ProgramAborted::ProgramAborted(char const *file, int line)
    : std::logic_error(withPlace(file, line, ABORTED)), _file(file), _line(line)
{}

ProgramAborted::~ProgramAborted() = default;

void Assertions::throwAssertionFailed(char const *file, int line, char const *expression)
{
    trace(file, line, Report(expression).get());
    throw AssertionFailed(file, line, expression);
}

void Assertions::throwSysAssertionFailed(char const *file, int line, char const *expression,
                                         int lastError)
{
    trace(file, line, Report(expression, lastError).get());
    throw AssertionFailed(file, line, expression, lastError);
}

void Assertions::throwProgramAborted(char const *file, int line)
{
    trace(file, line, ABORTED);
    throw ProgramAborted(file, line);
}

void Assertions::destructorAssertionFailed(char const *file, int line, char const *expression)
{
    if (!Unwinding::ofAny().hasBegun())
        throwAssertionFailed(file, line, expression);
    trace(file, line, Report(expression).get());
}

void Assertions::destructorSysAssertionFailed(char const *file, int line, char const *expression,
                                              int lastError)
{
    if (!Unwinding::ofAny().hasBegun())
        throwSysAssertionFailed(file, line, expression, lastError);
    trace(file, line, Report(expression, lastError).get());
}

} // namespace Zv
