#include "Tolvex/Json/Private/BracketPairs.h"

namespace Tolvex::Json {

void BracketScan::StartAt(std::size_t offset)
{
    position = offset;
    started = true;
}

const BracketScan::Note* BracketScan::Find(std::size_t begin, std::size_t limit)
{
    while (position <= begin) {
        ScanByte();
    }
    while (passed < notes.size() && notes[passed].begin < begin) {
        ++passed;
    }
    if (passed == notes.size() || notes[passed].begin != begin) {
        return nullptr;
    }

    while (notes[passed].outcome == Outcome::Open && position < limit) {
        ScanByte();
    }
    return &notes[passed];
}

void BracketScan::ScanByte()
{
    const std::size_t offset = position++;
    const char byte = text[offset];
    if (byte == '"') {
        // Required: a backslash before the quote always escapes it, even if that backslash is
        // escaped itself.
        if (offset == 0 || text[offset - 1] != '\\') {
            inString = !inString;
        }
        return;
    }
    if (inString) {
        return;
    }
    if (byte == '[' || byte == '{') {
        notes.push_back({offset, innermost, Outcome::Open});
        innermost = notes.size() - 1;
    } else if (byte == ']' || byte == '}') {
        Close(offset);
    }
}

void BracketScan::Close(std::size_t offset)
{
    if (innermost == none) {
        return;
    }
    const bool fits = (text[notes[innermost].begin] == '[') == (text[offset] == ']');
    do {  // a bracket that does not fit decides about all containers around it
        Note& note = notes[innermost];
        innermost = note.end;
        note.end = offset;
        note.outcome = fits ? Outcome::Closed : Outcome::Mismatched;
    } while (!fits && innermost != none);
}

BracketPairs::End BracketPairs::FindEnd(const char* opening, const char* limit)
{
    const auto begin = static_cast<std::size_t>(opening - text);
    const auto scanned = static_cast<std::size_t>(limit - text);
    for (BracketScan& scan : scans) {
        if (!scan.IsStarted()) {
            scan.StartAt(begin);
        }
        const BracketScan::Note* const note = scan.Find(begin, scanned);
        if (note == nullptr) {
            continue;
        }
        if (note->outcome == BracketScan::Outcome::Open || note->end >= scanned) {
            break;
        }
        return {text + note->end, note->outcome};
    }
    return {nullptr, BracketScan::Outcome::Open};
}

}  // namespace Tolvex::Json
