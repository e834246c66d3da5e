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
/// @code
/// try {
///     Util::SetAddressOfNetInterfaceUsingSocket("eth0", "10.0.0.2", "255.255.255.0");
/// } catch (const IException& problem) {
///     Ilog::LogLine(Ilog::LogType::Error, LogModule::CONFIG) << problem.what();
/// }
/// @endcode
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
    IException(const char* text);
    /// Ends the life of the text.
    ~IException() override;

    /// Copies the text; allocates nothing.
    /// @param other  Not changed.
    IException(const IException& other) = default;
    /// Copies the text; allocates nothing.
    /// @param other  Not changed.
    /// @return this exception.
    IException& operator=(const IException& other) = default;

    /// @return the text, which lives as long as this object.
    const char* what() const noexcept override;

private:
    static constexpr std::size_t messageBytes = 1024;

    char message[messageBytes] = {};
    [[maybe_unused]] std::int32_t code = 0;  ///< always 0; nothing reads it
};

}  // namespace Tolvex
