// Date() gives the whole text of strftime(). The first eight bytes of the input are the time, the
// rest is the format.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <string>
#include <vector>

#include "Tolvex/Util/UtilTime.h"

namespace {

// Formats are the input here.
#pragma GCC diagnostic push
#pragma GCC diagnostic ignored "-Wformat-nonliteral"

/// The text, by a buffer that is large from the start; empty when it is not large enough.
std::string Formatted(const std::tm& local, const std::string& format)
{
    static std::vector<char> text(1 << 20);
    return {text.data(), std::strftime(text.data(), text.size(), format.c_str(), &local)};
}

#pragma GCC diagnostic pop

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    std::int64_t number = 0;
    if (size < sizeof number) {
        return 0;
    }
    std::memcpy(&number, data, sizeof number);
    const auto time = static_cast<std::time_t>(number);
    const std::string format(reinterpret_cast<const char*>(data) + sizeof number,
                             size - sizeof number);

    const std::string date = Tolvex::Util::Date(time, format);
    std::tm local{};
    if (localtime_r(&time, &local) == nullptr) {
        return date.empty() ? 0 : (std::abort(), 0);
    }
    const std::string expected = Formatted(local, format.empty() ? "%a,%d %b %y %T%z" : format);
    if (!expected.empty() && date != expected) {
        std::abort();
    }
    return 0;
}
