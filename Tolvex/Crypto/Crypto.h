/// @file
/// Base64 text and HMAC-SHA1 signatures.
///
/// | To                             | take                                                     |
/// |--------------------------------|----------------------------------------------------------|
/// | encode in lines of 64          | Base64Encode() without the no-newline mode               |
/// | encode in one complete line    | Base64EncodeLine()                                       |
/// | decode one line                | Base64Decode()                                           |
/// | sign, and check a signature    | HMAC_SHA1() and VerifyHmacSha1()                         |
///
/// See examples/SignedRequest.cpp.
/// @par Errors
/// Nothing is reported or recorded; what cannot be encoded or signed gives an empty text, that for
/// which libcrypto finds no memory included.
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
/// @param length      Number of bytes; 0 gives an empty text. Only the low 32 bits count, read as a
///                    signed number: of 2 GiB or more at most the beginning is encoded, or nothing.
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
/// @param length      Number of bytes, with the limits of DoBase64Encode(): the low 32 bits of a
///                    negative number count too.
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

/// Encodes bytes of any number as one complete line of Base64 text, padding included.
///
/// @param data    Bytes; null gives an empty text.
/// @param length  Number of bytes.
/// @return the text.
/// @throws std::length_error or std::bad_alloc when no string can hold the text.
TOLVEX_EXPORT std::string Base64EncodeLine(const void* data, unsigned long long length);

/// Decodes one line of Base64 text.
///
/// Strict: takes exactly what Base64EncodeLine() makes. Line feeds, blanks, other alphabets,
/// missing or misplaced padding and a last character with surplus bits are refused. Text in lines
/// decodes after Util::Replace(text, "\n", "").
///
/// @param text        One line, as above.
/// @param[out] bytes  Receives the bytes; untouched when the text is refused. It may be the text.
/// @return true when the text was decoded; an empty one gives no bytes.
TOLVEX_EXPORT bool Base64Decode(const std::string& text, std::string& bytes);

/// Signs a message.
///
/// @param message  Bytes to sign; an empty message is not signed.
/// @param key      1 to 128 bytes.
/// @return Base64 text of the HMAC-SHA1, always 28 characters; empty for an empty message and for a
///         key that is empty or too long.
TOLVEX_EXPORT std::string HMAC_SHA1(const std::string& message, const std::string& key);

/// Checks a signature in a time that does not depend on where it differs from the right one.
///
/// @param message    Bytes that were signed.
/// @param key        1 to 128 bytes.
/// @param signature  As HMAC_SHA1() makes it.
/// @return true when it is the signature of the message under the key; false for a message or a key
///         that HMAC_SHA1() does not sign with, whatever the signature.
TOLVEX_EXPORT bool VerifyHmacSha1(const std::string& message, const std::string& key,
                                  const std::string& signature);

}  // namespace Tolvex::Crypto
