// A text of fewer than six numbers gives no time; of the text itself only separators change, into
// zero bytes; the same text gives the same time again.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

#include "Tolvex/Util/UtilTime.h"

namespace {

const std::string separators = " ,.-:";

void Require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

/// Pieces between separators, up to the first zero byte.
int CountPieces(const std::string& text)
{
    int count = 0;
    bool inside = false;
    for (const char* character = text.c_str(); *character != '\0'; ++character) {
        const bool separator = separators.find(*character) != std::string::npos;
        count += !separator && !inside ? 1 : 0;
        inside = !separator;
    }
    return count;
}

void RequireOnlySeparatorsChanged(const std::string& before, const std::string& after)
{
    Require(before.size() == after.size());
    for (std::size_t i = 0; i < before.size(); ++i) {
        const bool cut = after[i] == '\0' && separators.find(before[i]) != std::string::npos;
        Require(after[i] == before[i] || cut);
    }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string text(reinterpret_cast<const char*>(data), size);
    const std::string first(text.data(), text.size());
    const std::string second(text.data(), text.size());

    const std::time_t time = Tolvex::Util::Str2Time(first);
    Require(CountPieces(text) >= 6 || time == -1);
    RequireOnlySeparatorsChanged(text, first);
    Require(Tolvex::Util::Str2Time(second) == time);
    return 0;
}
