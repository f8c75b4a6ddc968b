#include "resmgt/threads/mtEx.h"

#include <utility>

namespace Zv {

MtEx::MtEx(char const *file, int line) noexcept : ExBase(file, line) {}

MtEx::ExNotImplemented::ExNotImplemented(char const *file, int line, char const *feature)
    : MtEx(file, line), std::runtime_error("")
{
    setReason("Feature not implemented: ");
    setReason(feature);
}

MtEx::ExNotImplemented::~ExNotImplemented() = default;

MtEx::ExNoContent::ExNoContent(char const *file, int line, char const *className, char const *name)
    : MtEx(file, line), std::runtime_error("")
{
    formatReason("%s(\"%s\") has no content", className, name);
}

MtEx::ExNoContent::~ExNoContent() = default;

MtEx::ExThrownException::ExThrownException(char const *file, int line, ExBase *carried)
    : MtEx(file, line), std::runtime_error(""), _carried(carried)
{}

MtEx::ExThrownException::ExThrownException(ExThrownException const &other)
    : MtEx(other), std::runtime_error(other), _carried(other._carried->clone())
{}

MtEx::ExThrownException &MtEx::ExThrownException::operator=(ExThrownException const &other)
{
    if (this != &other) {
        ExBase * const carried = other._carried->clone();
        MtEx::operator=(other);
        std::runtime_error::operator=(other);
        delete std::exchange(_carried, carried);
    }
    return *this;
}

MtEx::ExThrownException::~ExThrownException()
{
    delete _carried;
}

char const *MtEx::ExThrownException::getReason() const noexcept
{
    return _carried->getReason();
}

char const *MtEx::ExThrownException::getDetailedReason() const noexcept
{
    return _carried->getDetailedReason();
}

MtEx::ExStdThrownException::ExStdThrownException(char const *file, int line, char const *typeName,
                                                 char const *what)
    : MtEx(file, line), std::runtime_error("")
{
    formatReason("Standard exception caught.\nType = \"%s\".\nWhat = \"%s\".", typeName, what);
}

MtEx::ExStdThrownException::~ExStdThrownException() = default;

MtEx::ExRealTimeNotEnabled::ExRealTimeNotEnabled(char const *file, int line, char const *reason)
    : MtEx(file, line), std::runtime_error("")
{
    formatReason("Failure to enable real-time: %s.", reason);
}

MtEx::ExRealTimeNotEnabled::~ExRealTimeNotEnabled() = default;

} // namespace Zv
