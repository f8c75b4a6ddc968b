#include "resmgt/threadExtensions/mtRequestBase.h"

namespace Zv {

MtRequestBase::MtRequestBase() = default;

MtRequestBase::MtRequestBase(MtRequestTag tag) : _tag(tag) {}

MtRequestBase::MtRequestBase(MtRequestBase const &) = default;

MtRequestBase &MtRequestBase::operator=(MtRequestBase const &) = default;

MtRequestBase::~MtRequestBase() noexcept(false) = default;

} // namespace Zv
