// Reads the document of a show.
#pragma once

#include "lineBuffer.h"
#include "show.h"

#include <resmgt/xml.h>

#include <memory>
#include <string>
#include <vector>

/// Reads one document. Unlike the library's reader it knows the current line, compares the names of
/// closing tags, and refuses text between tags. Only one thread may use it.
class ShowReader : private Zv::XmlBaseElementBuilder, public Zv::XmlReader
{
public:
    /// Throws `PlayoutEx::Input` if the file cannot be opened.
    explicit ShowReader(std::string const &path);

    /// Returns the show. Throws `PlayoutEx::Show`, with the line, if the document is not a correct
    /// show.
    std::unique_ptr<Show> read();
    /// Returns the prefix of messages about the tag that is being read: "show.xml:12: ".
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
    int _failedLine = 0; // of the tag that was refused; 0 if none was
};
