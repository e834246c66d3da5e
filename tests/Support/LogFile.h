/// @file
/// The lines that the library logs, captured through the real file logger.
#pragma once

#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <unistd.h>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Log/Logger.h"

#include "tests/Support/CapturingPolicy.h"
#include "tests/Support/Patience.h"

namespace Tolvex::Support {

/// Sends the log to a temporary file while it exists.
class LogFile
{
public:
    LogFile()
    {
        std::string pattern = (std::filesystem::temp_directory_path() / "log.XXXXXX").string();
        const int descriptor = mkstemp(pattern.data());
        EXPECT_GE(descriptor, 0);
        close(descriptor);
        name = pattern;
        EXPECT_TRUE(Ilog::Logger::GetInstance()->EnableFile(name));
    }

    ~LogFile()
    {
        Ilog::Logger::GetInstance()->CloseFile();
        std::filesystem::remove(name);
    }

    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    /// @return the lines that were ended since the last call, without their dates.
    std::vector<std::string> TakeLines()
    {
        // Lines reach the file in the order in which they were ended, so wait for a marker line.
        const std::string marker = "end of capture " + std::to_string(++markers);
        Ilog::Logger& logger = *Ilog::Logger::GetInstance();
        logger.WriteHeader(Ilog::LogType::Info);
        logger << marker << std::endl;

        std::vector<std::string> lines;
        EXPECT_TRUE(Eventually([&] { return TakeUpTo(marker, lines); }))
            << "the logger writes no more lines";
        return lines;
    }

private:
    bool TakeUpTo(const std::string& marker, std::vector<std::string>& lines)
    {
        lines.clear();
        std::ifstream file(name);
        file.seekg(taken);
        for (std::string line; std::getline(file, line) && !file.eof();) {
            line = WithoutDate(line);
            if (line == marker) {
                taken = file.tellg();
                return true;
            }
            lines.push_back(line);
        }
        return false;
    }

    std::string name;
    std::streamoff taken = 0;  ///< bytes of the file that earlier calls returned
    int markers = 0;
};

}  // namespace Tolvex::Support
