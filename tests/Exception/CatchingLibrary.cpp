#include "tests/Exception/ThrowingLibrary.h"

namespace Tolvex::Support {

std::string CatchInSharedObject(void (*thrower)(const char*), const char* text)
{
    try {
        thrower(text);
    } catch (const IException& exception) {
        return exception.what();
    }
    return "nothing was thrown";
}

const std::type_info& GetTypeInCatcher()
{
    return typeid(IException);
}

}  // namespace Tolvex::Support
