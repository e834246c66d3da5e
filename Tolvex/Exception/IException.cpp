#include "Tolvex/Exception/IException.h"

#include <cstring>

namespace Tolvex {

IException::IException(const char* text)
{
    if (text != nullptr) {
        // The last byte stays the terminator.
        std::memcpy(message, text, strnlen(text, messageBytes - 1));
    }
}

// Defined here, because the first virtual function of the class decides where its virtual table is:
// with one table in the library, all shared objects of a process agree on the type.
IException::~IException() = default;

const char* IException::what() const noexcept
{
    return message;
}

}  // namespace Tolvex
