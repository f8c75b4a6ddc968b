// A name and a value of an element.
#pragma once

#include "resmgt/xml/xmlNode.h"
#include "resmgt/xml/xmlStreamer.h"
#include "resmgt/xml/xmlText.h"

#include <cstddef>

namespace Zv {

/// An attribute. Elements own theirs and show their values only.
class ZVRESMGT_EXPORT XmlAttribute final : public XmlNode
{
public:
    XmlAttribute(LiString const &name, LiString const &value);
    XmlAttribute(XmlAttribute const &) = delete;
    XmlAttribute &operator=(XmlAttribute const &) = delete;
    ~XmlAttribute() noexcept(false) override;

    LiString getValue() const { return _value.get(); }
    void setValue(LiString const &value) { _value.assign(value); }
    /// Writes itself into the start tag that is open.
    void streamToOutput(XmlStreamer::ElementGuard &guard) const;

    static void *operator new(std::size_t size);
    static void *operator new(std::size_t size, XmlBlocks *blocks);
    static void operator delete(void *memory);
    static void operator delete(void *memory, XmlBlocks *blocks);

private:
    friend class XmlElement;

    XmlAttribute(LiString const &name, LiString const &value, XmlBlocks *blocks);

    XmlText _value;
    XmlAttribute *_next = nullptr; // of the same element
};

} // namespace Zv
