#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>

#include "Tolvex/Types/Export.h"

namespace Tolvex {

/// Exception of the library's free functions: a text of at most 1023 characters.
///
/// Holds its text inside the object, so copying one allocates nothing. Its type information is
/// the library's: a program, and any other shared object, catches what the library throws, and
/// the other way round.
/// @par Errors
/// None: a text that is too long is cut, not rejected.
/// @par Thread safety
/// Reentrant.
class TOLVEX_EXPORT IException : public std::exception
{
public:
    /// Keeps a copy of the text.
    ///
    /// @param text  NUL-terminated; only its first 1023 characters are kept. Null counts as empty.
    explicit IException(const char* text);
    ~IException() override;

    IException(const IException&) = default;
    IException& operator=(const IException&) = default;

    /// @return the text, which lives as long as this object.
    const char* what() const noexcept override;

private:
    static constexpr std::size_t messageBytes = 1024;

    char message[messageBytes] = {};
    [[maybe_unused]] std::int32_t code = 0;  ///< always 0; nothing reads it
};

}  // namespace Tolvex
