#include "Tolvex/Log/Private/LineRing.h"

#include <algorithm>
#include <cstdint>
#include <new>

namespace Tolvex::Ilog {

namespace {

constexpr std::size_t bytesPerLine = 256;
constexpr std::size_t leastBytes = 65536;  // a few lines may be long

/// @return how many bytes the lines share.
std::size_t BytesFor(std::size_t lines)
{
    if (lines > PTRDIFF_MAX / bytesPerLine) {
        throw std::bad_alloc();
    }
    return std::max(lines * bytesPerLine, leastBytes);
}

}  // namespace

// The memory is not cleared, so pages that no line has used yet cost nothing.
LineRing::LineRing(std::size_t lines)
    : lineLimit(lines),
      byteLimit(BytesFor(lines)),
      lengths(std::make_unique_for_overwrite<std::size_t[]>(lines)),
      bytes(std::make_unique_for_overwrite<char[]>(byteLimit))
{
}

void LineRing::Add(std::string_view line)
{
    const std::size_t length = std::min(line.size(), byteLimit);
    // Drop the oldest lines.
    while (count == lineLimit || used + length > byteLimit) {
        begin = (begin + lengths[oldest]) % byteLimit;
        used -= lengths[oldest];
        oldest = (oldest + 1) % lineLimit;
        --count;
    }

    const std::size_t end = (begin + used) % byteLimit;
    const std::size_t head = line.copy(&bytes[end], std::min(length, byteLimit - end));
    line.copy(bytes.get(), length - head, head);
    used += length;
    bytes[(begin + used - 1) % byteLimit] = '\n';
    lengths[(oldest + count) % lineLimit] = length;
    ++count;
}

std::vector<std::string> LineRing::Lines() const
{
    std::vector<std::string> lines(count);
    std::size_t from = begin;
    for (std::size_t line = 0; line < count; ++line) {
        const std::size_t length = lengths[(oldest + line) % lineLimit];
        lines[line] = Piece(from, length - 1);
        from = (from + length) % byteLimit;
    }
    return lines;
}

/// @return bytes from a place on.
std::string LineRing::Piece(std::size_t from, std::size_t length) const
{
    std::string piece;
    piece.reserve(length);
    piece.append(&bytes[from], std::min(length, byteLimit - from));
    piece.append(bytes.get(), length - piece.size());
    return piece;
}

}  // namespace Tolvex::Ilog
