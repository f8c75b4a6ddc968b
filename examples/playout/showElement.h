// Base class of the tags of a show.
#pragma once

#include "showAttributes.h"

#include <resmgt/xml.h>

#include <functional>
#include <memory>
#include <string>
#include <vector>

/// Tag that reads itself from a show's document and writes itself into one. A derived class has its
/// attributes as members and visits them in `performAttributes`. A class with children makes them
/// in `makeChild` and visits them in `forEachChild`.
class ShowElement : public Zv::XmlTopElement
{
public:
    /// Returns the prefix of error messages about this tag: "show.xml:12: ", or nothing if the tag
    /// is not from a document.
    std::string const &getWhere() const { return _where; }

    Zv::LiString getTagName() const final { return _tag; }
    Zv::XmlBaseElement *createElement(Zv::XmlReader &reader, Zv::LiString const &name,
                                      Zv::XmlAttributeList const &attributes) final;
    void performRead(Zv::XmlAttributeList const &attributes) final;
    void performReadEnd() override {}
    void performWrite(Zv::XmlWriter &writer) final;

protected:
    explicit ShowElement(char const *tag) : _tag(tag) {}

    /// Passes each attribute to `attributes`, which reads or writes it.
    virtual void performAttributes(ShowAttributes &attributes) = 0;
    /// Returns a new child, which this element owns, or null if the tag has no place here.
    virtual ShowElement *makeChild(std::string const &) { return nullptr; }
    /// Calls a function for each child, in the order in which they are written.
    virtual void forEachChild(std::function<void(ShowElement &)> const &) {}

    /// Makes a child of which there is at most one. Throws `PlayoutEx::Client` if there is one
    /// already.
    template <class Child>
    static Child *make(std::unique_ptr<Child> &place)
    {
        requireFree(!place);
        return (place = std::make_unique<Child>()).get();
    }
    /// Makes a child of which there may be several.
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
