#include "Tolvex/Crypto/Crypto.h"

#include <algorithm>
#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string_view>

#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/crypto.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace Tolvex::Crypto {

namespace {

constexpr std::size_t longestKey = 128;  ///< bytes
constexpr std::string_view alphabet =
    "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

/// Frees a chain of BIOs.
struct BioDeleter
{
    void operator()(BIO* chain) const { BIO_free_all(chain); }
};
using Bio = std::unique_ptr<BIO, BioDeleter>;

/// Base64 filter in front of a memory BIO; null if there is no memory.
Bio MakeEncoder(bool noNewLines)
{
    Bio chain(BIO_new(BIO_f_base64()));
    BIO* const memory = BIO_new(BIO_s_mem());
    if (chain == nullptr || memory == nullptr) {
        BIO_free(memory);
        return nullptr;
    }

    if (noNewLines) {
        BIO_set_flags(chain.get(), BIO_FLAGS_BASE64_NO_NL);
    }
    BIO_push(chain.get(), memory);
    return chain;
}

/// Values of the Base64 characters; -1 for all other bytes.
constexpr std::array<std::int8_t, 256> MakeDecodingTable()
{
    std::array<std::int8_t, 256> values{};
    values.fill(-1);
    for (std::size_t i = 0; i < alphabet.size(); ++i) {
        values[static_cast<unsigned char>(alphabet[i])] = static_cast<std::int8_t>(i);
    }
    return values;
}

constexpr std::array<std::int8_t, 256> decodingTable = MakeDecodingTable();

std::int32_t ValueOf(char character)
{
    return decodingTable[static_cast<unsigned char>(character)];
}

/// Writes the three bytes of four characters. @return false if one is not in the alphabet.
bool DecodeGroup(const char* group, char* bytes)
{
    const std::int32_t first = ValueOf(group[0]);
    const std::int32_t second = ValueOf(group[1]);
    const std::int32_t third = ValueOf(group[2]);
    const std::int32_t fourth = ValueOf(group[3]);

    const std::int32_t bits = first << 18 | second << 12 | third << 6 | fourth;
    bytes[0] = static_cast<char>(bits >> 16);
    bytes[1] = static_cast<char>(bits >> 8);
    bytes[2] = static_cast<char>(bits);
    return bits >= 0;  // If one of the four is -1, the result is negative.
}

/// The same for the last four characters, up to two of them padding.
bool DecodeLastGroup(const char* group, std::size_t padding, char* bytes)
{
    std::array<char, 4> filled{};
    std::copy_n(group, filled.size(), filled.begin());
    std::fill(filled.end() - static_cast<std::ptrdiff_t>(padding), filled.end(), alphabet[0]);
    if (!DecodeGroup(filled.data(), bytes)) {
        return false;
    }

    // The bytes of the padding are zero, unless the character before it has surplus bits.
    return std::all_of(bytes + 3 - padding, bytes + 3, [](char byte) { return byte == 0; });
}

}  // namespace

std::string DoBase64Encode(const void* data, unsigned long long length, bool noNewLines)
{
    if (length == 0 || data == nullptr) {
        return {};
    }
    const Bio chain = MakeEncoder(noNewLines);
    if (chain == nullptr) {
        return {};
    }

    // Required: only the low 32 bits of the length count; a negative number encodes nothing.
    // Base64EncodeLine() takes any length.
    const int size = static_cast<int>(length);
    if (BIO_write(chain.get(), data, size) != size || BIO_flush(chain.get()) != 1) {
        return {};
    }
    BUF_MEM* text = nullptr;
    BIO_get_mem_ptr(chain.get(), &text);

    // Required: the last character is dropped in both modes. By default it is the final line feed;
    // without new lines it is a character of the Base64 text. Base64EncodeLine() drops nothing.
    return text->length > 0 ? std::string(text->data, text->length - 1) : std::string();
}

std::string Base64Encode(const unsigned char* data, unsigned long long length, bool noNewLines)
{
    return DoBase64Encode(data, length, noNewLines);
}

std::string Base64Encode(const char* data, long long length, bool noNewLines)
{
    return DoBase64Encode(data, static_cast<unsigned long long>(length), noNewLines);
}

std::string Base64Encode(const Iubuffer& buffer)
{
    return Base64Encode(buffer.data, buffer.size, false);
}

std::string Base64Encode(const Ibuffer& buffer)
{
    return DoBase64Encode(buffer.data, buffer.size, false);
}

std::string Base64EncodeLine(const void* data, unsigned long long length)
{
    constexpr std::size_t pieceBytes = 3 << 20;  // EVP_EncodeBlock() takes an int

    if (data == nullptr) {
        return {};
    }
    std::string text;
    if (length > text.max_size() / 4 * 3 - 3) {
        throw std::length_error("Base64EncodeLine");
    }

    const auto size = static_cast<std::size_t>(length);
    text.resize((size + 2) / 3 * 4);
    const auto* const bytes = static_cast<const unsigned char*>(data);
    auto* const characters = reinterpret_cast<unsigned char*>(text.data());
    for (std::size_t done = 0; done < size; done += pieceBytes) {
        const std::size_t piece = std::min(pieceBytes, size - done);
        EVP_EncodeBlock(characters + done / 3 * 4, bytes + done, static_cast<int>(piece));
    }
    return text;
}

bool Base64Decode(const std::string& text, std::string& bytes)
{
    if (text.size() % 4 != 0) {
        return false;
    }
    if (text.empty()) {
        bytes.clear();
        return true;
    }

    const std::size_t last = text.size() / 4 - 1;
    std::string decoded(3 * (last + 1), '\0');
    for (std::size_t i = 0; i < last; ++i) {
        if (!DecodeGroup(&text[4 * i], &decoded[3 * i])) {
            return false;
        }
    }
    const std::size_t padding = text.ends_with("==") ? 2 : text.ends_with('=') ? 1 : 0;
    if (!DecodeLastGroup(&text[4 * last], padding, &decoded[3 * last])) {
        return false;
    }

    decoded.resize(decoded.size() - padding);
    bytes.swap(decoded);
    return true;
}

std::string HMAC_SHA1(const std::string& message, const std::string& key)
{
    // Required: refuses empty texts and longer keys, which the method itself would take.
    if (message.empty() || key.empty() || key.size() > longestKey) {
        return {};
    }

    std::array<unsigned char, EVP_MAX_MD_SIZE> digest{};
    unsigned int digestLength = 0;  // stays 0 if libcrypto fails; the text is then empty
    HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
         reinterpret_cast<const unsigned char*>(message.data()), message.size(), digest.data(),
         &digestLength);
    return Base64Encode(digest.data(), digestLength, false);
}

bool VerifyHmacSha1(const std::string& message, const std::string& key,
                    const std::string& signature)
{
    const std::string expected = HMAC_SHA1(message, key);
    return !expected.empty() && signature.size() == expected.size() &&
           CRYPTO_memcmp(signature.data(), expected.data(), expected.size()) == 0;
}

}  // namespace Tolvex::Crypto
