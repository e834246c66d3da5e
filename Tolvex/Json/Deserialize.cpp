#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/BareToken.h"
#include "Tolvex/Json/Private/BracketPairs.h"
#include "Tolvex/Json/Private/Characters.h"
#include "Tolvex/Json/Private/PlainReader.h"
#include "Tolvex/Json/Private/StringBody.h"

namespace Tolvex::Json {

namespace {

/// Reads a text by the rules of the dialect, step by step.
///
/// A malformed scalar makes the container around it null. A malformed container becomes null
/// itself; reading continues after it.
class RulesReader
{
public:
    /// @param document  Without white space at its ends.
    explicit RulesReader(std::string_view document) : text(document), pairs(document.data()) {}

    Value Read();

private:
    /// A container being read.
    struct Frame
    {
        Value* value;
        const char* end;  ///< its closing bracket
    };

    enum class Step
    {
        Done,
        Opened,
        Failed
    };

    void Open(Value& value, const char* closing);
    void CloseFrame();
    void Fail();
    BracketPairs::End FindEnd();

    void ReadElements();
    Step ReadElement();
    Step ReadContainerElement();
    Step ReadScalarElement();
    const char* FindDelimiter();
    std::vector<Value>& Elements();

    void ReadMembers();
    Value* ReadKey();
    Step ReadMemberValue(Value& member);
    bool ReadString(const char* stop, Value& value);

    void SkipSpace() { position = SkipSpaces(position, text.data() + text.size()); }

