// Reads the comments of a source, and names the sentences that break the rules of docs/style.md.
#pragma once

#include <cstddef>
#include <filesystem>
#include <iosfwd>
#include <string>
#include <vector>

namespace ZvTest {

/// One line of a comment, without the slashes and the blank behind them.
struct CommentLine
{
    int number;
    std::string text;
    bool isAlone;      ///< no code is before it on the line
    bool isExample;    ///< indented by four more blanks
    std::size_t width; ///< of the whole line, in characters
};

/// Returns the comment lines of a source. Text in string literals is no comment.
std::vector<CommentLine> readComments(std::istream &source);

/// A sentence that breaks a rule, or a line that does.
struct Offence
{
    int line;
    std::string rule;
    std::string sentence;
};

/// What the comments of some sources are made of.
struct WordCount
{
    std::size_t words = 0;
    std::size_t sentences = 0;
    std::size_t ifs = 0;
    std::size_t returns = 0;
    std::size_t colons = 0; ///< and semicolons
};

/// Returns the offences of a source's comments in the order of their lines, and adds its words to `count`.
std::vector<Offence> findOffences(std::vector<CommentLine> const &comments, WordCount &count);

/// Returns the public headers below `src`, sorted.
std::vector<std::filesystem::path> findPublicHeaders(std::filesystem::path const &src);

} // namespace ZvTest
