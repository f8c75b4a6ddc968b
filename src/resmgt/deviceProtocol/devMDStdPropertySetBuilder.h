// The cursor with which a device builds its property tree.
#pragma once

#include "resmgt/deviceProtocol/devMDStdPropertySet.h"

namespace Zv {

/// An edit cursor on one property tree, at the root at first. `DevMDStdPropertyPrtcl::getPropertySetBuilder` makes it;
/// as long as one lives, the tree cannot be read. It must not outlive its device. For one thread.
class ZVRESMGT_EXPORT DevMDStdPropertySetBuilder
{
public:
    /// On the root level given. `count` counts the builders of the tree; the destructor takes one from it.
    DevMDStdPropertySetBuilder(Vector<RCShdPtr<DevMDPropertySet>> &sets,
                               Vector<RCShdPtr<DevMDPropertyAny>> &properties, int &count);
    DevMDStdPropertySetBuilder(DevMDStdPropertySetBuilder const &) = delete;
    DevMDStdPropertySetBuilder &operator=(DevMDStdPropertySetBuilder const &) = delete;
    ~DevMDStdPropertySetBuilder();

    /// Goes down into the set of that name, which is made where there is none; `description` is for a new set.
    void pushSet(LiString const &name, LiString const &description);
    /// Goes up. Throws `DevPrtclEx::ExMDStdPropertySetBuilderPop` at the root.
    void popSet();
    /// Adds to the current set. Throws `DevPrtclEx::ExNameNotUnique` where the set has a property of that name.
    void addProperty(RCShdPtr<DevMDPropertyAny> const &property);
    /// Empty at the root.
    LiString getCurrentSetName() const;
    /// Over the current level, from its first. Adding to the level invalidates it.
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

} // namespace Zv
