#include "resmgt/threads/mtEx.h"

#include "zvbase/exBody.private.h"

#include <utility>

namespace Zv {

ZV_EXCEPTION_FAMILY_BODY(MtEx)
ZV_EXCEPTION_BODY_FAMILY_FIRST(MtEx, ExNotImplemented, std::runtime_error, (char const *feature),
                               setReason("Feature not implemented: "), setReason(feature))
ZV_EXCEPTION_BODY_FAMILY_FIRST(MtEx, ExNoContent, std::runtime_error,
                               (char const *className, char const *name),
                               formatReason("%s(\"%s\") has no content", className, name))
ZV_EXCEPTION_BODY_FAMILY_FIRST(
    MtEx, ExStdThrownException, std::runtime_error, (char const *typeName, char const *what),
    formatReason("Standard exception caught.\nType = \"%s\".\nWhat = \"%s\".", typeName, what))
ZV_EXCEPTION_BODY_FAMILY_FIRST(MtEx, ExRealTimeNotEnabled, std::runtime_error, (char const *reason),
                               formatReason("Failure to enable real-time: %s.", reason))

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

} // namespace Zv
