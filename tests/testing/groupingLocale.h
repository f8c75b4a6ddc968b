// Global locale that groups digits.
#pragma once

#include <locale>
#include <string>

namespace ZvTest {

/// While an object exists, new streams write 1234567.5 as "1.234.567,5".
class GroupingLocale
{
public:
    GroupingLocale() : _former(std::locale::global(std::locale(std::locale::classic(), new Facet)))
    {}
    ~GroupingLocale() { std::locale::global(_former); }
    GroupingLocale(GroupingLocale const &) = delete;
    GroupingLocale &operator=(GroupingLocale const &) = delete;

private:
    class Facet : public std::numpunct<char>
    {
    protected:
        char do_thousands_sep() const override { return '.'; }
        char do_decimal_point() const override { return ','; }
        std::string do_grouping() const override { return "\3"; }
    };

    std::locale _former;
};

} // namespace ZvTest
