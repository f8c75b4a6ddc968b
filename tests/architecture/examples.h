// Finds the examples in the comments of headers and in documents, and makes a source of them.
#pragma once

#include <iosfwd>
#include <string>
#include <vector>

namespace ZvTest {

/// One example: consecutive lines of code.
struct Example
{
    int line = 0; ///< of the first one
    std::vector<std::string> code;
    std::string source = {}; ///< the file that a document quotes, or nothing
};

/// Returns the blocks of a header that are indented by four more blanks than the text of their comment. A block without
/// a statement is a table, and no example.
std::vector<Example> findExamplesOfHeader(std::istream &header);
/// Returns the blocks of a document that begin with "```cpp". If a file follows, as in
/// "```cpp examples/03_pool.cpp", the block is a part of that file.
std::vector<Example> findExamplesOfDocument(std::istream &document);

/// Returns whether the lines are outside of functions. All others are the statements of a function.
bool isAtNamespaceScope(Example const &example);

/// Writes the examples of a file as code, each in a namespace of its own. The compiler's errors name `file` and its
/// lines. If `areContinued`, each example can use the names of those before it.
void writeExamples(std::ostream &source, std::string const &file,
                   std::vector<Example> const &examples, bool areContinued);

/// Returns the lines of the examples that include a header.
std::vector<std::string> findIncludes(std::vector<Example> const &examples);

} // namespace ZvTest
