// Stream buffer that reads a file line by line.
#pragma once

#include <fstream>
#include <streambuf>
#include <string>

/// Knows the line at which a parser is. The parser reads in blocks and takes a block that is not
/// full for the last one. So each block holds one line, or a part of one, and is filled up with
/// blanks. Blanks between tags and between attributes have no meaning.
class LineBuffer : public std::streambuf
{
public:
    /// Throws `PlayoutEx::Input` if the file cannot be opened, and `PlayoutEx::Interrupted` if a
    /// signal ends the wait for the other end of a pipe.
    explicit LineBuffer(std::string const &path);

    /// Returns the number of the line that was read last, from 1 on.
    int getLine() const { return _line > 0 ? _line : 1; }

protected:
    std::streamsize xsgetn(char *block, std::streamsize size) override;

private:
    std::ifstream _file;
    std::string _text;      // the current line
    std::size_t _place = 0; // in the text, which may be longer than a block
    int _line = 0;
};
