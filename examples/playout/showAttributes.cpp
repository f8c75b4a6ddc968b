#include "showAttributes.h"

#include "playoutEx.h"

#include <algorithm>
#include <charconv>

using namespace Zv;

namespace {

[[noreturn]] void refuse(char const *name, std::string const &reason)
{
    ZV_THROW(PlayoutEx::Client, (std::string(name) + ": " + reason).c_str());
}

/// Returns the value with references for special characters, because the writer does not escape.
/// Quotes and brackets could not be read again, and a control character could control a terminal.
std::string escape(std::string const &value)
{
    std::string escaped;
    for (char const c : value) {
        int const byte = static_cast<unsigned char>(c);
        bool const isControl = byte < 0x20 || (byte >= 0x7F && byte < 0xA0);
        if (isControl || std::string_view("\"'&<>").find(c) != std::string_view::npos)
            escaped += "&#" + std::to_string(byte) + ";";
        else
            escaped += c;
    }
    return escaped;
}

} // namespace

void ShowAttributes::choice(char const *name, std::string &value,
                            std::initializer_list<char const *> words)
{
    optional(name, value);
    if (std::find(words.begin(), words.end(), value) != words.end())
        return;
    std::string list;
    for (char const * const word : words)
        list += (list.empty() ? "" : ", ") + std::string(word);
    refuse(name, "\"" + value + "\" is none of " + list);
}

void ShowAttributesRead::text(char const *name, std::string &value)
{
    try {
        LiString const text = _attributes.getValue(name);
        value.assign(text.getChars(), static_cast<std::size_t>(text.getLength()));
    } catch (XmlEx const &failure) {
        refuse(name, failure.getReason());
    }
    if (value.find('\n') != value.npos)
        refuse(name, "its value goes over the end of a line");
    if (value.find('\0') != value.npos)
        refuse(name, "its value has a zero byte");
    _attributes.removeAttribute(name);
    if (_attributes.exists(name))
        refuse(name, "it stands there twice");
}

void ShowAttributesRead::optional(char const *name, std::string &value)
{
    if (_attributes.exists(name))
        text(name, value);
}

void ShowAttributesRead::number(char const *name, std::int64_t &value, std::int64_t least,
                                std::int64_t most)
{
    std::string digits = std::to_string(value);
    optional(name, digits);
    auto const [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), value);
    if (error != std::errc() || *end || value < least || value > most)
        refuse(name, "\"" + digits + "\" is no whole number from " + std::to_string(least) +
                         " to " + std::to_string(most));
}

void ShowAttributesRead::finish() const
{
    if (_attributes.getLength() > 0)
        ZV_THROW(PlayoutEx::Client,
                 (std::string("it takes no ") + _attributes.getName(0).getChars()).c_str());
}

void ShowAttributesWritten::text(char const *name, std::string &value)
{
    _writer.writeAttribute(name, LiString(escape(value).c_str()));
}

void ShowAttributesWritten::optional(char const *name, std::string &value)
{
    if (!value.empty())
        text(name, value);
}

void ShowAttributesWritten::number(char const *name, std::int64_t &value, std::int64_t,
                                   std::int64_t)
{
    std::string digits = std::to_string(value);
    text(name, digits);
}
