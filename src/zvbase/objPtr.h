// Sole ownership: `ObjPtr` holds an object, `ObjPtrRet` hands one out of a function; the array forms beside them.
#pragma once

#include "zvbase/rcEx.h"

#include <concepts>
#include <cstddef>
#include <type_traits>
#include <utility>

namespace Zv {

namespace Detail {

/// How an owner gets rid of its object. A class that is only declared has no destructor to call.
template <class T>
struct SingleObject
{
    static void dispose(T *object)
    {
        static_assert(sizeof(T) != 0, "the owner's destructor needs the definition of the class");
        delete object;
    }
};

template <class T>
struct ArrayOfObjects
{
    static void dispose(T *first)
    {
        static_assert(sizeof(T) != 0, "the owner's destructor needs the definition of the class");
        delete[] first;
    }
};

/// An owner of a U may give its object up to an owner of a T: a single object of the same class or of a derived one,
/// which the T's destructor destroys as well.
template <class FromDisposal, class U, class ToDisposal, class T>
concept GivesUp =
    !std::same_as<U, T> && std::convertible_to<U *, T *> &&
    std::same_as<FromDisposal, SingleObject<U>> && std::same_as<ToDisposal, SingleObject<T>> &&
    (std::same_as<std::remove_cv_t<U>, std::remove_cv_t<T>> || std::has_virtual_destructor_v<T>);

} // namespace Detail

template <class T, class Disposal>
class BasicObjPtrRet;

/// The sole owner of what it points to. Copying and assigning move: the source is null afterwards, also where it is
/// an lvalue. Never name one owner twice in an argument list.
///
/// An owner is not protected: one thread at a time uses it. Its destructor throws what the object's destructor
/// throws. It does not compile if the class of the object is declared only. An owner of a derived class becomes one of a
/// base class if that has a virtual destructor.
template <class T, class Disposal>
class BasicObjPtr
{
public:
    using element_type = T;

    constexpr BasicObjPtr() noexcept = default;
    constexpr BasicObjPtr(std::nullptr_t) noexcept {}
    explicit constexpr BasicObjPtr(T *object) noexcept : _object(object) {}
    BasicObjPtr(BasicObjPtr &source) noexcept : _object(source.release()) {}
    BasicObjPtr(BasicObjPtr &&source) noexcept : _object(source.release()) {}
    BasicObjPtr(BasicObjPtrRet<T, Disposal> &&source) noexcept : _object(source.release()) {}

    /// From an owner of a derived class.
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

    /// The raw pointer; the owner keeps the object.
    T *get() const noexcept { return _object; }
    bool isNull() const noexcept { return !_object; }
    explicit operator bool() const noexcept { return _object; }
    friend bool operator==(BasicObjPtr const &pointer, std::nullptr_t) noexcept
    {
        return !pointer._object;
    }

    /// Hands the raw pointer out: the caller owns the object.
    [[nodiscard]] T *release() noexcept { return std::exchange(_object, nullptr); }
    /// Destroys the object held and takes over `object`. An owner that is given its own object keeps it.
    void reset(T *object = nullptr)
    {
        T * const former = std::exchange(_object, object);
        if (former && former != object)
            Disposal::dispose(former);
    }
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

/// An object on its way out of a function. It only moves; an `ObjPtr` takes the object from it.
template <class T, class Disposal>
class [[nodiscard]] BasicObjPtrRet
{
public:
    constexpr BasicObjPtrRet() noexcept = default;
    constexpr BasicObjPtrRet(std::nullptr_t) noexcept {}
    explicit constexpr BasicObjPtrRet(T *object) noexcept : _object(object) {}
    BasicObjPtrRet(BasicObjPtrRet &&source) noexcept : _object(source.release()) {}
    BasicObjPtrRet(BasicObjPtr<T, Disposal> &source) noexcept : _object(source.release()) {}
    BasicObjPtrRet(BasicObjPtr<T, Disposal> &&source) noexcept : _object(source.release()) {}

    /// From an owner of a derived class.
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
    /// Hands the raw pointer out: the caller owns the object.
    [[nodiscard]] T *release() noexcept { return std::exchange(_object, nullptr); }

private:
    T *_object = nullptr;
};

/// The sole owner of an object made with `new`.
template <class T>
using ObjPtr = BasicObjPtr<T, Detail::SingleObject<T>>;
template <class T>
using ObjPtrRet = BasicObjPtrRet<T, Detail::SingleObject<T>>;

/// The sole owner of an array made with `new[]`.
template <class T>
using ArrayPtr = BasicObjPtr<T, Detail::ArrayOfObjects<T>>;
template <class T>
using ArrayPtrRet = BasicObjPtrRet<T, Detail::ArrayOfObjects<T>>;

/// A new object in the hands of its first owner.
template <class T, class... Arguments>
ObjPtrRet<T> makeObj(Arguments &&...arguments)
{
    return ObjPtrRet<T>(new T(std::forward<Arguments>(arguments)...));
}

} // namespace Zv
