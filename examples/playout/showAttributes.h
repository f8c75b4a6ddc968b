// The attributes of a show's tags, read and written by the same lines.
#pragma once

#include <resmgt/xml.h>

#include <cstdint>
#include <initializer_list>
#include <string>

/// An element goes through its attributes once, in one function for both directions; see `ShowElement`.
class ShowAttributes
{
public:
    virtual ~ShowAttributes() = default;

    virtual void text(char const *name, std::string &value) = 0;
    // These may be left out: the value stays as it is.
    virtual void optional(char const *name, std::string &value) = 0;
    virtual void number(char const *name, std::int64_t &value, std::int64_t least,
                        std::int64_t most) = 0;
    /// One of a few words.
    void choice(char const *name, std::string &value, std::initializer_list<char const *> words);
};

/// From a tag. What is wrong is thrown as `PlayoutEx::Client`, with the name and the library's reason.
class ShowAttributesRead : public ShowAttributes
{
public:
    explicit ShowAttributesRead(Zv::XmlAttributeList const &attributes) : _attributes(attributes) {}

    void text(char const *name, std::string &value) override;
    void optional(char const *name, std::string &value) override;
    void number(char const *name, std::int64_t &value, std::int64_t least,
                std::int64_t most) override;
    /// Nothing may be left.
    void finish() const;

private:
    Zv::XmlAttributeList _attributes; // that nobody has asked for
};

/// Into a tag. Leaves out optional texts that are empty.
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
