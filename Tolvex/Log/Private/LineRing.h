/// @file
/// The last lines of the log, in memory.
#pragma once

#include <cstddef>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

namespace Tolvex::Ilog {

/// Keeps the last lines that were added, in a fixed amount of memory.
///
/// The memory is allocated once: 256 bytes per line, and at least 64 KiB. Add() never allocates. If
/// the lines are longer than 256 bytes on average, the ring holds fewer lines than it could count.
/// @par Thread safety
/// Caller serialises.
class LineRing
{
public:
    /// @param lines  How many lines to keep; at least 1.
    /// @throws std::bad_alloc without memory.
    explicit LineRing(std::size_t lines);

    /// Adds a line and drops the oldest lines that have no room beside it.
    /// @param line  Ends in a newline. A line that is longer than the whole ring loses its end, but
    /// not its newline.
    void Add(std::string_view line);

    /// @return the lines without their newlines, the oldest first.
    std::vector<std::string> Lines() const;

    /// @return the lines with their newlines, in one text.
    std::string Text() const { return Piece(begin, used); }

private:
    std::string Piece(std::size_t from, std::size_t length) const;

    const std::size_t lineLimit;
    const std::size_t byteLimit;
    const std::unique_ptr<std::size_t[]> lengths;  ///< of the lines, in a ring of lineLimit
    const std::unique_ptr<char[]> bytes;           ///< of the lines, in a ring of byteLimit
    std::size_t oldest = 0;                        ///< line: place in lengths
    std::size_t begin = 0;                         ///< of the oldest line: place in bytes
    std::size_t count = 0;                         ///< of lines
    std::size_t used = 0;                          ///< bytes of all lines
};

}  // namespace Tolvex::Ilog
