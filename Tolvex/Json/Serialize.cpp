#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/Tree.h"

namespace Tolvex::Json {

namespace {

constexpr std::size_t decimals = 6;
constexpr std::uint32_t decimalsScale = 1000000;

/// Room for a sign, 309 digits, a point and six decimals.
constexpr std::size_t longestNumber = 320;

// ----------------------------------------------------------------------------------------- numbers

constexpr std::array<char, 200> MakeDigitPairs()
{
    std::array<char, 200> pairs{};
    for (std::size_t i = 0; i < pairs.size(); ++i) {
        pairs[i] = static_cast<char>('0' + (i % 2 == 0 ? i / 20 : i / 2 % 10));
    }
    return pairs;
}

/// "00", "01" … "99".
constexpr std::array<char, 200> digitPairs = MakeDigitPairs();

void PutPair(char* at, std::uint32_t pair)
{
    std::memcpy(at, digitPairs.data() + std::size_t{2} * pair, 2);
}

template <typename Unsigned>
char* PutInteger(char* at, Unsigned number)
{
    std::array<char, std::numeric_limits<Unsigned>::digits10 + 2> digits;
    char* const end = digits.data() + digits.size();
    char* first = end;
    while (number >= 100) {
        first -= 2;
        PutPair(first, static_cast<std::uint32_t>(number % 100));
        number /= 100;
    }
    if (number >= 10) {
        first -= 2;
        PutPair(first, static_cast<std::uint32_t>(number));
    } else {
        *--first = static_cast<char>('0' + number);
    }
    const auto count = static_cast<std::size_t>(end - first);
    std::memcpy(at, first, count);
    return at + count;
}

char* PutInt(char* at, std::int32_t number)
{
    auto magnitude = static_cast<std::uint32_t>(number);
    if (number < 0) {
        *at++ = '-';
        magnitude = 0U - magnitude;
    }
    return PutInteger(at, magnitude);
}

/// A number rounded to six decimals, half to even.
struct Rounded
{
    std::uint64_t integer;
    std::uint32_t fraction;  ///< in millionths
};

constexpr double integerLimit = 0x1p62;    ///< 64 bits hold what is below
constexpr double fractionUnits = 0x1p63;   ///< one, as a fraction in 63 bits
constexpr double wholeFraction = 0x1p-11;  ///< from here on 63 bits hold every fraction exactly

/// Rounds a magnitude below integerLimit. Computes in integers, so that nothing is rounded twice,
/// in any rounding mode.
/// @return false when the bits that do not fit could decide.
bool RoundDecimals(double magnitude, Rounded& rounded)
{
    constexpr std::uint64_t half = std::uint64_t{1} << 62U;
    constexpr std::uint64_t lostAtMost = std::uint64_t{1} << 20U;  // in the product
    rounded.integer = static_cast<std::uint64_t>(static_cast<std::int64_t>(magnitude));
    const double fraction = magnitude - static_cast<double>(static_cast<std::int64_t>(magnitude));
    const auto bits =
        static_cast<std::uint64_t>(static_cast<std::int64_t>(fraction * fractionUnits));

    const std::uint64_t low = (bits & UINT32_MAX) * decimalsScale;
    const std::uint64_t high = (bits >> 32U) * decimalsScale + (low >> 32U);
    const std::uint64_t remainder = (high & 0x7FFFFFFFU) << 32U | (low & UINT32_MAX);
    rounded.fraction = static_cast<std::uint32_t>(high >> 31U);
    if (magnitude < wholeFraction && remainder <= half && remainder >= half - lostAtMost) {
        return false;
    }

    if (remainder > half || (remainder == half && rounded.fraction % 2 != 0)) {
        ++rounded.fraction;
    }
    if (rounded.fraction == decimalsScale) {
        rounded.fraction = 0;
        ++rounded.integer;
    }
    return true;
}

/// The digits that "%f" gives in the C locale.
///
/// Required: a number has six decimals at every magnitude; nan and inf are written, too, though
/// they do not read back.
char* PutDecimal(char* at, double number)
{
    Rounded rounded{};
    const double magnitude = std::abs(number);
    if (!(magnitude < integerLimit) || !RoundDecimals(magnitude, rounded)) {
        return std::to_chars(at, at + longestNumber, number, std::chars_format::fixed, decimals)
            .ptr;
    }
    if (std::signbit(number)) {
        *at++ = '-';
    }
    at = rounded.integer <= UINT32_MAX ? PutInteger(at, static_cast<std::uint32_t>(rounded.integer))
                                       : PutInteger(at, rounded.integer);
    *at++ = '.';
    PutPair(at, rounded.fraction / 10000);
    PutPair(at + 2, rounded.fraction / 100 % 100);
    PutPair(at + 4, rounded.fraction % 100);
    return at + decimals;
}

// ------------------------------------------------------------------------------------------- trees

/// Copies bytes, of which there are few most of the time.
/// @return the end of the copy.
inline char* PutBytes(char* at, const char* bytes, std::size_t count)
{
    if (count >= 4 && count <= 8) {  // two halves, which may overlap
        std::memcpy(at, bytes, 4);
        std::memcpy(at + count - 4, bytes + count - 4, 4);
    } else if (count > 8 && count <= 16) {
        std::memcpy(at, bytes, 8);
        std::memcpy(at + count - 8, bytes + count - 8, 8);
    } else if (count > 16) {
        std::memcpy(at, bytes, count);
    } else {
        for (std::size_t i = 0; i < count; ++i) {
            at[i] = bytes[i];
        }
    }
    return at + count;
}

/// A container whose text is open, and what of it is still to be written.
struct OpenText
{
    Cursor rest;
    std::size_t size;       ///< values in all
    std::size_t begun = 0;  ///< values whose text has been begun
};

/// @return the part of a document whose text is complete, taken by the number of values.
double CompletePart(const std::vector<OpenText>& open)
{
    constexpr std::size_t levels = 8;  // what is further inside makes no difference
    double complete = 0;
    double whole = 1;
    for (std::size_t level = 0; level < std::min(open.size(), levels); ++level) {
        const auto size = static_cast<double>(open[level].size);
        const auto begun = static_cast<double>(open[level].begun);
        complete += whole * std::max(begun - 1, 0.0) / size;
        whole /= size;
    }
    return complete;
}

/// A string that is written through a pointer, by way of a buffer that stays in the cache.
///
/// Memory that is touched for the first time costs more than the bytes that are put there. So the
/// string does not double time and again, but takes what the whole document will need, estimated
/// by the part that is complete. What was taken and is not touched costs nothing.
class GrowingText
{
public:
    /// A text of at most so many bytes may be written through the pointer.
    static constexpr std::size_t shortText = 512;

