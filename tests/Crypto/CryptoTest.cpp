#include "Tolvex/Crypto/Crypto.h"

#include <cstddef>
#include <cstdint>
#include <limits>
#include <random>
#include <stdexcept>
#include <string>
#include <thread>
#include <type_traits>
#include <vector>

#include <gtest/gtest.h>

/// libcrypto's comparison, replaced for the whole program: records its arguments.
namespace {
std::size_t lastComparedBytes = 0;
}

extern "C" int CRYPTO_memcmp(const void* first, const void* second, std::size_t length)
{
    lastComparedBytes = length;
    const auto* const left = static_cast<const unsigned char*>(first);
    const auto* const right = static_cast<const unsigned char*>(second);
    int difference = 0;
    for (std::size_t i = 0; i < length; ++i) {
        difference |= left[i] ^ right[i];
    }
    return difference;
}

namespace {

using Tolvex::Ibuffer;
using Tolvex::Iubuffer;
using Tolvex::Crypto::Base64Decode;
using Tolvex::Crypto::Base64Encode;
using Tolvex::Crypto::Base64EncodeLine;
using Tolvex::Crypto::DoBase64Encode;
using Tolvex::Crypto::HMAC_SHA1;
using Tolvex::Crypto::VerifyHmacSha1;

// An address, then a number of bytes; owns nothing.
static_assert(std::is_same_v<decltype(Ibuffer::data), char*>);
static_assert(std::is_same_v<decltype(Ibuffer::size), std::uint64_t>);
static_assert(offsetof(Ibuffer, data) == 0 && offsetof(Ibuffer, size) >= sizeof(char*));
static_assert(std::is_trivial_v<Ibuffer> && std::is_aggregate_v<Ibuffer>);
static_assert(std::is_same_v<decltype(Iubuffer::data), unsigned char*>);
static_assert(std::is_same_v<decltype(Iubuffer::size), std::uint64_t>);
static_assert(offsetof(Iubuffer, data) == 0 && offsetof(Iubuffer, size) >= sizeof(char*));
static_assert(std::is_trivial_v<Iubuffer> && std::is_aggregate_v<Iubuffer>);

const std::string alphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

std::string RandomBytes(std::size_t length)
{
    static std::mt19937 generator(20210304);
    std::string bytes;
    while (bytes.size() < length) {
        const std::uint_fast32_t number = generator();
        for (const int shift : {0, 8, 16, 24}) {
            bytes.push_back(static_cast<char>(number >> shift));
        }
    }
    bytes.resize(length);
    return bytes;
}

/// Base64 bit by bit: one character for each six bits, then padding.
std::string ReferenceLine(const std::string& bytes)
{
    std::string line;
    std::size_t bits = 0;
    int count = 0;
    for (const char byte : bytes) {
        bits = (bits << 8 | static_cast<unsigned char>(byte)) & 0xFFFF;
        for (count += 8; count >= 6; count -= 6) {
            line.push_back(alphabet[bits >> (count - 6) & 63]);
        }
    }
    if (count > 0) {
        line.push_back(alphabet[bits << (6 - count) & 63]);
    }
    line.resize((line.size() + 3) / 4 * 4, '=');
    return line;
}

/// The same in lines of 64 characters, without a final line feed.
std::string ReferenceLines(const std::string& bytes)
{
    const std::string line = ReferenceLine(bytes);
    std::string lines = line.substr(0, 64);
    for (std::size_t start = 64; start < line.size(); start += 64) {
        lines.append("\n").append(line, start, 64);
    }
    return lines;
}

std::string WithoutLast(const std::string& text)
{
    return text.empty() ? text : text.substr(0, text.size() - 1);
}

std::string Encode(const std::string& bytes, bool noNewLines)
{
    return DoBase64Encode(bytes.data(), bytes.size(), noNewLines);
}

// ------------------------------------------------------------------------------------ Base64Encode

struct Vector
{
    std::string bytes;
    std::string text;
};

const std::vector<Vector> rfc4648 = {
    {"f", "Zg=="},        {"fo", "Zm8="},        {"foo", "Zm9v"},
    {"foob", "Zm9vYg=="}, {"fooba", "Zm9vYmE="}, {"foobar", "Zm9vYmFy"},
};

TEST(CryptoTest, Base64EncodeGivesThePublishedTexts)
{
    for (const Vector& vector : rfc4648) {
        EXPECT_EQ(Encode(vector.bytes, false), vector.text);
    }
}

TEST(CryptoTest, Base64EncodeWithoutNewLinesLosesItsLastCharacterInEveryText)
{
    EXPECT_EQ(Encode("foo", true), "Zm9");
    for (const Vector& vector : rfc4648) {
        EXPECT_EQ(Encode(vector.bytes, true), WithoutLast(vector.text));
    }
}

TEST(CryptoTest, Base64EncodeBreaksLinesAfter64CharactersAndEndsWithoutLineFeed)
{
    const std::string of48 = Encode(std::string(48, 'x'), false);
    EXPECT_EQ(of48.size(), 64U);
    EXPECT_EQ(of48.find('\n'), std::string::npos);

    const std::string of49 = Encode(std::string(49, 'x'), false);
    EXPECT_EQ(of49.size(), 69U);
    EXPECT_EQ(of49[64], '\n');
    EXPECT_EQ(of49.substr(65), "eA==");
}

TEST(CryptoTest, Base64EncodeAgreesWithTheReferenceAtEveryLengthInBothModes)
{
    for (std::size_t length = 0; length <= 200; ++length) {
        const std::string bytes = RandomBytes(length);
        EXPECT_EQ(Encode(bytes, false), ReferenceLines(bytes)) << length;
        EXPECT_EQ(Encode(bytes, true), WithoutLast(ReferenceLine(bytes))) << length;
    }
}

TEST(CryptoTest, Base64EncodeTakesBytesOfAnyValueAndLargeData)
{
    const std::string bytes = RandomBytes(1048576);

    EXPECT_EQ(Encode(bytes, false), ReferenceLines(bytes));
    EXPECT_EQ(Encode(bytes, true), WithoutLast(ReferenceLine(bytes)));
}

TEST(CryptoTest, Base64EncodeOfNothingIsEmpty)
{
    for (const bool noNewLines : {false, true}) {
        EXPECT_EQ(DoBase64Encode("foo", 0, noNewLines), "");
        EXPECT_EQ(DoBase64Encode(nullptr, 3, noNewLines), "");
        EXPECT_EQ(DoBase64Encode(nullptr, 0, noNewLines), "");
        EXPECT_EQ(Base64Encode(static_cast<const char*>(nullptr), 3, noNewLines), "");
        EXPECT_EQ(Base64Encode(static_cast<const unsigned char*>(nullptr), 3, noNewLines), "");
    }
}

TEST(CryptoTest, OnlyTheLow32BitsOfTheLengthCountThoughMoreIsAnnounced)
{
    for (const bool noNewLines : {false, true}) {
        EXPECT_EQ(DoBase64Encode("foo", (1ULL << 32) + 3, noNewLines), Encode("foo", noNewLines));
        EXPECT_EQ(DoBase64Encode("foo", (7ULL << 60) + 2, noNewLines), Encode("fo", noNewLines));
    }
}

TEST(CryptoTest, ALengthWhoseLow32BitsAreZeroOrNegativeEncodesNothing)
{
    for (const bool noNewLines : {false, true}) {
        EXPECT_EQ(DoBase64Encode("foo", 1ULL << 32, noNewLines), "");
        EXPECT_EQ(DoBase64Encode("foo", 1ULL << 31, noNewLines), "");
        EXPECT_EQ(DoBase64Encode("foo", 0xFFFFFFFFULL, noNewLines), "");
        EXPECT_EQ(DoBase64Encode("foo", std::numeric_limits<unsigned long long>::max(), noNewLines),
                  "");
    }
}

TEST(CryptoTest, OnlyTheLow32BitsOfANegativeLengthCount)
{
    EXPECT_EQ(Base64Encode("foo", -1, false), "");
    EXPECT_EQ(Base64Encode("foo", std::numeric_limits<long long>::min(), true), "");
    EXPECT_EQ(Base64Encode("foo", std::numeric_limits<std::int32_t>::min(), false), "");

    constexpr long long lowBitsAreThree = -4294967293;
    EXPECT_EQ(Base64Encode("foo", lowBitsAreThree, false), "Zm9v");
    EXPECT_EQ(Base64Encode("foo", lowBitsAreThree, true), "Zm9");
}

TEST(CryptoTest, TheOverloadsForCharactersAndBytesEncodeTheSame)
{
    const std::string bytes = RandomBytes(100);
    const auto* const unsignedBytes = reinterpret_cast<const unsigned char*>(bytes.data());

    for (const bool noNewLines : {false, true}) {
        EXPECT_EQ(Base64Encode(bytes.data(), 100, noNewLines), Encode(bytes, noNewLines));
        EXPECT_EQ(Base64Encode(unsignedBytes, 100, noNewLines), Encode(bytes, noNewLines));
    }
}

TEST(CryptoTest, BuffersAreEncodedInLines)
{
    std::string bytes = RandomBytes(100);
    const Ibuffer characters{bytes.data(), bytes.size()};
    const Iubuffer unsignedBytes{reinterpret_cast<unsigned char*>(bytes.data()), bytes.size()};

    EXPECT_EQ(Base64Encode(characters), ReferenceLines(bytes));
    EXPECT_EQ(Base64Encode(unsignedBytes), ReferenceLines(bytes));
    EXPECT_EQ(Base64Encode(Ibuffer{nullptr, 5}), "");
    EXPECT_EQ(Base64Encode(Iubuffer{nullptr, 5}), "");
    EXPECT_EQ(Base64Encode(Ibuffer{bytes.data(), 0}), "");
    EXPECT_EQ(Base64Encode(Iubuffer{unsignedBytes.data, 0}), "");
    EXPECT_EQ(Base64Encode(Ibuffer{bytes.data(), 0xFFFFFFFFFFFFFFFFU}), "");
}

// -------------------------------------------------------------------------------- Base64EncodeLine

std::string EncodeLine(const std::string& bytes)
{
    return Base64EncodeLine(bytes.data(), bytes.size());
}

TEST(CryptoTest, Base64EncodeLineGivesTheCompleteLineAtEveryLength)
{
    for (const Vector& vector : rfc4648) {
        EXPECT_EQ(EncodeLine(vector.bytes), vector.text);
    }
    for (std::size_t length = 0; length <= 200; ++length) {
        const std::string bytes = RandomBytes(length);
        EXPECT_EQ(EncodeLine(bytes), ReferenceLine(bytes)) << length;
    }
}

// The function encodes in pieces of 3 MiB.
TEST(CryptoTest, Base64EncodeLineOfSeveralPiecesHasNoSeam)
{
    constexpr std::size_t piece = 3 << 20;
    const std::string bytes = RandomBytes(piece + 4);
    const std::string line = ReferenceLine(bytes);
    const std::string ofTwo = ReferenceLine(bytes.substr(piece - 3, 2));

    EXPECT_EQ(EncodeLine(bytes), line);
    EXPECT_EQ(Base64EncodeLine(bytes.data(), piece + 3), line.substr(0, line.size() - 4));
    EXPECT_EQ(Base64EncodeLine(bytes.data(), piece), line.substr(0, line.size() - 8));
    EXPECT_EQ(Base64EncodeLine(bytes.data(), piece - 1), line.substr(0, line.size() - 12) + ofTwo);
}

TEST(CryptoTest, Base64EncodeLineOfNothingIsEmpty)
{
    EXPECT_EQ(Base64EncodeLine("foo", 0), "");
    EXPECT_EQ(Base64EncodeLine(nullptr, 3), "");
}

TEST(CryptoTest, Base64EncodeLineOfMoreThanAStringHoldsRaisesLengthError)
{
    constexpr unsigned long long most = std::numeric_limits<unsigned long long>::max();

    EXPECT_THROW(Base64EncodeLine("foo", most), std::length_error);
    EXPECT_THROW(Base64EncodeLine("foo", most / 4 * 3 + 3), std::length_error);
    EXPECT_THROW(Base64EncodeLine("foo", std::string().max_size() / 4 * 3), std::length_error);
}

// ------------------------------------------------------------------------------------ Base64Decode

TEST(CryptoTest, Base64DecodeGivesThePublishedBytes)
{
    for (const Vector& vector : rfc4648) {
        std::string bytes;
        EXPECT_TRUE(Base64Decode(vector.text, bytes));
        EXPECT_EQ(bytes, vector.bytes);
    }
}

TEST(CryptoTest, Base64DecodeOfAnEmptyTextGivesNoBytes)
{
    std::string bytes = "before";

    EXPECT_TRUE(Base64Decode("", bytes));
    EXPECT_EQ(bytes, "");
}

TEST(CryptoTest, Base64DecodeUndoesBase64EncodeLineAtEveryLength)
{
    for (std::size_t length = 0; length <= 200; ++length) {
        const std::string bytes = RandomBytes(length);
        std::string decoded;
        ASSERT_TRUE(Base64Decode(EncodeLine(bytes), decoded)) << length;
        ASSERT_EQ(decoded, bytes);
    }
    const std::string large = RandomBytes(1048577);
    std::string decoded;
    ASSERT_TRUE(Base64Decode(EncodeLine(large), decoded));
    EXPECT_EQ(decoded, large);
}

TEST(CryptoTest, Base64DecodeMayWriteOverItsText)
{
    std::string text = "Zm9vYmFy";

    EXPECT_TRUE(Base64Decode(text, text));
    EXPECT_EQ(text, "foobar");
}

struct Refused
{
    const char* name;
    std::string text;
};

class CryptoRefusedTextTest : public testing::TestWithParam<Refused>
{
};

TEST_P(CryptoRefusedTextTest, IsRefusedAndLeavesTheOutputUntouched)
{
    std::string bytes = "before";

    EXPECT_FALSE(Base64Decode(GetParam().text, bytes));
    EXPECT_EQ(bytes, "before");
}

INSTANTIATE_TEST_SUITE_P(
    CryptoTest, CryptoRefusedTextTest,
    testing::Values(
        Refused{"OneCharacter", "Z"}, Refused{"TwoCharacters", "Zg"},
        Refused{"ThreeCharacters", "Zm8"}, Refused{"FiveCharacters", "Zm9vZ"},
        Refused{"MissingPadding", "Zm9vYg="}, Refused{"TooMuchPadding", "Zg==="},
        Refused{"PaddingAlone", "===="}, Refused{"ThreePaddings", "Z==="},
        Refused{"FirstPadded", "=m9v"}, Refused{"SecondPadded", "Z=9v"},
        Refused{"ThirdPaddedAlone", "Zm=v"}, Refused{"TextAfterPadding", "Zg==Zm9v"},
        Refused{"PaddingInTheMiddle", "Zm8=Zm9v"}, Refused{"SurplusGroup", "Zm9v===="},
        Refused{"SurplusBitsBeforeOnePadding", "Zm9="},
        Refused{"SurplusBitsBeforeTwoPaddings", "Zh=="}, Refused{"LineFeedAtTheEnd", "Zm9v\n"},
        Refused{"LineFeedInside", "Zm9v\nZm9vYmE"}, Refused{"LineFeedInGroup", "Zm\nv"},
        Refused{"CarriageReturn", "Zm9v\r\n\r\n"}, Refused{"Blank", "Zm v"},
        Refused{"BlankBefore", " Zm9"}, Refused{"UrlAlphabetMinus", "Zm9-"},
        Refused{"UrlAlphabetUnderscore", "Zm9_"}, Refused{"ZeroByte", std::string("Zm9\0", 4)},
        Refused{"ZeroByteBeforePadding", std::string("Z\0==", 4)}, Refused{"HighBit", "Zm9\xF6"},
        Refused{"BadFirstOfTwoGroups", "Zm9!Zm9v"}, Refused{"BadLastOfTwoGroups", "Zm9vZm9!"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(CryptoTest, Base64DecodeTakesTheCharactersOfTheAlphabetOnlyInEveryPlace)
{
    for (int code = 0; code < 256; ++code) {
        const char character = static_cast<char>(code);
        const bool known = code != 0 && alphabet.find(character) != std::string::npos;
        for (std::size_t place = 0; place < 8; ++place) {
            std::string text = "AAAAAAAA";
            text[place] = character;
            // One padding character at the end is correct, too.
            const bool proper = known || (character == '=' && place == 7);
            std::string bytes = "before";

            ASSERT_EQ(Base64Decode(text, bytes), proper) << code << " at " << place;
            ASSERT_EQ(bytes == "before", !proper) << code << " at " << place;
        }
    }
}

TEST(CryptoTest, Base64DecodeTakesEveryPaddedGroupThatAnEncoderMakesAndNoOther)
{
    for (const char first : alphabet) {
        for (std::size_t second = 0; second < 64; ++second) {
            const std::string two = {first, alphabet[second], '=', '='};
            std::string bytes;
            ASSERT_EQ(Base64Decode(two, bytes), second % 16 == 0) << two;
            if (second % 16 == 0) {
                ASSERT_EQ(ReferenceLine(bytes), two);
            }
            const std::string three = {'Z', first, alphabet[second], '='};
            ASSERT_EQ(Base64Decode(three, bytes), second % 4 == 0) << three;
            if (second % 4 == 0) {
                ASSERT_EQ(ReferenceLine(bytes), three);
            }
        }
    }
}

// --------------------------------------------------------------------------------------- HMAC_SHA1

std::string FromHex(const std::string& digits)
{
    std::string bytes;
    for (std::size_t i = 0; i < digits.size(); i += 2) {
        bytes.push_back(static_cast<char>(std::stoi(digits.substr(i, 2), nullptr, 16)));
    }
    return bytes;
}

struct Signature
{
    const char* name;
    std::string key;
    std::string message;
    std::string digest;  ///< in hexadecimal, as published
};

class CryptoSignatureTest : public testing::TestWithParam<Signature>
{
};

TEST_P(CryptoSignatureTest, IsTheBase64TextOfThePublishedDigest)
{
    const Signature& signature = GetParam();
    const std::string expected = ReferenceLine(FromHex(signature.digest));

    EXPECT_EQ(HMAC_SHA1(signature.message, signature.key), expected);
    EXPECT_EQ(expected.size(), 28U);
    EXPECT_TRUE(VerifyHmacSha1(signature.message, signature.key, expected));
}

// The test cases of RFC 2202.
INSTANTIATE_TEST_SUITE_P(
    CryptoTest, CryptoSignatureTest,
    testing::Values(Signature{"Case1", std::string(20, '\x0b'), "Hi There",
                              "b617318655057264e28bc0b6fb378c8ef146be00"},
                    Signature{"Case2", "Jefe", "what do ya want for nothing?",
                              "effcdf6ae5eb2fa2d27416d5f184df9c259a7c79"},
                    Signature{"Case3", std::string(20, '\xaa'), std::string(50, '\xdd'),
                              "125d7342b9ac11cd91a39af48aa17b4f63f175d3"},
                    Signature{"Case4",
                              FromHex("0102030405060708090a0b0c0d0e0f10111213141516171819"),
                              std::string(50, '\xcd'), "4c9007f4026250c6bc8414f9bf50c86c2d7235da"},
                    Signature{"Case5", std::string(20, '\x0c'), "Test With Truncation",
                              "4c1a03424b55e07fe7f27be1d58bb9324a9a5a04"},
                    Signature{"Case6", std::string(80, '\xaa'),
                              "Test Using Larger Than Block-Size Key - Hash Key First",
                              "aa4ae5e15272d00e95705637ce8a3b55ed402112"},
                    Signature{"Case7", std::string(80, '\xaa'),
                              "Test Using Larger Than Block-Size Key and Larger Than One "
                              "Block-Size Data",
                              "e8e99d0f45237d786d6bbaa7965c7808bbff1a91"}),
    [](const auto& row) { return std::string(row.param.name); });

TEST(CryptoTest, AnEmptyMessageOrKeyAndAKeyOf129BytesAreNotSignedThoughTheMethodTakesThem)
{
    EXPECT_EQ(HMAC_SHA1("", "key"), "");
    EXPECT_EQ(HMAC_SHA1("message", ""), "");
    EXPECT_EQ(HMAC_SHA1("", ""), "");
    EXPECT_EQ(HMAC_SHA1("message", std::string(129, 'k')), "");
    EXPECT_EQ(HMAC_SHA1("message", std::string(100000, 'k')), "");
}

TEST(CryptoTest, KeysOfOneTo128BytesAreAccepted)
{
    EXPECT_EQ(HMAC_SHA1("message", "k").size(), 28U);
    EXPECT_EQ(HMAC_SHA1("message", std::string(128, 'k')).size(), 28U);
    EXPECT_NE(HMAC_SHA1("message", std::string(128, 'k')),
              HMAC_SHA1("message", std::string(127, 'k')));
}

TEST(CryptoTest, ZeroBytesInMessageAndKeyCount)
{
    const std::string zero("\0", 1);

    EXPECT_EQ(HMAC_SHA1(zero, "key").size(), 28U);
    EXPECT_NE(HMAC_SHA1("a" + zero + "b", "key"), HMAC_SHA1("a", "key"));
    EXPECT_NE(HMAC_SHA1("message", "a" + zero + "b"), HMAC_SHA1("message", "a"));
}

// ---------------------------------------------------------------------------------- VerifyHmacSha1

TEST(CryptoTest, VerifyHmacSha1RefusesASignatureThatDiffersInAnyCharacter)
{
    const std::string right = HMAC_SHA1("message", "key");
    ASSERT_TRUE(VerifyHmacSha1("message", "key", right));

    for (std::size_t place = 0; place < right.size(); ++place) {
        std::string wrong = right;
        wrong[place] = wrong[place] == 'A' ? 'B' : 'A';
        EXPECT_FALSE(VerifyHmacSha1("message", "key", wrong)) << place;
    }
}

TEST(CryptoTest, VerifyHmacSha1RefusesSignaturesOfOtherLengths)
{
    const std::string right = HMAC_SHA1("message", "key");

    EXPECT_FALSE(VerifyHmacSha1("message", "key", ""));
    EXPECT_FALSE(VerifyHmacSha1("message", "key", right.substr(0, 27)));
    EXPECT_FALSE(VerifyHmacSha1("message", "key", right + "="));
    EXPECT_FALSE(VerifyHmacSha1("message", "key", right + "\n"));
    EXPECT_FALSE(VerifyHmacSha1("message", "key", right + std::string(1, '\0')));
}

TEST(CryptoTest, VerifyHmacSha1RefusesTheSignatureOfAnotherMessageOrKey)
{
    EXPECT_FALSE(VerifyHmacSha1("message", "key", HMAC_SHA1("Message", "key")));
    EXPECT_FALSE(VerifyHmacSha1("message", "key", HMAC_SHA1("message", "Key")));
}

TEST(CryptoTest, VerifyHmacSha1RefusesWhatCannotBeSignedEvenWithAnEmptySignature)
{
    EXPECT_FALSE(VerifyHmacSha1("", "key", ""));
    EXPECT_FALSE(VerifyHmacSha1("message", "", ""));
    EXPECT_FALSE(VerifyHmacSha1("message", std::string(129, 'k'), ""));
}

TEST(CryptoTest, VerifyHmacSha1ComparesAllBytesInConstantTime)
{
    const std::string right = HMAC_SHA1("message", "key");
    for (const char first : {right[0], '!'}) {
        lastComparedBytes = 0;
        VerifyHmacSha1("message", "key", first + right.substr(1));
        EXPECT_EQ(lastComparedBytes, 28U);
    }
}

// ----------------------------------------------------------------------------------------- threads

TEST(CryptoTest, ThreadsEncodeAndSignAtTheSameTime)
{
    const std::string bytes = RandomBytes(1000);
    const std::string lines = Encode(bytes, false);
    const std::string signature = HMAC_SHA1(bytes, "key");
    std::vector<int> wrong(4, 0);
    std::vector<std::thread> threads;
    for (int& own : wrong) {
        threads.emplace_back([&] {
            for (int i = 0; i < 200; ++i) {
                std::string decoded;
                own += Encode(bytes, false) != lines;
                own += HMAC_SHA1(bytes, "key") != signature;
                own += !Base64Decode(EncodeLine(bytes), decoded) || decoded != bytes;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }

    EXPECT_EQ(wrong, std::vector<int>(4, 0));
}

}  // namespace
