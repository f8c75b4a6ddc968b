// What Graphviz reads in a text of DOT.
#pragma once

#include <gtest/gtest.h>

#include <cstdio>
#include <fstream>
#include <iomanip>
#include <random>
#include <sstream>
#include <string>
#include <vector>

namespace ZvTest {

namespace Detail {

/// Returns the words of a line of Graphviz's plain format.
inline std::vector<std::string> splitPlain(std::string const &line)
{
    std::istringstream stream(line);
    std::vector<std::string> words;
    std::string word;
    while (stream >> std::quoted(word))
        words.push_back(word);
    return words;
}

} // namespace Detail

/// Lets Graphviz draw what `object.dumpDot` writes. Returns a line for each node, "name: label", and
/// for each arrow, "tail -> head: label". Line breaks in labels are spaces.
template <class Object>
std::vector<std::string> graphOf(Object const &object)
{
    std::string const file =
        testing::TempDir() + "graphOf" + std::to_string(std::random_device()()) + ".dot";
    {
        std::ofstream stream(file);
        object.dumpDot(stream);
    }
    std::FILE * const output = ::popen(("dot -Tplain " + file + " 2>&1").c_str(), "r");
    std::string text;
    for (int c; output && (c = std::fgetc(output)) != EOF;)
        text += static_cast<char>(c);
    EXPECT_TRUE(output && ::pclose(output) == 0) << text;
    std::remove(file.c_str());

    std::vector<std::string> lines;
    std::istringstream stream(text);
    for (std::string line; std::getline(stream, line);) {
        for (std::size_t at; (at = line.find("\\n")) != line.npos;)
            line.replace(at, 2, " ");
        auto const words = Detail::splitPlain(line);
        if (words.size() > 6 && words[0] == "node") {
            lines.push_back(words[1] + ": " + words[6]);
        } else if (words.size() > 3 && words[0] == "edge") {
            std::size_t const label = 4 + 2 * std::stoul(words[3]);
            bool const hasLabel = words.size() > label + 2;
            lines.push_back(words[1] + " -> " + words[2] +
                            (hasLabel ? ": " + words[label] : std::string()));
        }
    }
    return lines;
}

} // namespace ZvTest
