#include "showReader.h"

#include "playoutEx.h"

#include <istream>

using namespace Zv;

ShowReader::ShowReader(std::string const &path)
    : XmlReader(static_cast<XmlBaseElementBuilder &>(*this)), _path(path), _lines(path)
{}

std::unique_ptr<Show> ShowReader::read()
{
    try {
        std::istream input(&_lines);
        ObjPtr<XmlBaseElement> root(buildElement(input));
        std::unique_ptr<Show> show(static_cast<Show *>(root.release()));
        show->setPath(_path);
        return show;
    } catch (ExBase const &failure) {
        ZV_THROW(PlayoutEx::Show, _path.c_str(), _failedLine ? _failedLine : _lines.getLine(),
                 failure.getReason());
    }
}

std::string ShowReader::getWhere() const
{
    return _path + ":" + std::to_string(_tagLine) + ": ";
}

// Notes the line here, because an element is only started when its first child begins or when it
// ends. At that time the reader may be at a later line.
void ShowReader::notifyBeginElement(LiString const &name)
{
    XmlReader::notifyBeginElement(name);
    _tagLine = _lines.getLine();
    _openNames.push_back(name);
}

void ShowReader::notifyEmptyElementEnd()
{
    XmlReader::notifyEmptyElementEnd();
    _openNames.pop_back();
}

void ShowReader::notifyClosingElement(LiString const &name)
{
    if (_openNames.back() != name)
        ZV_THROW(XmlEx::ExSyntaxError);
    XmlReader::notifyClosingElement(name);
    _openNames.pop_back();
}

void ShowReader::notifyTextData(LiString const &)
{
    ZV_THROW(PlayoutEx::Client, "a show has no text between its tags");
}

void ShowReader::notifyCharacterData(LiString const &data)
{
    notifyTextData(data);
}

void ShowReader::startElement(LiString const &name, XmlAttributeList const &attributes)
{
    try {
        XmlReader::startElement(name, attributes);
    } catch (ExBase const &failure) {
        _failedLine = _tagLine;
        ZV_THROW(PlayoutEx::Client,
                 (std::string(name.getChars()) + ": " + failure.getReason()).c_str());
    }
}

XmlBaseElement *ShowReader::createElement(XmlReader &, LiString const &name,
                                          XmlAttributeList const &)
{
    if (name != LiString("show"))
        ZV_THROW(PlayoutEx::Client, "the document is no show");
    auto * const show = new Show;
    show->_where = getWhere();
    return show;
}
