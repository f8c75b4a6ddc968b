#include "architecture/comments.h"

#include <algorithm>
#include <cctype>
#include <istream>
#include <regex>

namespace ZvTest {

namespace {

std::size_t const WIDTH = 100;

struct Rule
{
    char const *name;
    std::regex pattern;
};

std::regex words(char const *pattern)
{
    return std::regex(pattern, std::regex::icase | std::regex::optimize);
}

/// The words that a sentence must not have. Code and quoted text are taken out of it before.
std::vector<Rule> const &getRules()
{
    static std::vector<Rule> const rules = {
        {"a thread, a function or an object is \"it\"",
         words("\\b(who|whom|whoever|nobody|somebody|anybody|everybody|someone|anyone|everyone|"
               "no one|he|him|his|himself|she|her|herself)\\b")},
        {"say what happens instead of \"stands\" or \"comes\"",
         words("\\b(stands?|stood|standing|coming)\\b|"
               "\\b(comes?|came)\\b(?! (up|early|earlier|late|later|first|next|last|back|before|"
               "after|from)\\b)")},
        {"old-fashioned", words("\\b(for ever|any more|whatever|be it|lest|lets? go)\\b")},
    };
    return rules;
}

/// Words behind which "where" is a place. Behind all others it means "if" or "when".
std::regex const &getPlaces()
{
    static std::regex const places =
        words("\\b(places?|points?|positions?|lines?|files?|folders?|states?|locations?|addresses|"
              "address|offset|spot|row|column|stack|exactly|know|knows|from|is|says?|tells?|shows?|"
              "near|of|in|at|to|written|begins?|starts?|ends?)$");
    return places;
}

bool isConditionalWhere(std::string const &sentence)
{
    static std::regex const where = words("\\bwhere\\b");
    for (std::sregex_iterator match(sentence.begin(), sentence.end(), where), end; match != end;
         ++match) {
        std::string before = match->prefix();
        while (!before.empty() && std::isspace(static_cast<unsigned char>(before.back())))
            before.pop_back();
        if (!std::regex_search(before, getPlaces()))
            return true;
    }
    return false;
}

std::size_t countMatches(std::string const &text, std::regex const &pattern)
{
    return static_cast<std::size_t>(std::distance(
        std::sregex_iterator(text.begin(), text.end(), pattern), std::sregex_iterator()));
}

/// The characters of a text in UTF-8.
std::size_t countCharacters(std::string const &line)
{
    return static_cast<std::size_t>(
        std::count_if(line.begin(), line.end(), [](char c) { return (c & 0xc0) != 0x80; }));
}

/// Returns the index at which the comment of a line begins, or npos if there is none.
std::size_t findComment(std::string const &line)
{
    char quote = 0;
    for (std::size_t i = 0; i < line.size(); ++i) {
        if (quote) {
            if (line[i] == '\\')
                ++i;
            else if (line[i] == quote)
                quote = 0;
        } else if (line[i] == '"' ||
                   (line[i] == '\'' &&
                    (i == 0 || !std::isxdigit(static_cast<unsigned char>(line[i - 1]))))) {
            quote = line[i];
        } else if (line.compare(i, 2, "//") == 0) {
            return i;
        }
    }
    return std::string::npos;
}

/// Consecutive comment lines, joined by blanks.
struct Paragraph
{
    std::string text;
    std::vector<std::pair<std::size_t, int>> lines; // start of each

    void add(std::string const &line, int number)
    {
        if (!text.empty())
            text += ' ';
        lines.emplace_back(text.size(), number);
        text += line;
    }
    int getLine(std::size_t position) const
    {
        int number = lines.front().second;
        for (auto const &[begin, line] : lines)
            if (begin <= position)
                number = line;
        return number;
    }
};

/// Code in backquotes and text in double quotes become letters of the same number.
std::string withoutCode(std::string text)
{
    for (char const quote : {'`', '"'}) {
        std::size_t begin = 0;
        while ((begin = text.find(quote, begin)) != std::string::npos) {
            std::size_t const end = text.find(quote, begin + 1);
            if (end == std::string::npos)
                break;
            std::fill(text.begin() + static_cast<std::ptrdiff_t>(begin) + 1,
                      text.begin() + static_cast<std::ptrdiff_t>(end), 'X');
            begin = end + 1;
        }
    }
    return text;
}

/// The headings of a contract, such as "**Threads**:", have a colon of their own.
std::string withoutHeading(std::string const &sentence)
{
    static std::regex const heading("^\\*\\*[^*]*\\*\\*:?");
    return std::regex_replace(sentence, heading, "");
}

class Reader
{
public:
    explicit Reader(WordCount &count) : _count(count) {}

    std::vector<Offence> read(std::vector<CommentLine> const &comments);

private:
    void readFirstLine(std::vector<CommentLine> const &comments);
    void endParagraph();
    void readSentence(std::size_t begin, std::size_t end);
    void report(int line, char const *rule, std::string const &sentence)
    {
        _offences.push_back({line, rule, sentence});
    }

