/// @file
/// Which brackets of a JSON text belong together, by the dialect's rules.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Tolvex::Json {

/// One way of reading a text: which of its brackets stand outside strings, and which belong
/// together. A scan notes every container that it passes, so no byte is scanned again for an
/// enclosing or a later container.
///
/// A double quote begins or ends a string unless the byte before it is a backslash.
/// @note Only that one byte counts: a string that ends in an escaped backslash is not seen to end.
class BracketScan
{
public:
    enum class Outcome : std::uint8_t
    {
        Open,
        Closed,
        Mismatched
    };

    struct Note
    {
        std::size_t begin;  ///< of the opening bracket
        std::size_t end;  ///< of the bracket that decided; while open, the enclosing note's number
        Outcome outcome;
    };

    explicit BracketScan(const char* textBegin) : text(textBegin) {}

    /// Takes the byte at an offset as outside strings. For the first call alone: later the scan
    /// knows by itself.
    void StartAt(std::size_t offset);
    bool IsStarted() const { return started; }

    /// Finds the note of the opening bracket at an offset, which must not decrease from call to
    /// call. Scans until the note is decided or the limit has been scanned.
    ///
    /// @return null when that bracket stands in a string for this scan.
    const Note* Find(std::size_t begin, std::size_t limit);

private:
    void ScanByte();
    void Close(std::size_t offset);

    const char* text;
    std::size_t position = 0;  ///< of the next byte to scan
    bool started = false;
    bool inString = false;  ///< at position

    std::vector<Note> notes;       ///< by ascending begin
    std::size_t passed = 0;        ///< the first note at or after the last bracket asked for
    std::size_t innermost = none;  ///< the innermost open note

    static constexpr std::size_t none = SIZE_MAX;
};

/// Finds the closing brackets for a reader that goes through a text from front to back.
///
/// A bracket can stand in a string for one scan and outside for another that started elsewhere. But
/// there are only two ways to read a text: two scans differ about being in a string either at every
/// byte or at none. So two scans serve all brackets, in linear time.
class BracketPairs
{
public:
    explicit BracketPairs(const char* textBegin)
        : text(textBegin), scans{BracketScan(textBegin), BracketScan(textBegin)}
    {
    }

    struct End
    {
        const char* at;                ///< the closing bracket, when closed
        BracketScan::Outcome outcome;  ///< Open: the limit came first
    };

    /// @return the end of the container that opens here, if it ends before the limit.
    End FindEnd(const char* opening, const char* limit);

private:
    const char* text;
    BracketScan scans[2];
};

}  // namespace Tolvex::Json
