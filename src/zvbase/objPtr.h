// Smart pointers for sole ownership: `ObjPtr`, `ObjPtrRet`, and their forms for arrays
// (applications).
#pragma once

#include "zvbase/rcEx.h"

#include <concepts>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace Zv {

namespace Detail {

/// Deletes the object of an owner. Does not compile if the class is only declared, because then the
/// compiler cannot see its destructor.
template <class T>
struct SingleObject
{
    static void dispose(T *object)
    {
        static_assert(sizeof(T) != 0, "the owner's destructor needs the definition of the class");
        delete object;
    }
};

/// Deletes the array of an owner. Does not compile if the class is only declared.
template <class T>
struct ArrayOfObjects
{
    static void dispose(T *first)
    {
        static_assert(sizeof(T) != 0, "the owner's destructor needs the definition of the class");
        delete[] first;
    }
};

/// True if an owner of a `T` can take the object of an owner of a `U`: both own a single object,
/// and the class of `U` is the same or a derived one that the destructor of `T` destroys
/// completely.
template <class FromDisposal, class U, class ToDisposal, class T>
concept GivesUp =
    !std::same_as<U, T> && std::convertible_to<U *, T *> &&
    std::same_as<FromDisposal, SingleObject<U>> && std::same_as<ToDisposal, SingleObject<T>> &&
    (std::same_as<std::remove_cv_t<U>, std::remove_cv_t<T>> || std::has_virtual_destructor_v<T>);

} // namespace Detail

template <class T, class Disposal>
class BasicObjPtrRet;

/// The sole owner of the object that it points to. Use it as `ObjPtr<T>`, or `ArrayPtr<T>` for an
/// array.
///
///     Zv::ObjPtr<Zv::DtTime> first(new Zv::DtTime);
///     Zv::ObjPtr<Zv::DtTime> second(std::move(first)); // first is null now
///     double const seconds = second->getSeconds();
///
/// Copying and assigning move the object: the source is null afterwards, even if it is an lvalue.
/// Write the move (`std::move`), so that it can be seen. Never use one owner twice in an argument
/// list.
///
/// An owner of a derived class can become an owner of a base class if that has a virtual
/// destructor. It does not compile if the class of the object is only declared.
///
/// **Threads**: one thread at a time.
///
/// **Throws**: destructor, assignment and `reset` throw what the object's destructor throws. `->`,
/// `*` and `[]` throw `RCEx::ExNullPtr` if the owner is null.
template <class T, class Disposal>
class BasicObjPtr
{
public:
    using element_type = T;

    constexpr BasicObjPtr() noexcept = default;
    constexpr BasicObjPtr(std::nullptr_t) noexcept {}
    /// Takes ownership of `object`, which may be null.
    explicit constexpr BasicObjPtr(T *object) noexcept : _object(object) {}
    BasicObjPtr(BasicObjPtr &source) noexcept : _object(source.release()) {}
    BasicObjPtr(BasicObjPtr &&source) noexcept : _object(source.release()) {}
    /// Takes the object that a function has returned.
    BasicObjPtr(BasicObjPtrRet<T, Disposal> &&source) noexcept : _object(source.release()) {}

    /// Takes the object of an owner of a derived class.
    template <class U, Detail::GivesUp<U, Disposal, T> D>
    BasicObjPtr(BasicObjPtr<U, D> &source) noexcept : _object(source.release())
    {}
    template <class U, Detail::GivesUp<U, Disposal, T> D>
    BasicObjPtr(BasicObjPtr<U, D> &&source) noexcept : _object(source.release())
    {}
    template <class U, Detail::GivesUp<U, Disposal, T> D>
    BasicObjPtr(BasicObjPtrRet<U, D> &&source) noexcept : _object(source.release())
    {}

    ~BasicObjPtr() noexcept(false)
    {
        if (_object)
            Disposal::dispose(_object);
    }

    BasicObjPtr &operator=(BasicObjPtr &source)
    {
        reset(source.release());
        return *this;
    }
    BasicObjPtr &operator=(BasicObjPtr &&source)
    {
        reset(source.release());
        return *this;
    }
    /// Destroys the object.
    BasicObjPtr &operator=(std::nullptr_t)
    {
        reset();
        return *this;
    }

    T *operator->() const { return checked(); }
    T &operator*() const { return *checked(); }
    T &operator[](std::size_t index) const
        requires(!std::same_as<Disposal, Detail::SingleObject<T>>)
    {
        return checked()[index];
    }

