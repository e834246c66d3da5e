/// @file
/// Reading ordinary JSON text fast. See docs/json-speed.md.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string_view>
#include <vector>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Private/Characters.h"

namespace Tolvex::Json {

/// Reads plain text: JSON as nearly every program writes it. The rules of the dialect give the same
/// tree for it.
///
/// Gives up at everything else, malformed text included. The caller then reads the text again, by
/// the rules.
class PlainReader
{
public:
    /// @param document  Without white space at its ends; part of a NUL-terminated string.
    explicit PlainReader(std::string_view document)
        : at(document.data()), end(document.data() + document.size())
    {
    }

    /// @param root  A fresh value. Its content is unspecified if the text is not plain.
    /// @return whether the text is plain.
    /// @throws std::out_of_range as Deserialize() does.
    bool Read(Value& root);

private:
    bool CountElements();
    void Open(Value& container);
    bool Close();
    bool ReadElements(std::vector<Value>& elements);
    bool ReadMembers(Value& object);
    Value* ReadKey(Value& object);
    bool ReadScalar(Value& value, bool isElement);
    bool ReadString(Value& value, bool isElement);
    bool ReadLiteral(std::string_view literal);

    void SkipSpace() { at = SkipSpaces(at, end); }

    const char* at;
    const char* end;
    std::vector<Value*> open;                  ///< the containers being read, innermost last
    bool opened = false;                       ///< nothing of the innermost one has been read
    std::vector<std::uint32_t> elementCounts;  ///< of the arrays, in the order of the text
    std::size_t arraysOpened = 0;
};

}  // namespace Tolvex::Json
