// A name is refused for its length alone, and then the time is left alone.
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <ctime>
#include <string>

#include "Tolvex/Util/UtilEventName.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    constexpr std::size_t shortestName = 20;
    constexpr std::time_t before = 12345;

    const std::string name(reinterpret_cast<const char*>(data), size);
    std::time_t time = before;
    const bool read = Tolvex::Util::GetEventTimeFromFileName(name, time);
    if (read != (size >= shortestName) || (!read && time != before)) {
        std::abort();
    }
    return 0;
}
