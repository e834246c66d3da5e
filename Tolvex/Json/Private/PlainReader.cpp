#include "Tolvex/Json/Private/PlainReader.h"

#include <string>
#include <tuple>
#include <utility>

#include "Tolvex/Json/Private/Access.h"
#include "Tolvex/Json/Private/Characters.h"
#include "Tolvex/Json/Private/PlainNumber.h"
#include "Tolvex/Json/Private/Prefetch.h"
#include "Tolvex/Json/Private/StringBody.h"

namespace Tolvex::Json {

namespace {

/// Finds the quote that ends a string by the rules that pair brackets. These rules look only at the
/// one byte before a quote.
/// @param begin  The byte after the opening quote.
const char* FindEndOfString(const char* begin, const char* end)
{
    const char* at = FindQuoteOrBackslash(begin, end);
    while (at != end && (*at != '"' || at[-1] == '\\')) {
        at = FindQuoteOrBackslash(at + 1, end);
    }
    return at;
}

/// The rules end an element at the next comma or closing bracket, even within a string.
/// @return whether that happens in this string.
bool CutsElement(std::string_view body)
{
    const char* const end = body.data() + body.size();
    const char* const delimiter = FindFirstIn(elementDelimiters, body.data(), end);
    return delimiter != end && (*delimiter == ',' || *delimiter == ']');
}

}  // namespace

bool PlainReader::Read(Value& root)
{
    const bool isContainer =
        end - at >= 2 && ((*at == '[' && end[-1] == ']') || (*at == '{' && end[-1] == '}'));
    if (!isContainer || !CountElements()) {
        return false;
    }
    Open(root);
    while (!open.empty()) {
        Value& container = *open.back();
        const bool isPlain = container.GetType() == ArrayVal
                                 ? ReadElements(Access::Elements(Access::ArrayOf(container)))
                                 : ReadMembers(container);
        if (!isPlain) {
            return false;
        }
    }
    return true;
}

/// Counts the elements of all arrays, so that each array is allocated once and exactly.
/// @return false if the brackets do not pair up, or enclose only a part of the text.
bool PlainReader::CountElements()
{
    constexpr std::size_t object = 0;  // the first count is for all objects and is not used
    elementCounts.push_back(0);
    std::vector<std::size_t> enclosing;
    for (const char* scan = at; scan != end; ++scan) {
        while (!IsIn(structure, *scan)) {
            ++scan;  // stops at the last byte, which is a bracket
        }
        switch (*scan) {
            case ' ':
                scan = SkipSpaces(scan, end) - 1;
                break;
            case '"':
                scan = FindEndOfString(scan + 1, end);
                if (scan == end) {
                    return false;
                }
                break;
            case '[':
                enclosing.push_back(elementCounts.size());
                elementCounts.push_back(1);
                break;
            case '{':
                enclosing.push_back(object);
                break;
            case ']':
            case '}':
                if ((enclosing.back() == object) != (*scan == '}')) {
                    return false;
                }
                enclosing.pop_back();
                if (enclosing.empty()) {
                    return scan + 1 == end;
                }
                break;
            case ',':
                if (scan[-1] == ',') {
                    return false;
                }
                ++elementCounts[enclosing.back()];
                break;
            case 'n':  // null, which an array drops
                if (elementCounts[enclosing.back()] != 0) {
                    --elementCounts[enclosing.back()];
                }
                break;
            default:
                break;
        }
    }
    return false;
}

/// Starts the container at the position.
void PlainReader::Open(Value& container)
{
    if (*at == '[') {
        Access::Type(container) = ArrayVal;
        ++arraysOpened;
    } else {
        Access::Type(container) = ObjectVal;
    }
    open.push_back(&container);
    opened = true;
    ++at;
}

/// Ends the innermost container.
/// @return true: the text is plain so far.
bool PlainReader::Close()
{
    open.pop_back();
    opened = false;
    ++at;
    return true;
}

/// Continues in an array, the innermost container, until it ends or another container opens.
/// @return whether the text is plain so far.
bool PlainReader::ReadElements(std::vector<Value>& elements)
{
    for (;;) {
        SkipSpace();
        if (*at == ']') {
            return Close();
        }
        if (opened) {
            opened = false;
            elements.reserve(elementCounts[arraysOpened]);
        } else if (*at == ',') {
            ++at;
            SkipSpace();
        } else {
            return false;
        }

        if (*at == 'n') {
            // An array drops null, see Deserialize.cpp.
            if (!ReadLiteral("null")) {
                return false;
            }
            continue;
        }
        Value& element = elements.emplace_back();
        if (*at == '[' || *at == '{') {
            Open(element);
            return true;
        }
        if (!ReadScalar(element, true)) {
            return false;
        }
    }
}

/// Continues in an object, the innermost container, until it ends or another container opens.
/// @return whether the text is plain so far.
bool PlainReader::ReadMembers(Value& object)
{
    for (;;) {
        if (*at == '}') {
            return Close();
        }
        SkipSpace();
        if (opened) {
            opened = false;  // Braces with nothing but blanks are malformed, see Deserialize.cpp.
        } else if (*at == '}') {
            return Close();
        } else if (*at == ',') {
            ++at;
            SkipSpace();
        } else {
            return false;
        }

        Value* const member = ReadKey(object);
        if (member == nullptr) {
            return false;
        }
        if (*at == '[' || *at == '{') {
            Open(*member);
            return true;
        }
        if (*at == 'n' ? !ReadLiteral("null") : !ReadScalar(*member, false)) {
            return false;
        }
    }
}

/// Reads a key and its colon.
/// @return the new member, still null; a null pointer if the text is not plain.
Value* PlainReader::ReadKey(Value& object)
{
    if (*at != '"') {
        return nullptr;
    }
    const char* const begin = at + 1;
    const char* const quote = FindQuote(begin, end);
    if (quote == nullptr || quote == begin || quote[-1] == '\\') {
        return nullptr;
    }
    at = quote + 1;
    SkipSpace();
    if (*at != ':') {
        return nullptr;
    }
    ++at;
    SkipSpace();

    // Escapes in a key stay as they are, see Deserialize.cpp.
    const auto [member, isNew] =
        Access::Members(Access::ObjectOf(object))
            .emplace(std::piecewise_construct, std::forward_as_tuple(begin, quote), std::tuple<>());
    if (!isNew) {
        return nullptr;  // a repeated key: leave it to the rules
    }
    return &PrefetchAhead(*member).second;  // the next members are probably allocated there
}

bool PlainReader::ReadScalar(Value& value, bool isElement)
{
    switch (*at) {
        case '"':
            return ReadString(value, isElement);
        case 't':
            Access::SetBool(value, true);
            return ReadLiteral("true");
        case 'f':
            Access::SetBool(value, false);
            return ReadLiteral("false");
        default: {
            at = ReadPlainNumber(at, value);
            return at != nullptr;
        }
    }
}

bool PlainReader::ReadString(Value& value, bool isElement)
{
    const char* const begin = at + 1;
    const char* quote = FindQuoteOrBackslash(begin, end);
    const bool hasEscapes = quote != end && *quote == '\\';
    if (hasEscapes) {
        quote = FindQuote(quote, end);
    }
    // A closing quote after an escaped backslash: the rules that pair brackets do not see it.
    if (quote == nullptr || quote == end || quote[-1] == '\\') {
        return false;
    }
    const std::string_view body(begin, static_cast<std::size_t>(quote - begin));
    if (isElement && CutsElement(body)) {
        return false;
    }
    at = quote + 1;
    Access::Type(value) = StringVal;
    if (hasEscapes) {
        DecodeString(body, Access::String(value));
    } else {
        Access::String(value) = Trim(body);
    }
    return true;
}

bool PlainReader::ReadLiteral(std::string_view literal)
{
    if (!std::string_view(at, static_cast<std::size_t>(end - at)).starts_with(literal)) {
        return false;
    }
    at += literal.size();
    return true;
}

}  // namespace Tolvex::Json
