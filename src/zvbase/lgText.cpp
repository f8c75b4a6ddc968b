#include "zvbase/lgText.h"

#include "zvbase/lgQueueImp.private.h"

#include <charconv>
#include <limits>
#include <locale>

namespace Zv {

LgText::LgText(std::streambuf *buffer, LgLineBuffer *line) : std::ostream(buffer), _line(line)
{
    // The program's own locale does not change the log.
    imbue(std::locale::classic());
}

LgText::~LgText() = default;

void LgText::add(char const *text, std::size_t length)
{
    if (rdbuf() == _line && good() && width() == 0) [[likely]]
        _line->append(text, length);
    else
        static_cast<std::ostream &>(*this) << std::string_view(text, length);
}

template <class Number>
void LgText::addNumber(Number number)
{
    constexpr fmtflags FORMAT = basefield | showpos;
    if ((flags() & FORMAT) != dec || width() != 0) {
        static_cast<std::ostream &>(*this) << number;
        return;
    }
    char digits[std::numeric_limits<Number>::digits10 + 2];
    char const * const last = std::to_chars(digits, digits + sizeof digits, number).ptr;
    add(digits, static_cast<std::size_t>(last - digits));
}

void LgText::add(int number)
{
    addNumber(number);
}

void LgText::add(unsigned number)
{
    addNumber(number);
}

void LgText::add(long number)
{
    addNumber(number);
}

void LgText::add(unsigned long number)
{
    addNumber(number);
}

void LgText::add(long long number)
{
    addNumber(number);
}

void LgText::add(unsigned long long number)
{
    addNumber(number);
}

} // namespace Zv
