// The untyped core of thread-specific data.
#pragma once

#include "resmgt/export.h"

namespace Zv {

class MtOpaqueDataImp;

/// A value of which each thread has its own; see `MtSpecificData`, by which it is used.
///
/// Lives longer than the threads that have a value in it: usually as long as the process. Each operation concerns the
/// calling thread's value, and none blocks but in `MtSpecificDataRegistry`.
class ZVRESMGT_EXPORT MtOpaqueData
{
public:
    /// `name` outlives this object. `deleter` destroys a value.
    MtOpaqueData(char const *name, void (*deleter)(void *));
    MtOpaqueData(MtOpaqueData const &) = delete;
    MtOpaqueData &operator=(MtOpaqueData const &) = delete;
    /// Destroys the calling thread's value. The values of other threads stay and are never destroyed. Their entries in
    /// the registry are removed, because they would lead to this object after its end.
    virtual ~MtOpaqueData() noexcept(false);

protected:
    /// Makes the calling thread's value, stores it by `setSpecific`, enters it in `MtSpecificDataRegistry` and
    /// returns it; returns null if it makes nothing.
    virtual void *performCreate() const = 0;

public:
    char const *getName() const { return _name; }
    /// Whether the calling thread has no value.
    bool isNull() const;
    /// The value, made at the first call. Throws `MtEx::ExNoContent` where none is made.
    void *getPointee() const;
    /// Destroys the value if there is one, and its entry in the registry. The next `getPointee` makes another, also if
    /// the deleter throws, which this passes on.
    void performDelete() const;

protected:
    void *getSpecific() const;
    void setSpecific(void *value) const;

private:
    MtOpaqueDataImp *_imp;
    char const *_name;
    void (*_deleter)(void *);
};

} // namespace Zv
