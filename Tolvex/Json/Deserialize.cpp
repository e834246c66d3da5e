#include <algorithm>
#include <cstring>
#include <map>
#include <stdexcept>
#include <string>
#include <string_view>
#include <tuple>
#include <utility>
#include <vector>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/BareToken.h"
#include "Tolvex/Json/Private/Characters.h"
#include "Tolvex/Json/Private/ContainerEnds.h"
#include "Tolvex/Json/Private/MemberOrder.h"
#include "Tolvex/Json/Private/StringBody.h"
#include "Tolvex/Json/Private/Tree.h"

namespace Tolvex::Json {

namespace {

/// Elements for which room is made at once, if their commas announce them; and how many times its
/// size a longer array may grow at once. Announced elements can turn out to be nothing.
constexpr std::size_t trustedElements = 1024;
constexpr std::size_t highestGrowth = 16;

/// Makes room for the next element: exactly as many as are announced, if that is not out of
/// proportion to those that have come, so that an array never stands in memory twice.
void GrowFor(std::vector<Value>& elements, std::size_t announced)
{
    const std::size_t size = elements.size();
    if (announced <= size) {
        return;  // more than announced: the vector knows how to grow
    }
    const std::size_t trusted = std::max(trustedElements, size * highestGrowth);
    elements.reserve(announced <= trusted
                         ? announced
                         : std::clamp(announced / highestGrowth, size + 1, trusted));
}

/// Reads one text. A container that turns out malformed becomes null and the text after it is read
/// on; only the container around a malformed scalar is lost.
class Reader
{
public:
    explicit Reader(std::string_view document)
        : text(Trim(document)), ends(text.data(), text.data() + text.size())
    {
    }

    Value Read();

private:
    /// A container that is being read.
    struct Frame
    {
        Value* value;
        const char* end;           ///< its closing bracket
        std::size_t announced;     ///< elements, by the number of commas; a hint
        std::size_t firstInOrder;  ///< where its members begin in memberOrder
    };

    enum class Step
    {
        Done,
        Opened,
        Failed
    };

    void Open(Value& value, const char* closing, std::size_t announced);
    void CloseFrame();
    void Fail();

    void ReadElements();
    Step ReadElement();
    Step ReadContainerElement();
    Step ReadStringElement();
    Step ReadBareElement();
    Step ReadElementByRules();
    bool TakeElementEnd();
    Value& AddElement();
    const char* FindDelimiter();

    void ReadMembers();
    Step ReadMember();
    Value* ReadKey();
    Value& AddMember(const Frame& frame, std::string_view key);
    Step ReadMemberValue(Value& member);
    Step ReadBareMember(Value& member);

    const char* ReadPlain(const char* begin, Value& value) const;

    ContainerEnds::End FindEnd();

    void SkipSpace() { position = SkipSpaces(position, text.data() + text.size()); }

