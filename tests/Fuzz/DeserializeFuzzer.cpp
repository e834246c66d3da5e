// Whatever the bytes: the parser and the serializer do exactly what the reference does.

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <string_view>

#include "Tolvex/Json/Json.h"

#include "tests/Json/Judge.h"

namespace {

// The reference is recursive and takes a few kilobytes of instrumented stack for a level.
constexpr std::size_t deepestForReference = 400;

std::size_t OpeningBracketsIn(std::string_view text)
{
    std::size_t count = 0;
    for (const char c : text) {
        count += c == '[' || c == '{' ? 1 : 0;
    }
    return count;
}

void StopAt(const std::string& complaint)
{
    std::fprintf(stderr, "%s\n", complaint.c_str());
    std::abort();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(data, data + size);
    if (OpeningBracketsIn(text) > deepestForReference) {
        return -1;
    }
    const std::string complaint = Tolvex::Json::Judge::Complaint(text);
    if (!complaint.empty()) {
        StopAt(complaint);
    }
    return 0;
}
