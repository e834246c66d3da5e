/// @file
/// A directory for the files of one test.
#pragma once

#include <algorithm>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <vector>

#include <gtest/gtest.h>

namespace Tolvex::Support {

/// An empty directory. The destructor removes it with everything in it.
class ScratchDirectory
{
public:
    ScratchDirectory()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "scratch.XXXXXX").string();
        EXPECT_NE(mkdtemp(pattern.data()), nullptr);
        directory = pattern;
    }

    ~ScratchDirectory()
    {
        std::error_code ignored;
        std::filesystem::remove_all(directory, ignored);
    }

    ScratchDirectory(const ScratchDirectory&) = delete;
    ScratchDirectory& operator=(const ScratchDirectory&) = delete;

    /// @return the path of a file with this name in the directory.
    std::string Path(const std::string& name) const { return (directory / name).string(); }

private:
    std::filesystem::path directory;
};

/// @return all bytes of a file, or an empty text if there is no file.
inline std::string ReadFile(const std::string& path)
{
    std::ostringstream bytes;
    bytes << std::ifstream(path, std::ios::binary).rdbuf();
    return bytes.str();
}

/// @return the lines of a text without their newlines. Text after the last newline is a line too.
inline std::vector<std::string> SplitLines(const std::string& text)
{
    std::vector<std::string> lines;
    for (std::size_t begin = 0; begin < text.size();) {
        const std::size_t end = std::min(text.find('\n', begin), text.size());
        lines.push_back(text.substr(begin, end - begin));
        begin = end + 1;
    }
    return lines;
}

}  // namespace Tolvex::Support
