// What the parts of a document have in common.
#pragma once

#include "resmgt/export.h"
#include "resmgt/literals/liString.h"

namespace Zv {

/// A part of a document that has a name.
class ZVRESMGT_EXPORT XmlNode
{
public:
    virtual ~XmlNode() noexcept(false);
    LiString getNodeName() const { return _name; }
    /// Whether this is its name.
    bool isNamed(LiString const &name) const { return _name == name; }

protected:
    explicit XmlNode(LiString const &name) : _name(name) {}
    XmlNode(XmlNode const &) = default;
    XmlNode(XmlNode &&) noexcept = default;
    XmlNode &operator=(XmlNode const &) = default;
    XmlNode &operator=(XmlNode &&) noexcept = default;

    /// The name without a copy.
    LiString const &name() const { return _name; }

private:
    LiString _name;
};

} // namespace Zv
