#include "resmgt/deviceProtocol/devMDStdPropertySet.h"

#include "resmgt/deviceProtocol/devMDStdIterator.private.h"
#include "resmgt/deviceProtocol/devPrtclEx.h"
#include "zvbase/failures.h"
#include "zvbase/firstFailure.private.h"
#include "zvbase/platform/shared.h"

#include <algorithm>

namespace Zv {

namespace {

/// Returns the element of that name, or the end of the level.
template <class Level>
auto findByName(Level &level, LiString const &name)
{
    return std::find_if(level.begin(), level.end(),
                        [&](auto const &element) { return element->getName() == name; });
}

} // namespace

DevMDStdPropertySet::DevMDStdPropertySet(LiString const &name, LiString const &description)
    : _name(name), _description(description)
{}

DevMDStdPropertySet::~DevMDStdPropertySet()
{
    releaseAll(_sets, _properties);
}

ConstIterator<RCShdPtr<DevMDPropertyAny>> DevMDStdPropertySet::getPropertyIter()
{
    return Detail::iteratorOver(_properties);
}

ConstIterator<RCShdPtr<DevMDPropertyAny>> DevMDStdPropertySet::getPropertyIterEnd()
{
    return Detail::endIteratorOver(_properties);
}

ConstIterator<RCShdPtr<DevMDPropertySet>> DevMDStdPropertySet::getPropertySetIter()
{
    return Detail::iteratorOver(_sets);
}

ConstIterator<RCShdPtr<DevMDPropertySet>> DevMDStdPropertySet::getPropertySetIterEnd()
{
    return Detail::endIteratorOver(_sets);
}

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
    level.reserve(level.size() + 1); // so that the second push cannot fail after the first
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

DevMDStdPropertyPrtcl::DevMDStdPropertyPrtcl(LiString const &name) : _name(name) {}

DevMDStdPropertyPrtcl::~DevMDStdPropertyPrtcl()
{
    releaseAll(_sets, _properties);
}

ObjPtrRet<DevMDStdPropertySetBuilder> DevMDStdPropertyPrtcl::getPropertySetBuilder()
{
    if (_readStarted.load(ZvPlatform::Order::RELAXED))
        ZV_THROW(DevPrtclEx::ExMDStdPropertiesWriteUnavail, _name.getChars());
    auto builder = makeObj<DevMDStdPropertySetBuilder>(_sets, _properties, _builderCount);
    ++_builderCount;
    return builder;
}

ConstIterator<RCShdPtr<DevMDPropertySet>> DevMDStdPropertyPrtcl::getPropertySetIter()
{
    startReading("property sets");
    return Detail::iteratorOver(_sets);
}

ConstIterator<RCShdPtr<DevMDPropertySet>> DevMDStdPropertyPrtcl::getPropertySetIterEnd()
{
    startReading("property sets");
    return Detail::endIteratorOver(_sets);
}

ConstIterator<RCShdPtr<DevMDPropertyAny>> DevMDStdPropertyPrtcl::getPropertyIter()
{
    startReading("properties");
    return Detail::iteratorOver(_properties);
}

ConstIterator<RCShdPtr<DevMDPropertyAny>> DevMDStdPropertyPrtcl::getPropertyIterEnd()
{
    startReading("properties");
    return Detail::endIteratorOver(_properties);
}

void DevMDStdPropertyPrtcl::startReading(char const *subject)
{
    if (_builderCount >= 1)
        ZV_THROW(DevPrtclEx::ExMDStdPropertiesReadUnavail, _name.getChars(), subject);
    _readStarted.store(true, ZvPlatform::Order::RELAXED);
}

} // namespace Zv
