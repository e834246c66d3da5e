/// @file
/// Base64 text and HMAC-SHA1 signatures.
///
/// | To                             | call                                                     |
/// |--------------------------------|----------------------------------------------------------|
/// | encode in lines of 64          | Base64Encode() without the no-newline mode               |
/// | encode in one complete line    | Base64EncodeLine()                                       |
/// | decode one line                | Base64Decode()                                           |
/// | sign, and check a signature    | HMAC_SHA1() and VerifyHmacSha1()                         |
///
/// See examples/SignedRequest.cpp.
/// @par Errors
/// No error is reported or recorded. Data that cannot be encoded or signed gives an empty text; so
/// does a lack of memory in libcrypto.
/// @par Thread safety
/// Reentrant.
#pragma once

#include <string>

#include "Tolvex/Types/Buffer.h"
#include "Tolvex/Types/Export.h"

namespace Tolvex::Crypto {

/// Encodes bytes as Base64 text.
///
/// @param data        Bytes; null gives an empty text.
/// @param length      Number of bytes; 0 gives an empty text. Only the low 32 bits are used, as a
///                    signed number. So 2 GiB or more encode only the first part of the data, or
///                    give an empty text.
/// @param noNewLines  False: lines of 64 characters, with no line feed at the end. True: one line.
/// @return the text.
/// @note With noNewLines the last character is missing ("foo" gives "Zm9"): Base64EncodeLine()
///       gives the complete line.
TOLVEX_EXPORT std::string DoBase64Encode(const void* data, unsigned long long length,
                                         bool noNewLines);

/// The same as DoBase64Encode().
///
/// @param data        Bytes; null gives an empty text.
/// @param length      Number of bytes, with the limits of DoBase64Encode().
/// @param noNewLines  False: lines of 64 characters. True: one line, without its last character.
/// @return the text.
TOLVEX_EXPORT std::string Base64Encode(const unsigned char* data, unsigned long long length,
                                       bool noNewLines);

/// The same as DoBase64Encode().
///
/// @param data        Bytes; null gives an empty text.
/// @param length      Number of bytes, with the limits of DoBase64Encode(). Of a negative number,
///                    too, the low 32 bits are used.
/// @param noNewLines  False: lines of 64 characters. True: one line, without its last character.
/// @return the text.
TOLVEX_EXPORT std::string Base64Encode(const char* data, long long length, bool noNewLines);

/// Encodes the bytes of a buffer, in lines of 64 characters.
///
/// @param buffer  Not changed; null data gives an empty text.
/// @return the text.
TOLVEX_EXPORT std::string Base64Encode(const Iubuffer& buffer);

/// Encodes the bytes of a buffer, in lines of 64 characters.
///
/// @param buffer  Not changed; null data gives an empty text.
/// @return the text.
TOLVEX_EXPORT std::string Base64Encode(const Ibuffer& buffer);

/// Encodes any number of bytes as one complete line of Base64 text, with padding.
///
/// @param data    Bytes; null gives an empty text.
/// @param length  Number of bytes.
/// @return the text.
/// @throws std::length_error or std::bad_alloc if no string can hold the text.
TOLVEX_EXPORT std::string Base64EncodeLine(const void* data, unsigned long long length);

/// Decodes one line of Base64 text.
///
/// Strict: accepts only text that Base64EncodeLine() can produce. Line feeds, blanks, other
/// alphabets, missing or misplaced padding, and a last character with surplus bits are refused. To
/// decode text in lines, remove the line feeds first: Util::Replace(text, "\n", "").
///
/// @param text        One line, as above.
/// @param[out] bytes  Receives the bytes; untouched if the text is refused. It may be the text.
/// @return true if the text was decoded; an empty text gives no bytes.
TOLVEX_EXPORT bool Base64Decode(const std::string& text, std::string& bytes);

/// Signs a message.
///
/// @param message  Bytes to sign; an empty message is not signed.
/// @param key      1 to 128 bytes.
/// @return Base64 text of the HMAC-SHA1, always 28 characters. Empty for an empty message, and for
///         a key that is empty or too long.
TOLVEX_EXPORT std::string HMAC_SHA1(const std::string& message, const std::string& key);

/// Checks a signature. The time that the check takes does not tell at which character a wrong
/// signature differs from the right one.
///
/// @param message    Bytes that were signed.
/// @param key        1 to 128 bytes.
/// @param signature  As HMAC_SHA1() makes it.
/// @return true if it is the signature of the message under the key. Always false for a message or
///         a key that HMAC_SHA1() refuses.
TOLVEX_EXPORT bool VerifyHmacSha1(const std::string& message, const std::string& key,
                                  const std::string& signature);

}  // namespace Tolvex::Crypto
