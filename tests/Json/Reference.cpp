#include "tests/Json/Reference.h"

#include <cerrno>
#include <cmath>
#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <limits>
#include <stack>

namespace Tolvex::Json::Reference {
namespace {

enum StackDepthType : std::int32_t
{
    InObject,
    InArray
};

/// The open containers. What all steps share also notes whether a container was malformed.
struct DepthStack : std::stack<StackDepthType>
{
    bool sawMalformed = false;
};

Node DeserializeInternal(const std::string& text, DepthStack& stack);
Node DeserializeValue(std::string& s, bool* hadError, DepthStack& stack);

bool IsSpace(char c)
{
    return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r';
}

bool IsDigit(char c)
{
    return c >= '0' && c <= '9';
}

std::int32_t Truncate(double number)
{
    if (std::isnan(number)) {
        return 0;
    }
    if (number >= 2147483647.0) {
        return std::numeric_limits<std::int32_t>::max();
    }
    if (number <= -2147483648.0) {
        return std::numeric_limits<std::int32_t>::min();
    }
    return static_cast<std::int32_t>(number);
}

std::string Trim(const std::string& text)
{
    std::size_t first = 0;
    while (first < text.size() && IsSpace(text[first])) {
        ++first;
    }
    std::size_t end = text.size();
    while (end > first && IsSpace(text[end - 1])) {
        --end;
    }
    return text.substr(first, end - first);
}

std::size_t GetQuotePos(const std::string& s, std::size_t start)
{
    bool escaped = false;
    for (std::size_t i = start; i < s.size(); ++i) {
        if (s[i] == '\\') {
            escaped = !escaped;
        } else if (s[i] == '"' && !escaped) {
            return i;
        } else {
            escaped = false;
        }
    }
    return std::string::npos;
}

std::size_t GetEndOfArrayOrObj(const std::string& s, DepthStack& depth)
{
    const std::size_t sizeOnEntry = depth.size();
    bool inString = false;
    for (std::size_t i = 1; i < s.size(); ++i) {
        const char c = s[i];
        if (c == '"') {
            if (s[i - 1] != '\\') {
                inString = !inString;
            }
        } else if (inString) {
            continue;
        } else if (c == '[') {
            depth.push(InArray);
        } else if (c == '{') {
            depth.push(InObject);
        } else if (c == ']' || c == '}') {
            if (depth.top() != (c == ']' ? InArray : InObject)) {
                return std::string::npos;
            }
            const std::size_t sizeBefore = depth.size();
            depth.pop();
            if (sizeBefore == sizeOnEntry) {
                return i;
            }
        }
    }
    return s.size();
}

std::string UnescapeJSONString(const std::string& body)
{
    const std::string letters = "\"/\\bfnrt";
    const std::string bytes = "\"/\\\b\f\n\r\t";
    std::string result;
    std::size_t i = 0;
    while (i < body.size()) {
        if (body[i] != '\\' || i + 1 == body.size()) {
            result += body[i];
            i += 1;
            continue;
        }
        const char letter = body[i + 1];
        if (letter == 'u') {
            const std::string hex = body.substr(i + 4, 2);  // throws std::out_of_range
            result += static_cast<char>(std::strtoul(hex.c_str(), nullptr, 16));
            i += 6;
            continue;
        }
        const std::size_t known = letters.find(letter);
        if (known != std::string::npos) {
            result += bytes[known];
        }
        i += 2;
    }
    return result;
}

Node Fail(bool* hadError)
{
    *hadError = true;
    return Node();
}

Node ReadDouble(const std::string& token, bool* hadError)
{
    char* end = nullptr;
    errno = 0;
    const double number = std::strtod(token.c_str(), &end);
    if (errno != 0 || end != token.c_str() + token.size()) {
        return Fail(hadError);
    }
    return FromDouble(number);
}

Node ReadInteger(const std::string& token, bool* hadError)
{
    char* end = nullptr;
    const long long number = std::strtoll(token.c_str(), &end, 10);
    if (end != token.c_str() + token.size()) {
        return Fail(hadError);
    }
    // A long has 32 bits here, on every platform.
    if (number > std::numeric_limits<std::int32_t>::max() ||
        number < std::numeric_limits<std::int32_t>::min()) {
        return ReadDouble(token, hadError);
    }
    return FromInt(static_cast<std::int32_t>(number));
}

/// The token in front of a comma, and the flags that were raised on the way.
struct Token
{
    std::string text;
    bool digit = false;
    bool point = false;
    bool exponent = false;
};

/// Takes one character into the token. Returns false when it is an error.
bool TakeCharacter(char c, Token& token, DepthStack& stack)
{
    if (IsSpace(c)) {
        return true;
    }
    if (c == '[' || c == '{') {
        return false;
    }
    if (c == '.') {
        if (!token.digit) {
            return false;
        }
        token.point = true;
    } else if (c == 'e' || c == 'E') {
        if (token.text != "tru" && token.text != "fals") {
            if (!token.digit || token.exponent) {
                return false;
            }
            token.exponent = true;
        }
    } else if (c == ']' || c == '}') {
        if (stack.empty() || stack.top() != (c == ']' ? InArray : InObject)) {
            return false;
        }
        stack.pop();
    } else if (IsDigit(c)) {
        token.digit = true;
    }
    token.text += c;
    return true;
}

Node Classify(const Token& token, bool* hadError)
{
    if (token.text == "true") {
        return FromBool(true);
    }
    if (token.text == "false") {
        return FromBool(false);
    }
    if (token.point || token.exponent) {
        return ReadDouble(token.text, hadError);
    }
    if (token.text == "null") {
        return Node();
    }
    return ReadInteger(token.text, hadError);
}

Node ReadBareToken(std::string& s, bool* hadError, DepthStack& stack)
{
    Token token;
    std::size_t i = 0;
    while (i < s.size() && s[i] != ',') {
        if (!TakeCharacter(s[i], token, stack)) {
            return Fail(hadError);
        }
        ++i;
    }
    s = s.substr(i);
    return Classify(token, hadError);
}

Node ReadString(std::string& s, bool* hadError)
{
    const std::size_t closing = GetQuotePos(s, 1);
    if (closing == std::string::npos) {
        return Fail(hadError);
    }
    Node node = FromString(Trim(UnescapeJSONString(s.substr(1, closing - 1))));
    s = s.substr(closing + 1);
    return node;
}

Node Malformed(DepthStack& stack)
{
    stack.sawMalformed = true;
    return Node();
}

Node DeserializeObj(const std::string& t, DepthStack& stack)
{
    std::string o = Trim(t);
    if (o.empty() || (o.front() != '{' && o.back() != '}')) {
        return Malformed(stack);
    }
    o = o.substr(1, o.size() - 2);

    Node result = EmptyObject();
    while (!o.empty()) {
        const std::size_t q1 = GetQuotePos(o, 0);
        if (q1 == std::string::npos) {
            return Malformed(stack);
        }
        const std::size_t q2 = GetQuotePos(o, q1 + 1);
        if (q2 == std::string::npos) {
            return Malformed(stack);
        }
        const std::size_t colon = o.find(':', q2);
        if (colon == std::string::npos) {
            return Malformed(stack);
        }
        const std::string key = o.substr(q1 + 1, q2 - q1 - 1);
        if (key.empty()) {
            return Malformed(stack);
        }
        o = o.substr(colon + 1);
        bool hadError = false;
        result.members[key] = DeserializeValue(o, &hadError, stack);
        if (hadError) {
            return Malformed(stack);
        }
    }
    return result;
}

/// Cuts the next scalar off the front of s. Returns false, and leaves s whole, when a container
/// begins in it.
bool CutToken(std::string& s, std::string& token)
{
    token.clear();
    std::size_t i = 0;
    while (true) {
        if (s[i] == ',' || s[i] == ']') {
            break;
        }
        if (s[i] == '[' || s[i] == '{') {
            return false;
        }
        token += s[i];
        if (i + 1 == s.size()) {
            break;
        }
        ++i;
    }
    s = s.substr(i + 1);
    return true;
}

Node DeserializeArray(std::string& s, DepthStack& stack)
{
    s = Trim(s);
    if (s.empty() || s.front() != '[' || s.back() != ']') {
        return Malformed(stack);
    }
    s = s.substr(1, s.size() - 2);

    Node result = EmptyArray();
    while (!s.empty()) {
        bool hadError = false;
        std::string token;
        Node element;
        if (CutToken(s, token)) {
            element = DeserializeValue(token, &hadError, stack);
        } else {
            element = DeserializeValue(s, &hadError, stack);
        }
        if (hadError) {
            return Malformed(stack);
        }
        if (element.kind != Kind::Null) {
            result.elements.push_back(element);
        }
    }
    return result;
}

Node ReadArray(std::string& s, bool* hadError, DepthStack& stack)
{
    stack.push(InArray);
    const std::size_t end = GetEndOfArrayOrObj(s, stack);
    if (end == std::string::npos) {
        return Fail(hadError);
    }
    std::string container = s.substr(0, end + 1);
    Node node = DeserializeArray(container, stack);
    s = s.substr(end + 1);  // throws std::out_of_range where the container is not closed
    return node;
}

Node ReadObject(std::string& s, bool* hadError, DepthStack& stack)
{
    stack.push(InObject);
    const std::size_t end = GetEndOfArrayOrObj(s, stack);
    if (end == std::string::npos) {
        return Fail(hadError);
    }
    Node node = DeserializeInternal(s.substr(0, end + 1), stack);
    s = s.substr(end + 1);  // throws std::out_of_range where the container is not closed
    return node;
}

Node DeserializeValue(std::string& s, bool* hadError, DepthStack& stack)
{
    *hadError = false;
    s = Trim(s);
    if (s.empty()) {
        return Node();
    }
    switch (s.front()) {
        case '[':
            return ReadArray(s, hadError, stack);
        case '{':
            return ReadObject(s, hadError, stack);
        case '"':
            return ReadString(s, hadError);
        default:
            return ReadBareToken(s, hadError, stack);
    }
}

/// Pops the container's own entry, unless the container is null or another entry is on top.
void PopOwnEntry(const Node& result, StackDepthType own, DepthStack& stack)
{
    if (result.kind != Kind::Null && !stack.empty() && stack.top() == own) {
        stack.pop();
    }
}

Node DeserializeInternal(const std::string& text, DepthStack& stack)
{
    std::string t = Trim(text);
    if (!t.empty() && t.front() == '{' && t.back() == '}') {
        stack.push(InObject);
        Node result = DeserializeObj(t, stack);
        PopOwnEntry(result, InObject, stack);
        return result;
    }
    if (!t.empty() && t.front() == '[' && t.back() == ']') {
        stack.push(InArray);
        Node result = DeserializeArray(t, stack);
        PopOwnEntry(result, InArray, stack);
        return result;
    }
    return Malformed(stack);
}

std::string PrintedInt(std::int32_t number)
{
    char buffer[500];
    std::snprintf(buffer, sizeof buffer, "%d", static_cast<int>(number));
    return buffer;
}

std::string PrintedDouble(double number)
{
    char buffer[500];
    std::snprintf(buffer, sizeof buffer, "%f", number);
    return buffer;
}

std::string SerializeObject(const Node& node)
{
    std::string text = "{";
    for (const auto& [key, member] : node.members) {
        text += text.size() == 1 ? "" : ",";
        text += "\"" + key + "\":" + SerializeValue(member);
    }
    return text + "}";
}

std::string SerializeArray(const Node& node)
{
    std::string text = "[";
    for (const Node& element : node.elements) {
        text += text.size() == 1 ? "" : ",";
        text += SerializeValue(element);
    }
    return text + "]";
}

}  // namespace

Node FromInt(std::int32_t number)
{
    Node node;
    node.kind = Kind::Int;
    node.intValue = number;
    node.floatValue = static_cast<float>(number);
    node.doubleValue = number;
    return node;
}

Node FromDouble(double number)
{
    Node node;
    node.kind = Kind::Double;
    node.intValue = Truncate(number);
    node.floatValue = static_cast<float>(number);
    node.doubleValue = number;
    return node;
}

Node FromString(const std::string& text)
{
    Node node;
    node.kind = Kind::String;
    node.text = text;
    return node;
}

Node FromBool(bool truth)
{
    Node node;
    node.kind = Kind::Bool;
    node.truth = truth;
    return node;
}

Node EmptyObject()
{
    Node node;
    node.kind = Kind::Object;
    return node;
}

Node EmptyArray()
{
    Node node;
    node.kind = Kind::Array;
    return node;
}

Node Deserialize(const std::string& text, bool* sawMalformed)
{
    DepthStack stack;
    Node node = DeserializeInternal(text, stack);
    *sawMalformed = stack.sawMalformed;
    return node;
}

std::string Serialize(const Node& node)
{
    if (node.kind == Kind::Object) {
        return SerializeObject(node);
    }
    return node.kind == Kind::Array ? SerializeArray(node) : "";
}

std::string SerializeValue(const Node& node)
{
    switch (node.kind) {
        case Kind::Null:
            return "null";
        case Kind::String:
            return "\"" + node.text + "\"";
        case Kind::Int:
            return PrintedInt(node.intValue);
        case Kind::Float:
            return PrintedDouble(static_cast<double>(node.floatValue));
        case Kind::Double:
            return PrintedDouble(node.doubleValue);
        case Kind::Object:
        case Kind::Array:
            return Serialize(node);
        case Kind::Bool:
            return node.truth ? "true" : "false";
    }
    return "";
}

}  // namespace Tolvex::Json::Reference
