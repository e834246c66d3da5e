#include <algorithm>
#include <array>
#include <charconv>
#include <cstddef>
#include <cstring>
#include <new>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/Prefetch.h"
#include "Tolvex/Json/Private/SixDecimals.h"
#include "Tolvex/Json/Private/Tree.h"

namespace Tolvex::Json {

namespace {

/// A container whose bracket is written, and what of it is still to be written.
struct OpenContainer
{
    Cursor rest;
    std::size_t size;       ///< values in all
    std::size_t begun = 0;  ///< values whose text has been begun
};

/// @return the factor from the text so far to the whole document's, taken by the number of values.
double EstimateGrowth(const std::vector<OpenContainer>& open)
{
    constexpr std::size_t levels = 8;  // what is further inside makes no difference
    constexpr double margin = 1.0625;
    constexpr double highest = 4;  // the first values can be the longest
    double complete = 0;
    double whole = 1;
    for (std::size_t level = 0; level < std::min(open.size(), levels); ++level) {
        const auto size = static_cast<double>(open[level].size);
        const auto begun = static_cast<double>(open[level].begun);
        complete += whole * std::max(begun - 1, 0.0) / size;
        whole /= size;
    }
    return std::min(margin / complete, highest);
}

/// Copies bytes; up to 16 without a call, as two halves that may overlap.
/// @return the byte behind the copy.
inline char* PutBytes(char* at, std::string_view bytes)
{
    const std::size_t count = bytes.size();
    const auto copyHalves = [&](std::size_t half) {
        std::memcpy(at, bytes.data(), half);
        std::memcpy(at + count - half, bytes.data() + count - half, half);
    };
    if (count > 16) {
        std::memcpy(at, bytes.data(), count);
    } else if (count > 8) {
        copyHalves(8);
    } else if (count >= 4) {
        copyHalves(4);
    } else {
        std::copy_n(bytes.data(), count, at);
    }
    return at + count;
}

/// Writes the text of a tree, with a stack of its own.
///
/// The functions take where to write, and return where the next byte goes. They write into a buffer
/// that stays in the cache; when it is nearly full, its bytes go to the string.
class Writer
{
public:
    std::string Write(const Value& value) { return WriteOpen(Begin(buffer.data(), value)); }

    std::string Write(const Array& array) { return WriteOpen(Open(buffer.data(), '[', array)); }

private:
    static constexpr std::size_t bufferBytes = 4096;
    static constexpr std::size_t shortString = 512;  ///< longer ones bypass the buffer
    static constexpr std::size_t longestMember = 2 * shortString + 8;  ///< with its punctuation
    static_assert(longestSixDecimals <= shortString);

    char* Begin(char* at, const Value& value);
    std::string WriteOpen(char* at);
    char* WriteNext(char* at, OpenContainer& container);
    char* PutString(char* at, const std::string& bytes);
    char* Flush(const char* at);
    void Reserve(std::size_t count);

    template <typename Container>
    char* Open(char* at, char bracket, const Container& container)
    {
        open.push_back({Cursor(container), container.size()});
        *at = bracket;
        return at + 1;
    }

    std::array<char, bufferBytes> buffer;
    std::string text;  ///< what was in the buffer before
    std::vector<OpenContainer> open;
};

/// Writes a value, but of a container the opening bracket only.
char* Writer::Begin(char* at, const Value& value)
{
    switch (value.GetType()) {
        case NullVal:
            return PutBytes(at, "null");
        case StringVal:
            return PutString(at, Access::String(value));
        case IntVal:
            return std::to_chars(at, at + shortString, Access::Int(value)).ptr;
        case FloatVal:
            return PutSixDecimals(at, static_cast<double>(Access::Float(value)));
        case DoubleVal:
            return PutSixDecimals(at, Access::Double(value));
        case ObjectVal:
            return Open(at, '{', Access::ObjectOf(value));
        case ArrayVal:
            return Open(at, '[', Access::ArrayOf(value));
        case BoolVal:
            return PutBytes(at, Access::Bool(value) ? "true" : "false");
    }
    return at;  // GCOV_EXCL_LINE: every type has its case
}

std::string Writer::WriteOpen(char* at)
{
    while (!open.empty()) {
        if (at > buffer.data() + bufferBytes - longestMember) {
            at = Flush(at);
        }
        OpenContainer& container = open.back();
        if (container.rest.AtEnd()) {
            *at++ = container.rest.OverMembers() ? '}' : ']';
            open.pop_back();
        } else {
            at = WriteNext(at, container);
        }
    }
    Flush(at);
    if (text.capacity() / 2 > text.size()) {
        text.shrink_to_fit();  // the estimate was far off
    }
    return std::move(text);
}

char* Writer::WriteNext(char* at, OpenContainer& container)
{
    if (container.begun != 0) {
        *at++ = ',';
    }
    ++container.begun;
    if (container.rest.OverMembers()) {
        at = PutString(at, PrefetchAhead(container.rest.Key()));
        *at++ = ':';
    }
    const Value& value = container.rest.Current();
    container.rest.Advance();
    return Begin(at, value);  // container may be gone afterwards
}

char* Writer::PutString(char* at, const std::string& bytes)
{
    // Required: no byte is escaped, whatever it is.
    // Instead: a member with the Base64EncodeLine() of such bytes.
    *at++ = '"';
    if (bytes.size() <= shortString) {
        at = PutBytes(at, bytes);
    } else {
        at = Flush(at);
        Reserve(bytes.size());
        text += bytes;
    }
    *at++ = '"';
    return at;
}

/// Moves what is in the buffer to the string. @return the begin of the buffer.
char* Writer::Flush(const char* at)
{
    const auto length = static_cast<std::size_t>(at - buffer.data());
    Reserve(length);
    text.append(buffer.data(), length);
    return buffer.data();
}

/// Makes room for more bytes. Takes what the whole document will probably need: a string that
/// doubles time and again touches twice as much memory.
void Writer::Reserve(std::size_t count)
{
    const std::size_t needed = text.size() + count;
    if (needed <= text.capacity()) {
        return;
    }
    std::string larger;  // an empty one reserves exactly what it is asked for
    try {
        larger.reserve(
            static_cast<std::size_t>(static_cast<double>(needed) * EstimateGrowth(open)));
    } catch (const std::bad_alloc&) {
        larger.reserve(needed);
    }
    larger += text;
    text.swap(larger);
}

}  // namespace

std::string Serialize(const Value& value)
{
    // Required: a bare scalar is no document.
    if (value.GetType() != ObjectVal && value.GetType() != ArrayVal) {
        return {};
    }
    return SerializeValue(value);
}

std::string SerializeValue(const Value& value)
{
    return Writer().Write(value);
}

std::string SerializeArray(const Array& array)
{
    return Writer().Write(array);
}

}  // namespace Tolvex::Json
