#include "Tolvex/Exception/IException.h"

#include <cstring>

namespace Tolvex {

IException::IException(const char* text)
{
    if (text != nullptr) {
        // Required: a longer text is cut, not refused. The last byte stays the terminator.
        std::memcpy(message, text, strnlen(text, messageBytes - 1));
    }
}

// Defined here, as the first virtual function of the class: this puts the one virtual table into
// the library, so that all shared objects of a process agree on the type.
IException::~IException() = default;

const char* IException::what() const noexcept
{
    return message;
}

}  // namespace Tolvex
