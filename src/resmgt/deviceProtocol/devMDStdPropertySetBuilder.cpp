#include "resmgt/deviceProtocol/devMDStdPropertySetBuilder.h"

#include "resmgt/deviceProtocol/devMDStdIterator.private.h"
#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "zvbase/failures.h"

#include <algorithm>

namespace Zv {

namespace {

/// The element of that name, or the end of the level.
template <class Level>
auto findByName(Level &level, LiString const &name)
{
    return std::find_if(level.begin(), level.end(),
                        [&](auto const &element) { return element->getName() == name; });
}

} // namespace

DevMDStdPropertySetBuilder::DevMDStdPropertySetBuilder(
    Vector<RCShdPtr<DevMDPropertySet>> &sets, Vector<RCShdPtr<DevMDPropertyAny>> &properties,
    int &count)
    : _sets(sets), _properties(properties), _count(count)
{}

DevMDStdPropertySetBuilder::~DevMDStdPropertySetBuilder()
{
    --_count;
}

void DevMDStdPropertySetBuilder::pushSet(LiString const &name, LiString const &description)
{
    Vector<RCShdPtr<DevMDPropertySet>> &level = currentSets();
    auto const found = findByName(level, name);
    if (found != level.end()) {
        auto * const set = dynamic_cast<DevMDStdPropertySet *>(&**found);
        ZV_ASSERT(set != 0);
        _stack.push_back(RCShdPtr<DevMDStdPropertySet>(set));
        return;
    }
    RCShdPtr<DevMDStdPropertySet> const set(new DevMDStdPropertySet(name, description));
    level.reserve(level.size() + 1); // neither of the two without the other
    _stack.push_back(set);
    level.push_back(set);
}

void DevMDStdPropertySetBuilder::popSet()
{
    if (_stack.empty())
        ZV_THROW(DevPrtclEx::ExMDStdPropertySetBuilderPop);
    _stack.pop_back();
}

void DevMDStdPropertySetBuilder::addProperty(RCShdPtr<DevMDPropertyAny> const &property)
{
    Vector<RCShdPtr<DevMDPropertyAny>> &level = currentProperties();
    if (findByName(level, property->getName()) != level.end())
        ZV_THROW(DevPrtclEx::ExNameNotUnique);
    level.push_back(property);
}

LiString DevMDStdPropertySetBuilder::getCurrentSetName() const
{
    return _stack.empty() ? LiString() : _stack.back()->getName();
}

ConstIterator<RCShdPtr<DevMDPropertyAny>> DevMDStdPropertySetBuilder::getCurrentPropertyIter() const
{
    return Detail::iteratorOver(currentProperties());
}

ConstIterator<RCShdPtr<DevMDPropertySet>>
DevMDStdPropertySetBuilder::getCurrentPropertySetIter() const
{
    return Detail::iteratorOver(currentSets());
}

Vector<RCShdPtr<DevMDPropertySet>> &DevMDStdPropertySetBuilder::currentSets() const
{
    return _stack.empty() ? _sets : _stack.back()->getPropertySets();
}

Vector<RCShdPtr<DevMDPropertyAny>> &DevMDStdPropertySetBuilder::currentProperties() const
{
    return _stack.empty() ? _properties : _stack.back()->getProperties();
}

} // namespace Zv