    std::string_view text;
    ContainerEnds ends;
    std::vector<Frame> frames;
    MemberOrder memberOrder;
    const char* position = nullptr;
    const char* delimiter = nullptr;  ///< the last one found; holds while position is not past it
};

Value Reader::Read()
{
    Value root;
    if (text.size() < 2 || !((text.front() == '{' && text.back() == '}') ||
                             (text.front() == '[' && text.back() == ']'))) {
        return root;  // Required: a bare scalar is no document.
    }

    position = text.data();
    const char* const closing = text.data() + text.size() - 1;
    const std::size_t announced =
        *position == '[' ? ends.Find(position, closing + 1).commas + 1U : 0;
    Open(root, closing, announced);
    while (!frames.empty()) {
        if (Access::Type(*frames.back().value) == ArrayVal) {
            ReadElements();
        } else {
            ReadMembers();
        }
    }
    return root;
}

/// Begins the container that stands at the position.
void Reader::Open(Value& value, const char* closing, std::size_t announced)
{
    Access::Type(value) = *position == '[' ? ArrayVal : ObjectVal;
    frames.push_back({&value, closing, announced, memberOrder.Size()});
    ++position;
}

/// Ends the innermost container and goes on behind it.
void Reader::CloseFrame()
{
    const Frame frame = frames.back();
    frames.pop_back();
    memberOrder.ShrinkTo(frame.firstInOrder);
    position = frame.end + 1;
    std::vector<Value>& elements = Access::Elements(Access::ArrayOf(*frame.value));
    if (elements.capacity() - elements.size() > elements.size() / 8) {
        elements.shrink_to_fit();
    }
}

/// Makes the innermost container null and goes on behind it.
void Reader::Fail()
{
    const Frame frame = frames.back();
    frames.pop_back();
    memberOrder.ShrinkTo(frame.firstInOrder);
    position = frame.end + 1;
    // Required: the container around a malformed one does not fail. An array gets no element for
    // it, an object keeps the member as null.
    if (!frames.empty() && Access::Type(*frames.back().value) == ArrayVal) {
        Access::Elements(Access::ArrayOf(*frames.back().value)).pop_back();
    } else {
        Access::Reset(*frame.value);
    }
}

/// @throws std::out_of_range when the container at the position does not end in the one around it.
ContainerEnds::End Reader::FindEnd()
{
    const ContainerEnds::End end = ends.Find(position, frames.back().end);
    // Required: std::out_of_range, though whatever else is malformed reads as null.
    if (end.outcome == BracketScan::Outcome::Open) {
        throw std::out_of_range("json container is not closed");
    }
    return end;
}

/// Reads a number or literal in its usual form.
/// @return the byte after it; null, with the value untouched, when there is none.
const char* Reader::ReadPlain(const char* begin, Value& value) const
{
    const auto left = static_cast<std::size_t>(text.data() + text.size() - begin);
    const auto startsWith = [begin, left](std::string_view literal) {
        return left > literal.size() && std::memcmp(begin, literal.data(), literal.size()) == 0;
    };
    if (*begin != 't' && *begin != 'f' && *begin != 'n') {
        return ReadPlainNumber(begin, value);
    }
    if (startsWith("true")) {
        Access::SetBool(value, true);
        return begin + 4;
    }
    if (startsWith("false")) {
        Access::SetBool(value, false);
        return begin + 5;
    }
    return startsWith("null") ? begin + 4 : nullptr;
}

// ------------------------------------------------------------------------------------------ arrays

/// Reads on in the innermost container, an array, until it ends or another one opens.
void Reader::ReadElements()
{
    Step step = Step::Done;
    while (step == Step::Done) {
        SkipSpace();
        if (position == frames.back().end) {
            CloseFrame();
            return;
        }
        step = ReadElement();
    }
    if (step == Step::Failed) {
        Fail();
    }
}

Reader::Step Reader::ReadElement()
{
    switch (*position) {
        case ',':
        case ']':
            ++position;  // Required: nothing before a delimiter is no element.
            return Step::Done;
        case '[':
        case '{':
            return ReadContainerElement();
        case '"':
            return ReadStringElement();
        default:
            return ReadBareElement();
    }
}

Reader::Step Reader::ReadContainerElement()
{
    const ContainerEnds::End end = FindEnd();
    if (end.outcome == BracketScan::Outcome::Mismatched) {
        return Step::Failed;
    }
    Open(AddElement(), end.at, end.commas + 1U);
    return Step::Opened;
}

Reader::Step Reader::ReadStringElement()
{
    const char* const begin = position + 1;
    // The closing bracket is the last stop.
    const char* const stop = FindPlainStringStop(begin, frames.back().end);
    if (*stop != '"') {
        return ReadElementByRules();
    }
    Value& element = AddElement();
    Access::Type(element) = StringVal;
    Access::String(element) = Trim({begin, stop});  // no escape in it
    position = stop + 1;
    if (!TakeElementEnd()) {
        const char* const next = FindDelimiter();
        // Required: what stands between a string and the next delimiter is dropped; but before an
        // opening bracket it is the next element.
        if (*next == ',' || *next == ']') {
            position = next;
        }
    }
    return Step::Done;
}

/// A number or literal in its usual form.
Reader::Step Reader::ReadBareElement()
{
    Value& element = AddElement();
    const char* const begin = position;
    const char* const end = ReadPlain(position, element);
    if (end != nullptr && element.GetType() != NullVal) {
        position = end;
        if (TakeElementEnd()) {
            return Step::Done;
        }
        position = begin;
    }
    Access::Elements(Access::ArrayOf(*frames.back().value)).pop_back();
    return ReadElementByRules();
}

/// Any scalar, by all the rules.
Reader::Step Reader::ReadElementByRules()
{
    const char* next = FindDelimiter();
    // Required: an element ends at the next comma or closing bracket, in a string as well; but when
    // a bracket opens before that, the whole rest of the array is what the element is read from.
    const bool restOfArray = *next == '[' || *next == '{';
    const char* const end = restOfArray ? frames.back().end : next;

    Value element;
    if (*position == '"') {
        const char* const quote = FindQuote(position + 1, end);
        if (quote == nullptr) {
            return Step::Failed;
        }
        Access::Type(element) = StringVal;
        DecodeString({position + 1, quote}, Access::String(element));
        position = quote + 1;
    } else if (restOfArray || ReadBareToken(position, end, element) == nullptr) {
        return Step::Failed;  // no bare token may have a bracket behind it
    }
    if (!restOfArray) {
        position = next;
        TakeElementEnd();
    }
    // Required: null is no element.
    if (element.GetType() != NullVal) {
        AddElement() = std::move(element);
    }
    return Step::Done;
}

/// Steps over the delimiter that ends an element, and the blanks before it.
/// @return false when there is something else.
bool Reader::TakeElementEnd()
{
    SkipSpace();
    if (*position != ',' && *position != ']') {
        return false;
    }
    if (position != frames.back().end) {
        ++position;
    }
    return true;
}

Value& Reader::AddElement()
{
    const Frame& frame = frames.back();
    std::vector<Value>& elements = Access::Elements(Access::ArrayOf(*frame.value));
    if (elements.size() == elements.capacity()) {
        GrowFor(elements, frame.announced);
    }
    return elements.emplace_back();
}

/// @return the next comma or bracket other than "}", at the latest the one that closes the array.
const char* Reader::FindDelimiter()
{
    if (delimiter == nullptr || delimiter < position) {
        delimiter = position;
        while (!IsIn(elementDelimiters, *delimiter)) {
            ++delimiter;
        }
    }
    return delimiter;
}

// ----------------------------------------------------------------------------------------- objects

/// Reads on in the innermost container, an object, until it ends or another one opens.
void Reader::ReadMembers()
{
    Step step = Step::Done;
    while (step == Step::Done) {
        const char* const behindMember = position;
        SkipSpace();
        if (position != frames.back().end) {
            step = ReadMember();
        } else if (position != behindMember && frames.back().value->size() == 0) {
            step = Step::Failed;  // Required: blanks alone between the braces are malformed.
        } else {
            CloseFrame();
            return;
        }
    }
    if (step == Step::Failed) {
        Fail();
    }
}

Reader::Step Reader::ReadMember()
{
    Value* const member = ReadKey();
    return member == nullptr ? Step::Failed : ReadMemberValue(*member);
}

/// Reads up to the colon.
/// @return the new member, null still; a null pointer when there is no key.
Value* Reader::ReadKey()
{
    const Frame& frame = frames.back();
    if (*position == ',') {
        ++position;
        SkipSpace();  // as the search for the quote would, but fast
    }
    // Required: whatever stands before the key, or between the key and the colon, is skipped.
    const char* const opening = FindQuote(position, frame.end);
    const char* const closing = opening == nullptr ? nullptr : FindQuote(opening + 1, frame.end);
    // Required: an empty key is malformed, and so is a comma without a member behind it.
    if (closing == nullptr || closing == opening + 1) {
        return nullptr;
    }
    const void* const colon =
        closing[1] == ':'  // at the closing brace at the latest
            ? closing + 1
            : std::memchr(closing, ':', static_cast<std::size_t>(frame.end - closing));
    if (colon == nullptr) {
        return nullptr;
    }
    position = static_cast<const char*>(colon) + 1;
    // Required: escapes in a key are not decoded.
    return &AddMember(frame, {opening + 1, closing});
}

/// @return the new member, null still.
Value& Reader::AddMember(const Frame& frame, std::string_view key)
{
    std::map<std::string, Value>& members = Access::Members(Access::ObjectOf(*frame.value));
    const auto next = memberOrder.FindNext(members, frame.firstInOrder, key);
    const std::size_t sizeBefore = members.size();
    const auto member = members.emplace_hint(next, std::piecewise_construct,
                                             std::forward_as_tuple(key), std::forward_as_tuple());
    if (members.size() == sizeBefore) {
        Access::Reset(member->second);  // a repeated key: nothing of the old value stays
    } else {
        memberOrder.Add(member, frame.firstInOrder);
    }
    return member->second;
}

Reader::Step Reader::ReadMemberValue(Value& member)
{
    SkipSpace();
    const char* const end = frames.back().end;
    if (position == end) {
        return Step::Done;  // Required: nothing after the last colon is null.
    }
    if (*position == '[' || *position == '{') {
        const ContainerEnds::End nested = FindEnd();
        if (nested.outcome == BracketScan::Outcome::Mismatched) {
            return Step::Failed;
        }
        Open(member, nested.at, nested.commas + 1U);
        return Step::Opened;
    }
    if (*position != '"') {
        return ReadBareMember(member);
    }
    const char* const quote = FindQuote(position + 1, end);
    if (quote == nullptr) {
        return Step::Failed;
    }
    Access::Type(member) = StringVal;
    DecodeString({position + 1, quote}, Access::String(member));
    position = quote + 1;
    return Step::Done;
}

Reader::Step Reader::ReadBareMember(Value& member)
{
    const char* const end = frames.back().end;
    const char* const begin = position;
    if (const char* const plainEnd = ReadPlain(begin, member)) {
        position = plainEnd;
        SkipSpace();
        if (position == end || *position == ',') {
            return Step::Done;
        }
        Access::Reset(member);
    }
    position = ReadBareToken(begin, end, member);
    return position == nullptr ? Step::Failed : Step::Done;
}

}  // namespace

Value Deserialize(const std::string& text)
{
    return Reader(text).Read();
}

}  // namespace Tolvex::Json
