// Stream of the text of a line (extenders).
#pragma once

#include "zvbase/export.h"

#include <concepts>
#include <cstddef>
#include <ostream>
#include <string>
#include <string_view>

namespace Zv {

class LgLineBuffer;

/// A type that `LgText` writes itself.
template <class T>
concept LgTextElement = std::same_as<T, char> || std::same_as<T, char const *> ||
    std::same_as<T, char *> || std::same_as<T, int> || std::same_as<T, unsigned> ||
    std::same_as<T, long> || std::same_as<T, unsigned long> || std::same_as<T, long long> ||
    std::same_as<T, unsigned long long>;

/// The stream for the text of an `LgLine`. It uses the "C" locale.
///
/// The text is the same as that of any other stream. What most lines consist of, texts and whole
/// numbers, is written without the formatting of the standard library, unless a manipulator has
/// changed the format. The operators below take exactly these types. They never compete with an
/// operator for a type that converts to one of them.
///
/// **Threads**: the thread of the line.
class ZVBASE_EXPORT LgText : public std::ostream
{
public:
    ~LgText() override;

    /// Writes a text, a character or a whole number.
    template <LgTextElement T>
    friend LgText &operator<<(LgText &text, T element)
    {
        text.add(element);
        return text;
    }
    /// Writes a text.
    template <class T>
    requires std::same_as<T, std::string> || std::same_as<T, std::string_view>
    friend LgText &operator<<(LgText &text, T const &element)
    {
        text.add(element.data(), element.size());
        return text;
    }

protected:
    /// `line` is the buffer if it is that of a queue's open line, otherwise null.
    LgText(std::streambuf *buffer, LgLineBuffer *line);

private:
    void add(char const *text, std::size_t length);
    void add(int number);
    void add(unsigned number);
    void add(long number);
    void add(unsigned long number);
    void add(long long number);
    void add(unsigned long long number);
    template <class Number>
    void addNumber(Number number);

    void add(char character) { add(&character, 1); }
    void add(char const *text)
    {
        if (text) [[likely]]
            add(text, std::char_traits<char>::length(text));
        else
            setstate(std::ios_base::badbit); // as any stream does
    }

    LgLineBuffer *_line;
};

} // namespace Zv