    /// @param open  The containers of the document, outermost first.
    explicit GrowingText(const std::vector<OpenText>& open) : openContainers(open) {}

    char* Begin() { return buffer.data(); }

    /// @return where to go on, with room for a key and a scalar, both short, and their punctuation.
    char* MakeRoom(char* at) { return at <= buffer.data() + fullAt ? at : Flush(at); }

    /// Takes over a text that is too long for the pointer. @return where to go on, as MakeRoom().
    char* Append(char* at, std::string_view bytes)
    {
        at = Flush(at);
        Reserve(bytes.size());
        text += bytes;
        return at;
    }

    /// @return everything up to here.
    std::string Take(const char* at);

private:
    static constexpr std::size_t bufferBytes = 4096;
    static constexpr std::size_t fullAt = bufferBytes - 2 * shortText - 8;
    static_assert(longestNumber <= shortText);

    char* Flush(const char* at)
    {
        const std::size_t length = Length(at);
        Reserve(length);
        text.append(buffer.data(), length);
        return buffer.data();
    }

    std::size_t Length(const char* at) const
    {
        return static_cast<std::size_t>(at - buffer.data());
    }

    void Reserve(std::size_t count)
    {
        if (text.capacity() - text.size() < count) {
            Grow(text.size() + count);
        }
    }

    void Grow(std::size_t needed);

