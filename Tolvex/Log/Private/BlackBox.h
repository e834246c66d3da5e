/// @file
/// Where the last lines of the log are kept.
#pragma once

#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "Tolvex/Log/PolicyCalls.h"
#include "Tolvex/Log/Private/LineRing.h"

namespace Tolvex::Ilog {

/// The policy of a logger whose lines stay in memory.
///
/// Such a logger has no writer: the thread that ends a line puts the line into the ring.
/// @par Thread safety
/// Thread-safe. One lock guards all objects.
class BlackBox
{
public:
    /// The operations of this policy. Its output is a number of lines, as text.
    static const PolicyCalls calls;

    void WriteHeader(LogType /*type*/) {}
    void Write(const std::string& /*line*/) {}  ///< not called: Keep() takes the lines
    void SetOutput(const std::string& lines);
    void Keep(std::string_view line);
    void Close();

    /// As Logger::SaveLastLines().
    bool Save(const std::string& path) const;
    /// As Logger::GetLastLines().
    std::vector<std::string> Lines() const;

    /// Guards the rings of all objects; held while lines are copied, and during a fork.
    static std::mutex ringMutex;

private:
    std::unique_ptr<LineRing> ring;  ///< null while there is no output
};

}  // namespace Tolvex::Ilog
