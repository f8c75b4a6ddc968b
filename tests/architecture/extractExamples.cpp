// Writes the examples of headers and documents into one source, which the build compiles.
//
//     extractExamples ROOT OUTPUT UMBRELLA FILE...
//
// ROOT is the folder to which the names of the files are relative in the compiler's errors, and UMBRELLA is what the
// source includes.

#include "architecture/examples.h"

#include <filesystem>
#include <fstream>
#include <iostream>
#include <sstream>
#include <vector>

int main(int argc, char **argv)
{
    using namespace ZvTest;
    if (argc < 4) {
        std::cerr << "usage: extractExamples ROOT OUTPUT UMBRELLA FILE...\n";
        return 2;
    }
    std::ostringstream includes, code;
    for (int i = 4; i < argc; ++i) {
        std::filesystem::path const path = argv[i];
        std::ifstream file(path);
        if (!file) {
            std::cerr << "cannot read " << path << '\n';
            return 1;
        }
        bool const isDocument = path.extension() == ".md";
        auto examples = isDocument ? findExamplesOfDocument(file) : findExamplesOfHeader(file);
        // What a document quotes is compiled with its source.
        std::erase_if(examples, [](Example const &example) { return !example.source.empty(); });
        if (examples.empty())
            continue;
        for (std::string const &line : findIncludes(examples))
            includes << line << '\n';
        writeExamples(code, std::filesystem::relative(path, argv[1]).generic_string(), examples,
                      isDocument);
    }
    std::ofstream output(argv[2]);
    output << "#include <" << argv[3] << ">\n#include <iostream>\n" << includes.str() << code.str();
    return output ? 0 : 1;
}
