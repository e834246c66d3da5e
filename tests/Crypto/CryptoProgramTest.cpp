// Compares with the results of the openssl program for the same random bytes.
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <random>
#include <string>
#include <unistd.h>

#include <gtest/gtest.h>

#include "Tolvex/Crypto/Crypto.h"

namespace {

/// Standard output of a shell command.
std::string OutputOf(const std::string& command)
{
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> stream(popen(command.c_str(), "r"),
                                                                 pclose);
    std::string output;
    for (int character = 0; stream != nullptr && (character = std::fgetc(stream.get())) != EOF;) {
        output.push_back(static_cast<char>(character));
    }
    return output;
}

std::string ToHexDigits(const std::string& bytes)
{
    std::string digits;
    for (const char byte : bytes) {
        digits.push_back("0123456789abcdef"[static_cast<unsigned char>(byte) >> 4]);
        digits.push_back("0123456789abcdef"[static_cast<unsigned char>(byte) & 15]);
    }
    return digits;
}

class CryptoProgramTest : public testing::Test
{
protected:
    void SetUp() override
    {
        if (OutputOf("openssl version 2>/dev/null").empty()) {
            GTEST_SKIP() << "the openssl program is not installed";
        }
        const int file = mkstemp(path.data());
        ASSERT_GE(file, 0);
        close(file);
    }

    void TearDown() override { std::remove(path.c_str()); }

    /// @return random bytes, which it also writes to the file.
    std::string WriteRandomBytes(std::size_t length)
    {
        std::string bytes;
        while (bytes.size() < length) {
            bytes.push_back(static_cast<char>(generator() >> 24));
        }
        std::ofstream(path, std::ios::binary) << bytes;
        return bytes;
    }

    std::string path = "/tmp/CryptoProgramTest.XXXXXX";
    std::mt19937 generator{20210304};
};

TEST_F(CryptoProgramTest, EncodesTheSameLinesAndTheSameLine)
{
    for (const std::size_t length : {1U, 47U, 48U, 49U, 100U, 1000U, 65537U}) {
        const std::string bytes = WriteRandomBytes(length);
        const std::string lines = OutputOf("openssl base64 -in " + path);
        const std::string line = OutputOf("openssl base64 -A -in " + path);

        EXPECT_EQ(Tolvex::Crypto::DoBase64Encode(bytes.data(), length, false) + "\n", lines);
        EXPECT_EQ(Tolvex::Crypto::Base64EncodeLine(bytes.data(), length), line);
        EXPECT_EQ(Tolvex::Crypto::DoBase64Encode(bytes.data(), length, true),
                  line.substr(0, line.size() - 1));
    }
}

TEST_F(CryptoProgramTest, MakesTheSameSignatures)
{
    for (const std::size_t keyLength : {1U, 20U, 63U, 64U, 65U, 128U}) {
        const std::string key = WriteRandomBytes(keyLength);
        const std::string message = WriteRandomBytes(100 + 50 * keyLength);
        const std::string signature =
            OutputOf("openssl dgst -sha1 -mac HMAC -macopt hexkey:" + ToHexDigits(key) +
                     " -binary " + path + " | openssl base64 -A");

        EXPECT_EQ(Tolvex::Crypto::HMAC_SHA1(message, key), signature) << keyLength;
    }
}

}  // namespace
