/// @file
/// Where the containers of a JSON text end. Not installed.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace Tolvex::Json {

/// One way of reading a text: which of its brackets stand outside strings, and which belong
/// together. One scan notes the ends of all containers that it passes, so that no byte is looked at
/// again for an enclosing or a later container.
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
        std::uint32_t commas;  ///< directly in the container, outside strings and nested containers
        Outcome outcome;
    };

    BracketScan(const char* textBegin, const char* textEnd)
        : text(textBegin), length(Size(textBegin, textEnd))
    {
    }

    /// Takes the byte at an offset as outside strings. For the first call alone: later the scan
    /// knows by itself.
    void StartAt(std::size_t offset);
    bool IsStarted() const { return started; }

    /// The note of the opening bracket at an offset, which must not decrease from call to call.
    ///
    /// Scans on until the note is decided or the limit has been scanned.
    /// @return null when that bracket stands in a string for this scan.
    const Note* Find(std::size_t begin, std::size_t limit);

private:
    static std::size_t Size(const char* from, const char* to)
    {
        return static_cast<std::size_t>(to - from);
    }

    Note& At(std::size_t number) { return notes[number - dropped]; }
    void ScanBlock();
    void MeetBracket(std::size_t offset);
    void Close(std::size_t offset);
    void DropPassedNotes();

    const char* text;
    std::size_t length;
    std::size_t position = 0;  ///< where the next block begins
    bool started = false;
    bool inString = false;        ///< at position
    bool afterBackslash = false;  ///< at position

    std::vector<Note> notes;  ///< by ascending begin; numbered on from `dropped`
    std::size_t dropped = 0;  ///< notes no longer kept
    std::size_t passed = 0;   ///< number of the first note at or after the last bracket asked for
    std::size_t innermost = none;  ///< number of the innermost open note
    std::size_t outermost = none;  ///< number of the outermost open note

    static constexpr std::size_t none = SIZE_MAX;
};

/// Finds the ends of containers for a reader that goes through a text from front to back.
///
/// A bracket can stand in a string for one scan and outside for another that started elsewhere, but
/// there are two ways to read a text only: whether a byte is in a string differs between two scans
/// either everywhere or nowhere. So two scans do for all brackets, in linear time.
class ContainerEnds
{
public:
    ContainerEnds(const char* textBegin, const char* textEnd)
        : text(textBegin), scans{{textBegin, textEnd}, {textBegin, textEnd}}
    {
    }

    struct End
    {
        const char* at;                ///< the closing bracket, when closed
        std::uint32_t commas;          ///< directly in the container, as a hint for its size
        BracketScan::Outcome outcome;  ///< Open: the limit came first
    };

    /// The end of the container that opens here, if it ends before the limit.
    End Find(const char* opening, const char* limit);

private:
    const char* text;
    BracketScan scans[2];
};

}  // namespace Tolvex::Json
