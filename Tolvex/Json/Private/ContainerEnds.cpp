#include "Tolvex/Json/Private/ContainerEnds.h"

#include <algorithm>
#include <bit>
#include <cstring>

#ifdef __SSE2__
#include <emmintrin.h>
#endif

namespace Tolvex::Json {

namespace {

constexpr std::size_t blockBytes = 64;
constexpr std::size_t prefetchedBytes = 1024;  // ahead: the processor alone is late with long texts

/// Which bytes of a block are of interest, one bit each, the first byte's lowest.
struct Masks
{
    std::uint64_t quotes = 0;
    std::uint64_t backslashes = 0;
    std::uint64_t commas = 0;
    std::uint64_t brackets = 0;
};

#ifdef __SSE2__

std::uint64_t Equal(__m128i bytes, char wanted)
{
    return static_cast<unsigned int>(
        _mm_movemask_epi8(_mm_cmpeq_epi8(bytes, _mm_set1_epi8(wanted))));
}

Masks FindMasks(const char* block)
{
    Masks masks;
    for (std::size_t offset = 0; offset < blockBytes; offset += sizeof(__m128i)) {
        __m128i bytes;
        std::memcpy(&bytes, block + offset, sizeof bytes);
        // '[' and '{', like ']' and '}', differ in one bit.
        const __m128i folded = _mm_or_si128(bytes, _mm_set1_epi8('[' ^ '{'));
        masks.quotes |= Equal(bytes, '"') << offset;
        masks.backslashes |= Equal(bytes, '\\') << offset;
        masks.commas |= Equal(bytes, ',') << offset;
        masks.brackets |= (Equal(folded, '{') | Equal(folded, '}')) << offset;
    }
    return masks;
}

#else

Masks FindMasks(const char* block)
{
    Masks masks;
    for (std::size_t offset = 0; offset < blockBytes; ++offset) {
        const std::uint64_t bit = std::uint64_t{1} << offset;
        switch (block[offset]) {
            case '"':
                masks.quotes |= bit;
                break;
            case '\\':
                masks.backslashes |= bit;
                break;
            case ',':
                masks.commas |= bit;
                break;
            case '[':
            case ']':
            case '{':
            case '}':
                masks.brackets |= bit;
                break;
            default:
                break;
        }
    }
    return masks;
}

#endif

/// Sets every bit that has an odd number of bits set at or below it.
std::uint64_t PrefixXor(std::uint64_t bits)
{
    for (unsigned int shift = 1; shift < blockBytes; shift *= 2) {
        bits ^= bits << shift;
    }
    return bits;
}

std::uint32_t CountBits(std::uint64_t bits)
{
    std::uint32_t count = 0;
    for (; bits != 0;
         bits &= bits - 1) {  // few are set: cheaper than a call of the library's count
        ++count;
    }
    return count;
}

constexpr std::size_t notesWorthDropping = 4096;

}  // namespace

void BracketScan::StartAt(std::size_t offset)
{
    position = offset;
    started = true;
}

const BracketScan::Note* BracketScan::Find(std::size_t begin, std::size_t limit)
{
    while (position <= begin) {
        ScanBlock();
    }
    while (passed - dropped < notes.size() && At(passed).begin < begin) {
        ++passed;
    }
    if (passed - dropped == notes.size() || At(passed).begin != begin) {
        return nullptr;
    }

    while (At(passed).outcome == Outcome::Open && position < limit) {
        ScanBlock();
    }
    return &At(passed);
}

void BracketScan::ScanBlock()
{
    DropPassedNotes();
    const std::size_t count = std::min(blockBytes, length - position);
    char padded[blockBytes] = {};
    const char* block = text + position;
    __builtin_prefetch(text + std::min(position + prefetchedBytes, length));
    if (count < blockBytes) {
        std::memcpy(padded, block, count);
        block = padded;
    }

    const Masks masks = FindMasks(block);
    // Required: only the one byte before a quote counts, so an escaped backslash hides it as well.
    const std::uint64_t escaped = masks.backslashes << 1 | (afterBackslash ? 1U : 0U);
    std::uint64_t inside = PrefixXor(masks.quotes & ~escaped);
    if (inString) {
        inside = ~inside;
    }
    inString = inside >> (blockBytes - 1) != 0;
    afterBackslash = masks.backslashes >> (blockBytes - 1) != 0;

    std::uint64_t commas = masks.commas & ~inside;
    for (std::uint64_t rest = masks.brackets & ~inside; rest != 0; rest &= rest - 1) {
        const std::uint64_t before = (rest & (~rest + 1)) - 1;
        if (innermost != none) {
            At(innermost).commas += CountBits(commas & before);
        }
        commas &= ~before;
        MeetBracket(position + static_cast<std::size_t>(std::countr_zero(rest)));
    }
    if (innermost != none) {
        At(innermost).commas += CountBits(commas);
    }
    position += blockBytes;
}

void BracketScan::MeetBracket(std::size_t offset)
{
    if (text[offset] == ']' || text[offset] == '}') {
        Close(offset);
        return;
    }
    notes.push_back({offset, innermost, 0, Outcome::Open});
    innermost = dropped + notes.size() - 1;
    if (outermost == none) {
        outermost = innermost;
    }
}

void BracketScan::Close(std::size_t offset)
{
    if (innermost == none) {
        return;
    }
    const bool fits = (text[At(innermost).begin] == '[') == (text[offset] == ']');
    do {  // a bracket that does not fit decides about all containers around it
        Note& note = At(innermost);
        innermost = note.end;
        note.end = offset;
        note.outcome = fits ? Outcome::Closed : Outcome::Mismatched;
    } while (!fits && innermost != none);
    if (innermost == none) {
        outermost = none;
    }
}

void BracketScan::DropPassedNotes()
{
    const std::size_t unneeded = std::min(passed, outermost) - dropped;
    if (unneeded >= notesWorthDropping && unneeded >= notes.size() / 2) {
        notes.erase(notes.begin(), notes.begin() + static_cast<std::ptrdiff_t>(unneeded));
        dropped += unneeded;
    }
}

ContainerEnds::End ContainerEnds::Find(const char* opening, const char* limit)
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
        return {text + note->end, note->commas, note->outcome};
    }
    return {nullptr, 0, BracketScan::Outcome::Open};
}

}  // namespace Tolvex::Json
