// Replace() gives what replacing in place, one match after the other, gives. The first two bytes of
// the input are the lengths of the text to find and of the text to put in.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "Tolvex/Util/UtilString.h"

#include "tests/Support/ReplaceReference.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    if (size < 2) {
        return 0;
    }
    const std::string rest(reinterpret_cast<const char*>(data) + 2, size - 2);
    const std::size_t fromLength = std::min<std::size_t>(data[0], rest.size());
    const std::size_t toLength = std::min<std::size_t>(data[1], rest.size() - fromLength);
    const std::string from = rest.substr(0, fromLength);
    const std::string to = rest.substr(fromLength, toLength);
    const std::string source = rest.substr(fromLength + toLength);

    if (Tolvex::Util::Replace(source, from, to) !=
        Tolvex::Support::ReplaceInPlace(source, from, to)) {
        std::abort();
    }
    return 0;
}