    std::string_view text;
    BracketPairs pairs;
    std::vector<Frame> frames;
    const char* position = nullptr;
    const char* delimiter = nullptr;  ///< the last one found; valid until position passes it
};

Value RulesReader::Read()
{
    Value root;
    if (text.size() < 2 || !((text.front() == '{' && text.back() == '}') ||
                             (text.front() == '[' && text.back() == ']'))) {
        return root;  // a bare scalar is no document
    }

    position = text.data();
    Open(root, text.data() + text.size() - 1);
    while (!frames.empty()) {
        if (frames.back().value->GetType() == ArrayVal) {
            ReadElements();
        } else {
            ReadMembers();
        }
    }
    return root;
}

/// Starts the container at the position.
void RulesReader::Open(Value& value, const char* closing)
{
    Access::Type(value) = *position == '[' ? ArrayVal : ObjectVal;
    frames.push_back({&value, closing});
    ++position;
}

/// Ends the innermost container. Reading continues after it.
void RulesReader::CloseFrame()
{
    position = frames.back().end + 1;
    frames.pop_back();
}

/// Makes the innermost container null. Reading continues after it.
void RulesReader::Fail()
{
    Value& failed = *frames.back().value;
    CloseFrame();
    // Required: a malformed container does not make the container around it fail. An array drops
    // the element, an object keeps the member as null.
    if (!frames.empty() && frames.back().value->GetType() == ArrayVal) {
        Elements().pop_back();
    } else {
        Access::Reset(failed);
    }
}

/// @throws std::out_of_range if the container at the position does not end in the one around it.
BracketPairs::End RulesReader::FindEnd()
{
    const BracketPairs::End end = pairs.FindEnd(position, frames.back().end);
    // Required: throws, although all other malformed text reads as null.
    if (end.outcome == BracketScan::Outcome::Open) {
        throw std::out_of_range("json container is not closed");
    }
    return end;
}

/// Reads a string.
/// @return false if there is no closing quote before the stop.
bool RulesReader::ReadString(const char* stop, Value& value)
{
    const char* const quote = FindQuote(position + 1, stop);
    if (quote == nullptr) {
        return false;
    }
    Access::Type(value) = StringVal;
    DecodeString({position + 1, quote}, Access::String(value));
    position = quote + 1;
    return true;
}

// ------------------------------------------------------------------------------------------ arrays

/// The elements of the innermost container, an array.
std::vector<Value>& RulesReader::Elements()
{
    return Access::Elements(Access::ArrayOf(*frames.back().value));
}

/// Continues in an array, the innermost container, until it ends or another container opens.
void RulesReader::ReadElements()
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

RulesReader::Step RulesReader::ReadElement()
{
    switch (*position) {
        case ',':
        case ']':
            ++position;  // nothing before a delimiter: no element
            return Step::Done;
        case '[':
        case '{':
            return ReadContainerElement();
        default:
            return ReadScalarElement();
    }
}

RulesReader::Step RulesReader::ReadContainerElement()
{
    const BracketPairs::End end = FindEnd();
    if (end.outcome == BracketScan::Outcome::Mismatched) {
        return Step::Failed;
    }
    Open(Elements().emplace_back(), end.at);
    return Step::Opened;
}

RulesReader::Step RulesReader::ReadScalarElement()
{
    const char* const next = FindDelimiter();
    // Required: an element ends at the next comma or closing bracket, even within a string. But if
    // a bracket opens before that, the element is read from the whole rest of the array.
    const bool restOfArray = *next == '[' || *next == '{';
    const char* const closing = frames.back().end;
    const char* const stop = restOfArray ? closing : next;

    Value element;
    if (*position == '"') {
        if (!ReadString(stop, element)) {
            return Step::Failed;
        }
    } else if (restOfArray || ReadBareToken(position, stop, element) == nullptr) {
        return Step::Failed;  // a bare token never has an opening bracket in it
    }
    // Required: text between a string and the delimiter is dropped. But before an opening bracket
    // that text is the next element.
    if (!restOfArray) {
        position = next == closing ? closing : next + 1;
    }
    // Required: an array drops null.
    if (element.GetType() != NullVal) {
        Elements().push_back(std::move(element));
    }
    return Step::Done;
}

/// @return the next comma, "[", "]" or "{"; at the latest the bracket that closes the array.
const char* RulesReader::FindDelimiter()
{
    if (delimiter == nullptr || delimiter < position) {
        delimiter = FindFirstIn(elementDelimiters, position, text.data() + text.size());
    }
    return delimiter;
}

// ----------------------------------------------------------------------------------------- objects

/// Continues in an object, the innermost container, until it ends or another container opens.
void RulesReader::ReadMembers()
{
    Step step = Step::Done;
    while (step == Step::Done) {
        const char* const behindMember = position;
        SkipSpace();
        if (position != frames.back().end) {
            Value* const member = ReadKey();
            step = member == nullptr ? Step::Failed : ReadMemberValue(*member);
        } else if (position != behindMember && frames.back().value->size() == 0) {
            step = Step::Failed;  // Required: braces with nothing but blanks are malformed.
        } else {
            CloseFrame();
            return;
        }
    }
    if (step == Step::Failed) {
        Fail();
    }
}

/// Reads a key and its colon.
/// @return the member, still null; a null pointer if there is no key.
Value* RulesReader::ReadKey()
{
    const Frame& frame = frames.back();
    // Required: skips any text before the key, and between the key and the colon.
    const char* const opening = FindQuote(position, frame.end);
    const char* const closing = opening == nullptr ? nullptr : FindQuote(opening + 1, frame.end);
    // An empty key is malformed, and so is a comma without a member after it.
    if (closing == nullptr || closing == opening + 1) {
        return nullptr;
    }
    const char* const colon = std::find(closing, frame.end, ':');
    if (colon == frame.end) {
        return nullptr;
    }
    position = colon + 1;
    // Required: keeps escapes in a key as they are.
    const auto [member, isNew] = Access::Members(Access::ObjectOf(*frame.value))
                                     .try_emplace(std::string(opening + 1, closing));
    if (!isNew) {
        Access::Reset(member->second);  // a repeated key: drop the earlier value
    }
    return &member->second;
}

RulesReader::Step RulesReader::ReadMemberValue(Value& member)
{
    SkipSpace();
    const char* const end = frames.back().end;
    if (position == end) {
        return Step::Done;  // Required: a member without a value, at the end, is null.
    }
    if (*position == '[' || *position == '{') {
        const BracketPairs::End nested = FindEnd();
        if (nested.outcome == BracketScan::Outcome::Mismatched) {
            return Step::Failed;
        }
        Open(member, nested.at);
        return Step::Opened;
    }
    if (*position == '"') {
        return ReadString(end, member) ? Step::Done : Step::Failed;
    }
    position = ReadBareToken(position, end, member);
    return position == nullptr ? Step::Failed : Step::Done;
}

}  // namespace

Value Deserialize(const std::string& text)
{
    const std::string_view document = Trim(text);
    Value root;
    if (PlainReader(document).Read(root)) {
        return root;
    }
    Access::Reset(root);  // frees what was read so far
    return RulesReader(document).Read();
}

}  // namespace Tolvex::Json
