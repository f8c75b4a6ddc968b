// The examples that the build compiles are those that a reader sees.

#include "architecture/examples.h"

#include <gtest/gtest.h>

#include <sstream>
#include <string>
#include <vector>

namespace ZvTest {
namespace {

std::vector<Example> ofHeader(std::string const &text)
{
    std::istringstream stream(text);
    return findExamplesOfHeader(stream);
}

bool isOutside(std::vector<std::string> const &code)
{
    return isAtNamespaceScope(Example{1, code});
}

TEST(Examples, HeaderHasItsIndentedBlocks)
{
    auto const examples = ofHeader("/// A lock:\n"
                                   "///\n"
                                   "///     LkLock lock(\"a\");\n"
                                   "///\n"
                                   "///     lock.lock();\n"
                                   "///\n"
                                   "/// and\n"
                                   "    ///     use(lock); // with its comment\n"
                                   "class LkLock;\n"
                                   "///     int other;\n");
    ASSERT_EQ(examples.size(), 3u);
    EXPECT_EQ(examples[0].line, 3);
    EXPECT_EQ(examples[0].code,
              (std::vector<std::string>{"LkLock lock(\"a\");", "", "lock.lock();"}));
    EXPECT_EQ(examples[1].line, 8);
    EXPECT_EQ(examples[1].code, (std::vector<std::string>{"use(lock); // with its comment"}));
    EXPECT_EQ(examples[2].line, 10);
}

TEST(Examples, TableIsNoExample)
{
    EXPECT_EQ(ofHeader("///     Freed, Unloaded    no memory; none\n"
                       "///     a --x--> t1 or b   runs _ct(a:x) --> _cs(a:x)\n")
                  .size(),
              0u);
    EXPECT_EQ(ofHeader("///     manager->close(5).getLeftBehind()\n").size(), 1u);
    EXPECT_EQ(ofHeader("///     #include <resmgt/locks.h>\n").size(), 1u);
}

TEST(Examples, DocumentHasItsFences)
{
    std::istringstream stream("Text\n"
                              "```cpp\n"
                              "int a;\n"
                              "```\n"
                              "```xml\n"
                              "<int/>\n"
                              "```\n"
                              "```cpp examples/a.cpp\n"
                              "int b;\n"
                              "```\n");
    auto const examples = findExamplesOfDocument(stream);
    ASSERT_EQ(examples.size(), 2u);
    EXPECT_EQ(examples[0].line, 3);
    EXPECT_EQ(examples[0].code, (std::vector<std::string>{"int a;"}));
    EXPECT_EQ(examples[0].source, "");
    EXPECT_EQ(examples[1].code, (std::vector<std::string>{"int b;"}));
    EXPECT_EQ(examples[1].source, "examples/a.cpp");
}

TEST(Examples, DeclarationsAreOutsideOfFunctions)
{
    EXPECT_TRUE(isOutside({"int main()", "{", "    return 0;", "}"}));
    EXPECT_TRUE(isOutside({"#include <string>", "class A", "{", "};"}));
    EXPECT_TRUE(isOutside({"Meter::Meter(int &a) : Node(\"meter\") { join(); }"}));
    EXPECT_TRUE(isOutside({"template <class T>", "T twice(T t)", "{", "}"}));
    EXPECT_TRUE(isOutside({"ZV_DECLARE_SINGLETON(A);"}));
    EXPECT_TRUE(isOutside({"inline ObjPtrRet<A> make(LiString const &name)", "{", "}"}));
    EXPECT_FALSE(isOutside({"LkLock lock(\"a\");"}));
    EXPECT_FALSE(isOutside({"class A", "{", "};", "A a;"}));
    EXPECT_FALSE(isOutside({"Relation floor(\"a\",", "               b);"}));
    EXPECT_FALSE(isOutside({"if (auto const a = get(1))", "    use(a);"}));
    EXPECT_FALSE(isOutside({"return makeANO([this] { open(); });"}));
}

TEST(Examples, ErrorsNameTheLineOfTheFile)
{
    std::ostringstream source;
    writeExamples(source, "src/a.h", {{7, {"#include <string>", "int a = 1;"}}}, false);
    EXPECT_EQ(source.str(), "namespace src_a_h_7 {\n"
                            "using namespace Zv;\n"
                            "[[maybe_unused]] auto example()\n"
                            "{\n"
                            "#line 7 \"src/a.h\"\n"
                            "\n"
                            "int a = 1;\n"
                            "}\n"
                            "} // namespace src_a_h_7\n");
    EXPECT_EQ(findIncludes({{7, {"#include <string>", "int a = 1;"}}}),
              (std::vector<std::string>{"#include <string>"}));
}

TEST(Examples, NamespacesAreAtGlobalScope)
{
    std::ostringstream source;
    writeExamples(source, "a.h", {{1, {"namespace studio {", "}", "ZV_DECLARE_SINGLETON(A);"}}},
                  false);
    EXPECT_EQ(source.str(), "#line 1 \"a.h\"\nnamespace studio {\n}\nZV_DECLARE_SINGLETON(A);\n");
}

TEST(Examples, AnExampleOfADocumentCanUseEarlierOnes)
{
    std::ostringstream source;
    writeExamples(source, "a.md", {{1, {"class A {};"}}, {5, {"A a;"}}}, true);
    EXPECT_NE(source.str().find("} // namespace a_md_1\nusing namespace a_md_1;\n"),
              std::string::npos);
}

} // namespace
} // namespace ZvTest
