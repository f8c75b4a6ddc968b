// What all tags of a show have in common.
#pragma once

#include "showAttributes.h"

#include <resmgt/xml.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// A tag that reads itself from a show's document and writes itself into one. A derived class has its attributes as
/// members and goes through them in `performAttributes`; one with children makes them in `makeChild` and goes through
/// them in `forEachChild`.
class ShowElement : public Zv::XmlTopElement
{
public:
    /// Before each reason that has to do with this tag: "show.xml:12: ", or nothing where no document has it.
    std::string const &getWhere() const { return _where; }

    Zv::LiString getTagName() const final { return _tag; }
    Zv::XmlBaseElement *createElement(Zv::XmlReader &reader, Zv::LiString const &name,
                                      Zv::XmlAttributeList const &attributes) final;
    void performRead(Zv::XmlAttributeList const &attributes) final;
    void performReadEnd() override {}
    void performWrite(Zv::XmlWriter &writer) final;

protected:
    explicit ShowElement(char const *tag) : _tag(tag) {}

    virtual void performAttributes(ShowAttributes &attributes) = 0;
    /// A new child, which this element keeps; null for a tag that has no place here.
    virtual ShowElement *makeChild(std::string const &) { return nullptr; }
    /// In the order in which they are written.
    virtual void forEachChild(std::function<void(ShowElement &)> const &) {}

    /// For tags that stand once at most, and for others.
    template <class Child>
    static Child *make(std::unique_ptr<Child> &place)
    {
        requireFree(!place);
        return (place = std::make_unique<Child>()).get();
    }
    template <class Child>
    static Child *make(std::vector<std::unique_ptr<Child>> &children)
    {
        return children.emplace_back(std::make_unique<Child>()).get();
    }

private:
    friend class ShowReader;

    static void requireFree(bool isFree);

    char const *_tag;
    std::string _where;
};