    /// Returns the raw pointer. The owner keeps the object.
    T *get() const noexcept { return _object; }
    bool isNull() const noexcept { return !_object; }
    explicit operator bool() const noexcept { return _object; }
    friend bool operator==(BasicObjPtr const &pointer, std::nullptr_t) noexcept
    {
        return !pointer._object;
    }

    /// Returns the raw pointer and becomes null. The caller owns the object.
    [[nodiscard]] T *release() noexcept { return std::exchange(_object, nullptr); }
    /// Takes ownership of `object` and destroys the former object. Does nothing if both are the
    /// same.
    void reset(T *object = nullptr)
    {
        T * const former = std::exchange(_object, object);
        if (former && former != object)
            Disposal::dispose(former);
    }
    /// Exchanges the objects of two owners.
    void swap(BasicObjPtr &other) noexcept { std::swap(_object, other._object); }

private:
    T *checked() const
    {
        if (!_object) [[unlikely]]
            RCExUtil::throwExNullPtr();
        return _object;
    }

    T *_object = nullptr;
};

/// Passes an object from a function to its caller, which becomes its owner. It can only be moved.
/// An `ObjPtr` takes the object from it. If the caller drops it, the object is destroyed. Use it as
/// `ObjPtrRet<T>`, or `ArrayPtrRet<T>` for an array.
///
///     Zv::ObjPtrRet<Zv::DtTime> makeSecond()
///     {
///         return Zv::makeObj<Zv::DtTime>(25, Zv::Rational(25, 1));
///     }
template <class T, class Disposal>
class [[nodiscard]] BasicObjPtrRet
{
public:
    constexpr BasicObjPtrRet() noexcept = default;
    constexpr BasicObjPtrRet(std::nullptr_t) noexcept {}
    /// Takes ownership of `object`, which may be null.
    explicit constexpr BasicObjPtrRet(T *object) noexcept : _object(object) {}
    BasicObjPtrRet(BasicObjPtrRet &&source) noexcept : _object(source.release()) {}
    /// Takes the object of an owner, which becomes null.
    BasicObjPtrRet(BasicObjPtr<T, Disposal> &source) noexcept : _object(source.release()) {}
    /// Takes the object of an owner, which becomes null.
    BasicObjPtrRet(BasicObjPtr<T, Disposal> &&source) noexcept : _object(source.release()) {}

    /// Takes the object of an owner of a derived class.
    template <class U, Detail::GivesUp<U, Disposal, T> D>
    BasicObjPtrRet(BasicObjPtrRet<U, D> &&source) noexcept : _object(source.release())
    {}
    template <class U, Detail::GivesUp<U, Disposal, T> D>
    BasicObjPtrRet(BasicObjPtr<U, D> &source) noexcept : _object(source.release())
    {}
    template <class U, Detail::GivesUp<U, Disposal, T> D>
    BasicObjPtrRet(BasicObjPtr<U, D> &&source) noexcept : _object(source.release())
    {}

    ~BasicObjPtrRet() noexcept(false)
    {
        if (_object)
            Disposal::dispose(_object);
    }
    BasicObjPtrRet &operator=(BasicObjPtrRet &&) = delete;

    bool isNull() const noexcept { return !_object; }
    /// Returns the raw pointer and becomes null. The caller owns the object.
    [[nodiscard]] T *release() noexcept { return std::exchange(_object, nullptr); }

private:
    T *_object = nullptr;
};

/// The sole owner of an object that was made with `new`.
template <class T>
using ObjPtr = BasicObjPtr<T, Detail::SingleObject<T>>;
/// Passes such an object to the caller.
template <class T>
using ObjPtrRet = BasicObjPtrRet<T, Detail::SingleObject<T>>;

/// The sole owner of an array that was made with `new[]`.
template <class T>
using ArrayPtr = BasicObjPtr<T, Detail::ArrayOfObjects<T>>;
/// Passes such an array to the caller.
template <class T>
using ArrayPtrRet = BasicObjPtrRet<T, Detail::ArrayOfObjects<T>>;

/// Makes an object with `new` and passes it to the caller.
template <class T, class... Arguments>
ObjPtrRet<T> makeObj(Arguments &&...arguments)
{
    return ObjPtrRet<T>(new T(std::forward<Arguments>(arguments)...));
}

} // namespace Zv
