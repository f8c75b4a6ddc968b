// What the README shows is what stands in the tree.

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace {

std::string read(std::string const &name)
{
    std::ifstream file(std::filesystem::path(ZV_SOURCE_FOLDER) / ".." / name);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

TEST(Readme, ShowsTheExampleDeviceAsItStands)
{
    std::string const device = read("examples/counter/counter.h");
    std::string const client = read("examples/counter/main.cpp");
    std::string const readme = read("README.md");
    EXPECT_NE(readme.find(device.substr(device.find("/// What it overrides"))), std::string::npos);
    EXPECT_NE(readme.find(client.substr(client.find("int main()"))), std::string::npos);
}

} // namespace
