// Reading a show's document.
#pragma once

#include "lineBuffer.h"
#include "show.h"

#include <resmgt/xml.h>

#include <memory>
#include <string>
#include <vector>

/// Reads one document. Beyond what the library's reader does it knows the line at which it is, compares the names of
/// closing tags, and refuses text. For one thread.
class ShowReader : private Zv::XmlBaseElementBuilder, public Zv::XmlReader
{
public:
    explicit ShowReader(std::string const &path);

    /// Throws `PlayoutEx::Input` where the file cannot be read, and `PlayoutEx::Show` where it is no show.
    std::unique_ptr<Show> read();
    /// "show.xml:12: " of the tag that is being read.
    std::string getWhere() const;

    void notifyBeginElement(Zv::LiString const &name) override;
    void notifyEmptyElementEnd() override;
    void notifyClosingElement(Zv::LiString const &name) override;
    void notifyTextData(Zv::LiString const &data) override;
    void notifyCharacterData(Zv::LiString const &data) override;
    void startElement(Zv::LiString const &name, Zv::XmlAttributeList const &attributes) override;

private:
    Zv::XmlBaseElement *createElement(Zv::XmlReader &reader, Zv::LiString const &name,
                                      Zv::XmlAttributeList const &attributes) override;

    std::string _path;
    LineBuffer _lines;
    std::vector<Zv::LiString> _openNames;
    int _tagLine = 0;    // of the tag that began last
    int _failedLine = 0; // of a tag that an element has refused
};
