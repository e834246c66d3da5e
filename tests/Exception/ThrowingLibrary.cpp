#include "tests/Exception/ThrowingLibrary.h"

namespace Tolvex::Support {

void ThrowInSharedObject(const char* text)
{
    throw IException(text);
}

const std::type_info& GetTypeInThrower()
{
    return typeid(IException);
}

}  // namespace Tolvex::Support
