// Property tree of a device: its sets, and the builder that fills them (device writers).
#pragma once

#include "resmgt/deviceProtocol/devMDProperty.h"
#include "zvbase/platform/shared.h"

namespace Zv {

/// A set in a device's property tree. `DevMDStdPropertySetBuilder` fills it.
///
/// **Threads**: any thread may read it. No thread may fill it at the same time.
class ZVRESMGT_EXPORT DevMDStdPropertySet : public DevMDPropertySet
{
public:
    DevMDStdPropertySet(LiString const &name, LiString const &description);

    LiString getName() override { return _name; }
    LiString getDescription() override { return _description; }
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIter() override;
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIterEnd() override;
    ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIter() override;
    ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIterEnd() override;

protected:
    ~DevMDStdPropertySet() override;

private:
    friend class DevMDStdPropertySetBuilder;

    Vector<RCShdPtr<DevMDPropertyAny>> &getProperties() { return _properties; }
    Vector<RCShdPtr<DevMDPropertySet>> &getPropertySets() { return _sets; }

    LiString _name;
    LiString _description;
    Vector<RCShdPtr<DevMDPropertySet>> _sets;
    Vector<RCShdPtr<DevMDPropertyAny>> _properties;
};

/// A cursor that builds a property tree. It begins at the root.
/// `DevMDStdPropertyPrtcl::getPropertySetBuilder` makes it. The tree cannot be read while a builder
/// of it exists. The device must outlive the builder.
///
/// **Threads**: one thread at a time.
class ZVRESMGT_EXPORT DevMDStdPropertySetBuilder
{
public:
    /// Makes a cursor at the given root level. `count` is the number of builders of the tree. The
    /// caller increments it, and the destructor decrements it.
    DevMDStdPropertySetBuilder(Vector<RCShdPtr<DevMDPropertySet>> &sets,
                               Vector<RCShdPtr<DevMDPropertyAny>> &properties, int &count);
    DevMDStdPropertySetBuilder(DevMDStdPropertySetBuilder const &) = delete;
    DevMDStdPropertySetBuilder &operator=(DevMDStdPropertySetBuilder const &) = delete;
    ~DevMDStdPropertySetBuilder();

    /// Goes down into the set of that name. If the current level has none, adds one with that
    /// description.
    void pushSet(LiString const &name, LiString const &description);
    /// Goes up one level. Throws `DevPrtclEx::ExMDStdPropertySetBuilderPop` at the root.
    void popSet();
    /// Adds a property to the current level. Throws `DevPrtclEx::ExNameNotUnique` if the level has
    /// a property of that name.
    void addProperty(RCShdPtr<DevMDPropertyAny> const &property);
    /// Returns the name of the current set, which is empty at the root.
    LiString getCurrentSetName() const;
    /// Return iterators over the current level, at the first element. They become invalid if
    /// something is added to the level.
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getCurrentPropertyIter() const;
    ConstIterator<RCShdPtr<DevMDPropertySet>> getCurrentPropertySetIter() const;

private:
    Vector<RCShdPtr<DevMDPropertySet>> &currentSets() const;
    Vector<RCShdPtr<DevMDPropertyAny>> &currentProperties() const;

    Deque<RCShdPtr<DevMDStdPropertySet>> _stack;
    Vector<RCShdPtr<DevMDPropertySet>> &_sets;
    Vector<RCShdPtr<DevMDPropertyAny>> &_properties;
    int &_count;
};

/// Keeps a device's property tree. The device builds it in its constructor, before other threads
/// know the device:
///
///     class Camera : public DevMDStdPropertyPrtcl
///     {
///     public:
///         Camera() : DevMDStdPropertyPrtcl("camera")
///         {
///             ObjPtr<DevMDStdPropertySetBuilder> builder = getPropertySetBuilder();
///             builder->pushSet("lens", "The lens");
///             builder->addProperty(makeProperty<double>("focus", "In metres",
///                                                       makeShd<DevMDStdFifo>(),
///                                                       [](double &metres) { metres = 2.5; }));
///         }
///     };
///
/// First the tree is built, then it is read. It cannot be read while a builder exists, and cannot
/// be built after it has been read.
///
/// **Threads**: any thread may read. Only the constructing thread may build.
///
/// **Throws**: each of the four iterators throws `DevPrtclEx::ExMDStdPropertiesReadUnavail` while a
/// builder exists.
class ZVRESMGT_EXPORT DevMDStdPropertyPrtcl : public DevMDPropertyPrtcl
{
public:
    explicit DevMDStdPropertyPrtcl(LiString const &name);

    ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIter() override;
    ConstIterator<RCShdPtr<DevMDPropertySet>> getPropertySetIterEnd() override;
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIter() override;
    ConstIterator<RCShdPtr<DevMDPropertyAny>> getPropertyIterEnd() override;

protected:
    ~DevMDStdPropertyPrtcl() override;

    /// Returns a new builder at the root of the tree. Throws
    /// `DevPrtclEx::ExMDStdPropertiesWriteUnavail` if the tree has been read.
    [[nodiscard]] virtual ObjPtrRet<DevMDStdPropertySetBuilder> getPropertySetBuilder();

private:
    void startReading(char const *subject);

    LiString _name;
    Vector<RCShdPtr<DevMDPropertySet>> _sets;
    Vector<RCShdPtr<DevMDPropertyAny>> _properties;
    int _builderCount = 0;
    ZvPlatform::Shared<bool> _readStarted{false}; // set by each reader
};

} // namespace Zv
