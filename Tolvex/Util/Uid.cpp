#include "Tolvex/Util/Uid.h"

#include <array>

#include <uuid/uuid.h>

namespace Tolvex::Util {

std::string NewUid()
{
    constexpr std::size_t textBytes = 37;  // with the terminating zero

    uuid_t identifier;
    uuid_generate_random(identifier);
    std::array<char, textBytes> text{};
    uuid_unparse(identifier, text.data());
    return text.data();
}

}  // namespace Tolvex::Util
