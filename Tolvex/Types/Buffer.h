/// @file
/// Bytes that belong to somebody else, as an address and a count.
/// @code
/// std::array<unsigned char, 3> key = {1, 2, 3};
/// const std::string text = Crypto::Base64Encode(Iubuffer{key.data(), key.size()});  // AQID
/// @endcode
/// @par Thread safety
/// Reentrant.
#pragma once

#include <cstdint>

namespace Tolvex {

/// Characters. Does not own them: they must outlive the buffer.
struct Ibuffer
{
    char* data;          ///< first byte; may be null
    std::uint64_t size;  ///< number of bytes
};

/// Unsigned bytes. Does not own them: they must outlive the buffer.
struct Iubuffer
{
    unsigned char* data;  ///< first byte; may be null
    std::uint64_t size;   ///< number of bytes
};

}  // namespace Tolvex
