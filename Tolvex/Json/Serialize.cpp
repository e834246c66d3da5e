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
#include "Tolvex/Json/Private/GrowthEstimate.h"
#include "Tolvex/Json/Private/Prefetch.h"
#include "Tolvex/Json/Private/SixDecimals.h"
#include "Tolvex/Json/Private/Tree.h"

namespace Tolvex::Json {

namespace {

/// A container whose opening bracket has been written.
struct OpenContainer
{
    Cursor rest;            ///< the values that are still to be written
    std::size_t size;       ///< number of all values
    std::size_t begun = 0;  ///< number of values that have been begun
};

/// @return the position after the copied bytes.
char* PutBytes(char* at, std::string_view bytes)
{
    std::memcpy(at, bytes.data(), bytes.size());
    return at + bytes.size();
}

/// Writes the text of a tree without recursion.
///
/// Its functions take the position to write at and return the position after what they wrote. They
/// write into a small buffer that stays in the cache. A full buffer is appended to the string.
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
    std::string text;  ///< what the buffer held earlier
    std::vector<OpenContainer> open;
};

/// Writes a scalar, or the opening bracket of a container.
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
    return at;  // Not reached: every type has its case.
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
        text.shrink_to_fit();  // the estimate was far too high
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
    return Begin(at, value);  // may invalidate container
}

char* Writer::PutString(char* at, const std::string& bytes)
{
    // Required: writes every byte as it is, without escapes. SerializeStandard() escapes.
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

/// Appends the buffer to the string.
/// @return the start of the buffer.
char* Writer::Flush(const char* at)
{
    const auto length = static_cast<std::size_t>(at - buffer.data());
    Reserve(length);
    text.append(buffer.data(), length);
    return buffer.data();
}

/// Makes room for more bytes, and for the estimated rest of the document unless memory is short.
void Writer::Reserve(std::size_t count)
{
    const std::size_t needed = text.size() + count;
    if (needed <= text.capacity()) {
        return;
    }
    std::string larger;  // an empty string reserves exactly what it is asked for
    try {
        const double estimate = std::min(static_cast<double>(needed) * EstimateGrowth(open),
                                         static_cast<double>(larger.max_size()));
        larger.reserve(std::max(static_cast<std::size_t>(estimate), needed));
    } catch (const std::bad_alloc&) {
        larger.reserve(needed);
    }
    larger += text;
    text.swap(larger);
}

}  // namespace

std::string Serialize(const Value& value)
{
    // A bare scalar is no document.
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