    std::array<char, bufferBytes> buffer;
    std::string text;  ///< what was in the buffer before
    const std::vector<OpenText>& openContainers;
};

/// Takes memory for at least so many bytes.
void GrowingText::Grow(std::size_t needed)
{
    constexpr double margin = 1.0625;
    constexpr double factorAtMost = 64;
    constexpr std::size_t bytesAtMost = std::size_t{64} << 20U;
    const double factor = std::min(margin / CompletePart(openContainers), factorAtMost);
    const double estimate = static_cast<double>(needed) * factor;
    const std::size_t doubled = 2 * needed;
    const std::size_t most = doubled + bytesAtMost;
    text.reserve(estimate < static_cast<double>(most)
                     ? std::max(static_cast<std::size_t>(estimate), doubled)
                     : most);
}

std::string GrowingText::Take(const char* at)
{
    if (text.empty()) {
        return {buffer.data(), Length(at)};
    }
    Flush(at);
    if (text.capacity() / 2 > text.size()) {
        text.shrink_to_fit();  // the estimate was far off
    }
    return std::move(text);
}

/// Writes the text of a tree to one string, with a stack of its own.
///
/// Its functions take where to write, and return where to go on.
class Writer
{
public:
    std::string Write(const Value& value) { return WriteOpen(Begin(text.Begin(), value)); }

    std::string Write(const Array& array)
    {
        return WriteOpen(Open(text.Begin(), '[', Cursor(array), array.size()));
    }

private:
    char* Begin(char* at, const Value& value);
    std::string WriteOpen(char* at);
    char* WriteNext(char* at, OpenText& container);
    char* PutString(char* at, const std::string& bytes);

    char* Open(char* at, char bracket, Cursor values, std::size_t size)
    {
        *at++ = bracket;
        open.push_back({values, size});
        return at;
    }

    std::vector<OpenText> open;
    GrowingText text{open};
};

/// Writes a value, but opens a container only.
inline char* Writer::Begin(char* at, const Value& value)
{
    switch (value.GetType()) {
        case NullVal:
            return PutBytes(at, "null", 4);
        case StringVal:
            return PutString(at, Access::String(value));
        case IntVal:
            return PutInt(at, Access::Int(value));
        case FloatVal:
            return PutDecimal(at, static_cast<double>(Access::Float(value)));
        case DoubleVal:
            return PutDecimal(at, Access::Double(value));
        case ObjectVal:
            return Open(at, '{', Cursor(Access::ObjectOf(value)), Access::ObjectOf(value).size());
        case ArrayVal:
            return Open(at, '[', Cursor(Access::ArrayOf(value)), Access::ArrayOf(value).size());
        case BoolVal:
            return Access::Bool(value) ? PutBytes(at, "true", 4) : PutBytes(at, "false", 5);
    }
    return at;  // GCOV_EXCL_LINE: every type has its case
}

std::string Writer::WriteOpen(char* at)
{
    while (!open.empty()) {
        at = text.MakeRoom(at);
        OpenText& container = open.back();
        if (container.rest.AtEnd()) {
            *at++ = container.rest.OverMembers() ? '}' : ']';
            open.pop_back();
        } else {
            at = WriteNext(at, container);
        }
    }
    return text.Take(at);
}

inline char* Writer::WriteNext(char* at, OpenText& container)
{
    if (container.begun != 0) {
        *at++ = ',';
    }
    ++container.begun;
    if (container.rest.OverMembers()) {
        at = PutString(at, container.rest.Key());
        *at++ = ':';
    }
    const Value& value = container.rest.Current();
    container.rest.Advance();
    return Begin(at, value);  // container may be gone afterwards
}

inline char* Writer::PutString(char* at, const std::string& bytes)
{
    // Required: no byte is escaped, whatever it is.
    // Instead: a member with the Base64EncodeLine() of such bytes.
    *at++ = '"';
    at = bytes.size() <= GrowingText::shortText ? PutBytes(at, bytes.data(), bytes.size())
                                                : text.Append(at, bytes);
    *at++ = '"';
    return at;
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
