// A name and a value of an element.
#pragma once

#include "resmgt/xml/xmlNode.h"
#include "resmgt/xml/xmlStreamer.h"

namespace Zv {

class ZVRESMGT_EXPORT XmlAttribute final : public XmlNode
{
public:
    XmlAttribute(LiString const &name, LiString const &value) : XmlNode(name), _value(value) {}
    XmlAttribute(XmlAttribute const &) = default;
    XmlAttribute(XmlAttribute &&) noexcept = default;
    XmlAttribute &operator=(XmlAttribute const &) = default;
    XmlAttribute &operator=(XmlAttribute &&) noexcept = default;
    ~XmlAttribute() noexcept override;

    LiString const &getValue() const { return _value; }
    void setValue(LiString const &value) { _value = value; }
    /// Writes itself into the start tag that is open.
    void streamToOutput(XmlStreamer::ElementGuard &guard) const;

private:
    LiString _value;
};

} // namespace Zv
