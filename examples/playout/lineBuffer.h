// A file that is read line by line.
#pragma once

#include <fstream>
#include <streambuf>
#include <string>

/// Tells a parser's user where the parser is. That reads in blocks, and a block that is not full is its last: so each
/// block holds one line and is filled up with blanks. Between tags, and between attributes, blanks do not count.
class LineBuffer : public std::streambuf
{
public:
    /// Throws `PlayoutEx::Input`.
    explicit LineBuffer(std::string const &path);

    /// Of the block that was read last, from 1 on.
    int getLine() const { return _line > 0 ? _line : 1; }

protected:
    std::streamsize xsgetn(char *block, std::streamsize size) override;

private:
    std::ifstream _file;
    std::string _text;      // a line
    std::size_t _place = 0; // in it: it may be longer than a block
    int _line = 0;
};
