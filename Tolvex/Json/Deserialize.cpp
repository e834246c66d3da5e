#include <algorithm>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/ParseError.h"
#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/BareToken.h"
#include "Tolvex/Json/Private/BracketPairs.h"
#include "Tolvex/Json/Private/Characters.h"
#include "Tolvex/Json/Private/PlainReader.h"
#include "Tolvex/Json/Private/StringBody.h"

namespace Tolvex::Json {

namespace {

constexpr const char* mismatchedBracket = "bracket does not match the one that it closes";
constexpr const char* unclosedString = "string has no closing quote";

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

    /// A place where the text is malformed.
    struct Fault
    {
        const char* at = nullptr;
        const char* reason = nullptr;  ///< null: there is none
    };

    /// The first fault that Read() met, also before it threw.
    const Fault& FirstFault() const { return firstFault; }

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

    Step Refuse(const char* at, const char* reason);
    void RefuseDocument();
    Step RefuseKey();
    Step RefuseBareToken(const char* stop);

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
    Fault firstFault;
};

Value RulesReader::Read()
{
    Value root;
    if (text.size() < 2 || !((text.front() == '{' && text.back() == '}') ||
                             (text.front() == '[' && text.back() == ']'))) {
        RefuseDocument();  // a bare scalar, too
        return root;
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

/// Notes a fault.
/// @return Step::Failed.
RulesReader::Step RulesReader::Refuse(const char* at, const char* reason)
{
    if (firstFault.reason == nullptr) {
        firstFault = {at, reason};
    }
    return Step::Failed;
}

/// Refuses a text that does not begin and end with brackets that belong together.
void RulesReader::RefuseDocument()
{
    const char* const end = text.data() + text.size();
    if (text.empty() || (text.front() != '{' && text.front() != '[')) {
        Refuse(text.data(), "expected an object or an array");
        return;
    }
    const BracketPairs::End closing = pairs.FindEnd(text.data(), end);
    switch (closing.outcome) {
        case BracketScan::Outcome::Open:
            Refuse(end, "the closing bracket of the document is missing");
            break;
        case BracketScan::Outcome::Closed:
            Refuse(SkipSpaces(closing.at + 1, end), "text after the end of the document");
            break;
        case BracketScan::Outcome::Mismatched:
            Refuse(closing.at, mismatchedBracket);
            break;
    }
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
    // the element; an object keeps the member as null.
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
    // Required: throws, although other malformed text reads as null.
    if (end.outcome == BracketScan::Outcome::Open) {
        Refuse(position, "array or object is not closed");
        throw std::out_of_range("json container is not closed");
    }
    if (end.outcome == BracketScan::Outcome::Mismatched) {
        Refuse(end.at, mismatchedBracket);
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
    try {
        DecodeString({position + 1, quote}, Access::String(value));
    } catch (const std::out_of_range&) {
        Refuse(position, "\\u escape is cut off by the end of its string");
        throw;
    }
    position = quote + 1;
    return true;
}

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
            return Refuse(position, stop == closing ? unclosedString
                                                    : "no closing quote before the comma or "
                                                      "bracket that ends an element");
        }
    } else if (restOfArray || ReadBareToken(position, stop, element) == nullptr) {
        return RefuseBareToken(stop);  // a bare token never has an opening bracket in it
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

/// Continues in an object, the innermost container, until it ends or another container opens.
void RulesReader::ReadMembers()
{
    Step step = Step::Done;
    while (step == Step::Done) {
        const char* const behindMember = position;
        SkipSpace();
        if (position != frames.back().end) {
            Value* const member = ReadKey();
            step = member == nullptr ? RefuseKey() : ReadMemberValue(*member);
        } else if (position != behindMember && frames.back().value->size() == 0) {
            // Required: braces with nothing but blanks are malformed.
            step = Refuse(behindMember, "object of blanks only");
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
    // Required: the escapes in a key are not decoded.
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
        return Step::Done;  // The last member has no value: it stays null.
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
        return ReadString(end, member) ? Step::Done : Refuse(position, unclosedString);
    }
    const char* const afterToken = ReadBareToken(position, end, member);
    if (afterToken == nullptr) {
        return RefuseBareToken(end);
    }
    position = afterToken;
    return Step::Done;
}

/// Refuses what ReadKey() did not take for a key and a colon.
RulesReader::Step RulesReader::RefuseKey()
{
    const char* const end = frames.back().end;
    const char* const key = *position == ',' ? SkipSpaces(position + 1, end) : position;
    if (*key != '"') {
        return Refuse(key, "expected a key in double quotes");
    }
    const char* const closing = FindQuote(key + 1, end);
    if (closing == nullptr) {
        return Refuse(key, unclosedString);
    }
    if (closing == key + 1) {
        return Refuse(key, "empty key");
    }
    return Refuse(SkipSpaces(closing + 1, end), "expected a colon after the key");
}

/// Refuses what is neither a string nor a container, and what ReadBareToken() does not accept.
RulesReader::Step RulesReader::RefuseBareToken(const char* stop)
{
    // What a number or a literal can consist of. If more follows, a comma is probably missing.
    const char* at = position;
    while (at != stop &&
           (IsDigit(*at) || IsLetter(*at) || *at == '+' || *at == '-' || *at == '.')) {
        ++at;
    }
    at = SkipSpaces(at, stop);
    if (at == position || at == stop || *at == ',') {
        return Refuse(position,
                      "expected a number, true, false, null, or a string in double quotes");
    }
    return Refuse(at, "expected a comma or the end of the container");
}

/// @return the fault as a caller sees it; an empty error if there is none.
ParseError Locate(std::string_view text, const RulesReader::Fault& fault)
{
    ParseError error;
    if (fault.reason == nullptr) {
        return error;
    }
    error.offset = static_cast<std::size_t>(fault.at - text.data());
    const std::string_view before = text.substr(0, error.offset);
    error.line = 1 + static_cast<std::size_t>(std::count(before.begin(), before.end(), '\n'));
    const std::string_view line = before.substr(before.rfind('\n') + 1);  // npos + 1 is 0
    const auto beginsCharacter = [](char byte) {
        return (static_cast<unsigned char>(byte) & 0xC0U) != 0x80U;  // in UTF-8
    };
    error.column =
        1 + static_cast<std::size_t>(std::count_if(line.begin(), line.end(), beginsCharacter));
    error.reason = fault.reason;
    return error;
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

Value Deserialize(const std::string& text, ParseError& error)
{
    const std::string_view document = Trim(text);
    Value root;
    try {
        if (PlainReader(document).Read(root)) {
            error = {};
            return root;
        }
    } catch (const std::out_of_range&) {
        // The rules throw it once more, and note where.
    }
    Access::Reset(root);

    RulesReader reader(document);
    try {
        root = reader.Read();
    } catch (const std::out_of_range&) {
        error = Locate(text, reader.FirstFault());
        throw;
    }
    error = Locate(text, reader.FirstFault());
    return root;
}

}  // namespace Tolvex::Json
