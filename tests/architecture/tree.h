// The files of the project, for tests that read them.
#pragma once

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <string>

namespace ZvTest {

inline std::filesystem::path const sourceFolder = ZV_SOURCE_FOLDER;
inline std::filesystem::path const root = sourceFolder / "..";

/// Returns the contents of a file. Fails the test if it cannot be read.
inline std::string read(std::filesystem::path const &name)
{
    std::ifstream file(name, std::ios::binary);
    EXPECT_TRUE(file) << name;
    return {std::istreambuf_iterator<char>(file), {}};
}

} // namespace ZvTest
