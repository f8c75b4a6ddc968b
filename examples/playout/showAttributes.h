// Reads and writes the attributes of a show's tags.
#pragma once

#include <resmgt/xml.h>

#include <cstdint>
#include <initializer_list>
#include <string>

/// Interface by which an element reads or writes its attributes. One function of the element serves
/// both directions, see `ShowElement`.
class ShowAttributes
{
public:
    virtual ~ShowAttributes() = default;

    // A required attribute.
    virtual void text(char const *name, std::string &value) = 0;
    // Attributes that may be left out. If one is, its value is not changed.
    virtual void optional(char const *name, std::string &value) = 0;
    virtual void number(char const *name, std::int64_t &value, std::int64_t least,
                        std::int64_t most) = 0;
    /// An optional attribute with one of the given words.
    void choice(char const *name, std::string &value, std::initializer_list<char const *> words);
};

/// Reads the attributes of a tag. Throws `PlayoutEx::Client`, with the name and the reason, if one
/// is wrong.
class ShowAttributesRead : public ShowAttributes
{
public:
    explicit ShowAttributesRead(Zv::XmlAttributeList const &attributes) : _attributes(attributes) {}

    void text(char const *name, std::string &value) override;
    void optional(char const *name, std::string &value) override;
    void number(char const *name, std::int64_t &value, std::int64_t least,
                std::int64_t most) override;
    /// Throws `PlayoutEx::Client` if an attribute was not read.
    void finish() const;

private:
    Zv::XmlAttributeList _attributes; // those that were not read
};

/// Writes the attributes of a tag. Leaves out optional texts that are empty.
class ShowAttributesWritten : public ShowAttributes
{
public:
    explicit ShowAttributesWritten(Zv::XmlWriter &writer) : _writer(writer) {}

    void text(char const *name, std::string &value) override;
    void optional(char const *name, std::string &value) override;
    void number(char const *name, std::int64_t &value, std::int64_t least,
                std::int64_t most) override;

private:
    Zv::XmlWriter &_writer;
};
