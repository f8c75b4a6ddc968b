// A name and a value of an element.
#pragma once

#include "resmgt/xml/xmlNode.h"
#include "resmgt/xml/xmlStreamer.h"
#include "resmgt/xml/xmlText.h"
#include "zvbase/objPtr.h"

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
    static void operator delete(void *memory);

private:
    friend class XmlElement;

    /// The attribute with its value behind it, in one piece of `blocks` or, for null, by themselves.
    static ObjPtrRet<XmlAttribute> make(LiString const &name, LiString const &value,
                                        XmlBlocks *blocks);
    XmlAttribute(LiString const &name, LiString const &value, char *room);

    XmlText _value;
    XmlAttribute *_next = nullptr; // of the same element
};

} // namespace Zv
