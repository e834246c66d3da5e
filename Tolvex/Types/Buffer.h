/// @file
/// A reference to bytes: an address and a count.
/// @code
/// std::array<unsigned char, 3> key = {1, 2, 3};
/// const std::string text = Crypto::Base64Encode(Iubuffer{key.data(), key.size()});  // AQID
/// @endcode
/// @par Thread safety
/// Reentrant.
#pragma once

#include <cstdint>

namespace Tolvex {

/// A reference to characters. Does not own them; they must outlive the buffer.
struct Ibuffer
{
    char* data;          ///< first byte; may be null
    std::uint64_t size;  ///< number of bytes
};

/// A reference to unsigned bytes. Does not own them; they must outlive the buffer.
struct Iubuffer
{
    unsigned char* data;  ///< first byte; may be null
    std::uint64_t size;   ///< number of bytes
};

}  // namespace Tolvex
