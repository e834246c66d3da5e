// Whatever the bytes of its strings and the bits of its numbers: two readers of standard JSON read
// back what SerializeStandard() writes.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <utility>

#include "Tolvex/Json/Json.h"

#include "tests/Json/StandardReaders.h"

namespace {

using namespace Tolvex::Json;

/// An object whose keys and strings are the pieces between the newlines, with a number for each.
Value MakeDocument(const std::string& bytes)
{
    Object object;
    Array numbers;
    std::size_t begin = 0;
    while (begin <= bytes.size()) {
        const std::size_t end = std::min(bytes.find('\n', begin), bytes.size());
        const std::string piece = bytes.substr(begin, end - begin);
        double number = 0;
        std::memcpy(&number, piece.data(), std::min(piece.size(), sizeof number));
        numbers.push_back(number);
        numbers.push_back(Value::FromFloat(static_cast<float>(number)));
        object[piece] = piece;
        begin = end + 1;
    }
    object["numbers"] = Value(std::move(numbers));
    return Value(std::move(object));
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string complaint =
        Judge::StandardComplaint(MakeDocument(std::string(data, data + size)));
    if (!complaint.empty()) {
        std::fprintf(stderr, "%s\n", complaint.c_str());
        std::abort();
    }
    return 0;
}
