#pragma once

#include <cstddef>
#include <cstdint>
#include <exception>

#include "Tolvex/Types/Export.h"

namespace Tolvex {

/// Exception of the library's free functions: a text of at most 1023 characters.
///
/// The text is inside the object, so a copy allocates nothing. The type information is in the
/// library, so the library, the program and other shared objects can catch each other's exceptions.
/// @code
/// try {
///     Util::SetAddressOfNetInterfaceUsingSocket("eth0", "10.0.0.2", "255.255.255.0");
/// } catch (const IException& problem) {
///     Ilog::LogLine(Ilog::LogType::Error, LogModule::CONFIG) << problem.what();
/// }
/// @endcode
/// @par Errors
/// None: a text that is too long is cut, not refused.
/// @par Thread safety
/// Reentrant.
class TOLVEX_EXPORT IException : public std::exception
{
public:
    /// Keeps a copy of the text.
    ///
    /// @param text  NUL-terminated; only its first 1023 characters are kept. Null counts as empty.
    IException(const char* text);
    /// Invalidates the pointer that what() returned.
    ~IException() override;

    /// Copies the text; allocates nothing.
    IException(const IException& other) = default;
    IException& operator=(const IException& other) = default;

    /// @return the text, valid as long as this object.
    const char* what() const noexcept override;

private:
    static constexpr std::size_t messageBytes = 1024;

    char message[messageBytes] = {};
    [[maybe_unused]] std::int32_t code = 0;  ///< always 0; nothing reads it
};

}  // namespace Tolvex