    WordCount &_count;
    Paragraph _paragraph;
    std::string _plain; // the paragraph without its code
    std::vector<Offence> _offences;
};

void Reader::readFirstLine(std::vector<CommentLine> const &comments)
{
    if (comments.empty() || comments.front().number != 1) {
        report(1, "the first line of a file says what it is for", "");
        return;
    }
    std::string const &line = comments.front().text;
    if (line.starts_with("Forwards to "))
        return;
    static std::regex const riddle("^(What|Who|Whose|Where|When|How|Why|That|It|Here|Behind)\\b.*");
    if (std::regex_match(line, riddle))
        report(1, "the first line of a file is a noun or a verb that a search finds", line);
    static std::regex const audience(".*\\((applications|device writers|extenders)(( and |, )"
                                     "(applications|device writers|extenders))*\\)\\.$");
    std::string whole = line;
    for (std::size_t i = 1; i < comments.size() && !whole.ends_with('.'); ++i)
        whole += ' ' + comments[i].text;
    if (!std::regex_match(whole, audience))
        report(1, "the first sentence ends with (applications), (device writers) or (extenders)",
               line);
}

void Reader::readSentence(std::size_t begin, std::size_t end)
{
    std::string const sentence = _plain.substr(begin, end - begin);
    static std::regex const word("[A-Za-z][A-Za-z'-]*");
    std::size_t const nbWords = countMatches(sentence, word);
    if (nbWords == 0)
        return;
    static std::regex const ifs = words("\\bif\\b");
    static std::regex const returns = words("\\breturns?\\b");
    static std::regex const colon("[:;](\\s|$)");
    // The items of a list may end with semicolons.
    bool const isItem = end == _plain.size() && _plain.ends_with(';');
    std::size_t const nbColons = countMatches(withoutHeading(sentence), colon) - isItem;
    ++_count.sentences;
    _count.words += nbWords;
    _count.ifs += countMatches(sentence, ifs);
    _count.returns += countMatches(sentence, returns);
    _count.colons += nbColons;

    int const line = _paragraph.getLine(begin);
    std::string const original = _paragraph.text.substr(begin, end - begin);
    if (isConditionalWhere(sentence))
        report(line, "a condition begins with \"if\" or \"when\"", original);
    for (Rule const &rule : getRules())
        if (std::regex_search(sentence, rule.pattern))
            report(line, rule.name, original);
    if (nbColons > 1)
        report(line, "two sentences are better than a second colon or semicolon", original);
}

void Reader::endParagraph()
{
    if (_paragraph.text.empty())
        return;
    _plain = withoutCode(_paragraph.text);
    static std::regex const end("[.!?][)\"]?\\s+(?=[A-Z`\"(*])");
    std::size_t begin = 0;
    for (std::sregex_iterator match(_plain.begin(), _plain.end(), end), last; match != last;
         ++match) {
        auto const next = static_cast<std::size_t>(match->position() + match->length());
        readSentence(begin, static_cast<std::size_t>(match->position()) + 1);
        begin = next;
    }
    readSentence(begin, _plain.size());
    _paragraph = {};
}

std::vector<Offence> Reader::read(std::vector<CommentLine> const &comments)
{
    readFirstLine(comments);
    static std::regex const noText("^(namespace\\b|NOLINT|clang-format|cppcheck|#).*");
    static std::regex const listItem("^([-*]|[0-9]+[.)])\\s.*");
    int last = 0;
    for (CommentLine const &comment : comments) {
        if (comment.isAlone && comment.width > WIDTH)
            report(comment.number, "a comment line has at most 100 columns", comment.text);
        bool const isText =
            !comment.text.empty() && !comment.isExample && !std::regex_match(comment.text, noText);
        if (!isText || !comment.isAlone || comment.number != last + 1 ||
            std::regex_match(comment.text, listItem))
            endParagraph();
        last = comment.isAlone ? comment.number : 0;
        if (isText)
            _paragraph.add(comment.text, comment.number);
    }
    endParagraph();
    std::stable_sort(_offences.begin(), _offences.end(),
                     [](Offence const &a, Offence const &b) { return a.line < b.line; });
    return std::move(_offences);
}

} // namespace

std::vector<CommentLine> readComments(std::istream &source)
{
    std::vector<CommentLine> comments;
    int number = 0;
    for (std::string line; std::getline(source, line);) {
        ++number;
        std::size_t const begin = findComment(line);
        if (begin == std::string::npos)
            continue;
        std::string text = line.substr(begin);
        text.erase(0, std::min(text.find_first_not_of('/'), text.size()));
        if (text.starts_with('<'))
            text.erase(0, 1);
        std::size_t const indent = std::min(text.find_first_not_of(' '), text.size());
        bool const isAlone = line.find_first_not_of(" \t") == begin;
        bool const isExample = isAlone && indent >= 5;
        text.erase(0, isExample ? 5 : indent);
        while (text.ends_with(' '))
            text.pop_back();
        comments.push_back({number, text, isAlone, isExample, countCharacters(line)});
    }
    return comments;
}

std::vector<Offence> findOffences(std::vector<CommentLine> const &comments, WordCount &count)
{
    return Reader(count).read(comments);
}

std::vector<std::filesystem::path> findPublicHeaders(std::filesystem::path const &src)
{
    std::vector<std::filesystem::path> headers;
    for (char const *library : {"zvbase", "resmgt"})
        for (auto const &entry : std::filesystem::recursive_directory_iterator(src / library)) {
            std::string const name = entry.path().generic_string();
            if (name.ends_with(".h") && !name.ends_with(".private.h"))
                headers.push_back(entry.path());
        }
    std::sort(headers.begin(), headers.end());
    return headers;
}

} // namespace ZvTest
