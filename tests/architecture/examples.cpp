#include "architecture/examples.h"

#include "architecture/comments.h"

#include <algorithm>
#include <cctype>
#include <istream>
#include <iterator>
#include <ostream>
#include <regex>

namespace ZvTest {

namespace {

bool isInclude(std::string const &line)
{
    return line.starts_with("#include ");
}

/// A table has no line that ends as a line of code does, and calls nothing.
bool isCode(Example const &example)
{
    static std::regex const code("^#include .*|.*[;{}]\\s*(//.*)?|.*\\w(->|::)\\w+\\(.*");
    return std::any_of(example.code.begin(), example.code.end(),
                       [](std::string const &line) { return std::regex_match(line, code); });
}

/// An example with namespaces of its own, or one that adds to the library's, is in no other one.
bool isAtGlobalScope(Example const &example)
{
    return std::any_of(example.code.begin(), example.code.end(), [](std::string const &line) {
        return line.starts_with("namespace ") || line.starts_with("ZV_DECLARE_") ||
               line.starts_with("ZV_DEFINE_");
    });
}

} // namespace

std::vector<Example> findExamplesOfHeader(std::istream &header)
{
    std::vector<Example> examples;
    Example current;
    int last = 0;
    auto const finish = [&] {
        while (!current.code.empty() && current.code.back().empty())
            current.code.pop_back();
        if (!current.code.empty() && isCode(current))
            examples.push_back(current);
        current = {};
    };
    for (CommentLine const &comment : readComments(header)) {
        bool const continues = comment.isAlone && comment.number == last + 1;
        last = comment.number;
        if (!continues || !(comment.isExample || comment.text.empty()))
            finish();
        if (!comment.isExample && current.code.empty())
            continue;
        if (current.code.empty())
            current.line = comment.number;
        current.code.push_back(comment.text);
    }
    finish();
    return examples;
}

std::vector<Example> findExamplesOfDocument(std::istream &document)
{
    std::vector<Example> examples;
    bool isInside = false;
    int number = 0;
    for (std::string line; std::getline(document, line);) {
        ++number;
        if (line.starts_with("```")) {
            static std::regex const begin("```cpp(?: (\\S+))?");
            std::smatch fence;
            isInside = !isInside && std::regex_match(line, fence, begin);
            if (isInside)
                examples.push_back({number + 1, {}, fence[1]});
        } else if (isInside) {
            examples.back().code.push_back(line);
        }
    }
    return examples;
}

bool isAtNamespaceScope(Example const &example)
{
    static std::regex const declaration(
        "^(namespace|template|extern|inline)\\b.*|^(ZV_DECLARE_|ZV_DEFINE_|ZV_EXPLORED|#define ).*|"
        // a function: its head, with the body on the same line or on the next ones
        "^[A-Za-z_][\\w:<>,&* ]*[ &*:~]\\w+\\([^;]*\\)( const)?( noexcept(\\(false\\))?)?"
        "( :[^;]*)?( \\{.*\\})?$");
    static std::regex const statement("^(if|for|while|switch|return|else|do|try)\\b.*");
    static std::regex const ofClass("^([{}]|\\};|public:|protected:|private:).*");
    bool hasClass = false;
    bool hasStatement = false;
    for (std::string const &line : example.code) {
        if (line.empty() || line.starts_with(' ') || line.starts_with("//") || isInclude(line))
            continue;
        if (std::regex_match(line, statement))
            return false;
        if (std::regex_match(line, declaration))
            return true;
        if (line.starts_with("class ") || line.starts_with("struct "))
            hasClass = true;
        else if (!std::regex_match(line, ofClass))
            hasStatement = true;
    }
    return hasClass && !hasStatement;
}

void writeExamples(std::ostream &source, std::string const &file,
                   std::vector<Example> const &examples, bool areContinued)
{
    std::string name = file;
    std::replace_if(
        name.begin(), name.end(), [](char c) { return !std::isalnum(c); }, '_');
    if (areContinued)
        source << "namespace " << name << " {\n";
    for (Example const &example : examples) {
        bool const isOutside = isAtNamespaceScope(example);
        bool const isGlobal = !areContinued && isAtGlobalScope(example);
        std::string const block = name + '_' + std::to_string(example.line);
        if (!isGlobal)
            source << "namespace " << block << " {\nusing namespace Zv;\n";
        if (!isOutside)
            source << "[[maybe_unused]] auto example()\n{\n";
        source << "#line " << example.line << " \"" << file << "\"\n";
        for (std::string const &line : example.code)
            source << (isInclude(line) ? "" : line) << '\n';
        if (!isOutside)
            source << "}\n";
        if (!isGlobal)
            source << "} // namespace " << block << '\n';
        if (areContinued)
            source << "using namespace " << block << ";\n";
    }
    if (areContinued)
        source << "} // namespace " << name << '\n';
}

std::vector<std::string> findIncludes(std::vector<Example> const &examples)
{
    std::vector<std::string> includes;
    for (Example const &example : examples)
        std::copy_if(example.code.begin(), example.code.end(), std::back_inserter(includes),
                     isInclude);
    return includes;
}

} // namespace ZvTest
