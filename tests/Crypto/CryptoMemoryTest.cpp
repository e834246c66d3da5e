// The results of encoding and signing when libcrypto runs out of memory: its allocations are
// counted, and one after the other fails.
#include <cstdlib>
#include <string>

#include <gtest/gtest.h>
#include <openssl/crypto.h>

#include "Tolvex/Crypto/Crypto.h"

namespace {

long allocationsLeft = -1;  ///< at 0 all further ones fail; negative: none fails

bool Fails()
{
    if (allocationsLeft < 0) {
        return false;
    }
    if (allocationsLeft > 0) {
        --allocationsLeft;
        return false;
    }
    return true;
}

void* Allocate(std::size_t bytes, const char*, int)
{
    return bytes == 0 || Fails() ? nullptr : std::malloc(bytes);
}

void* Reallocate(void* memory, std::size_t bytes, const char*, int)
{
    if (bytes == 0) {
        std::free(memory);
        return nullptr;
    }
    return Fails() ? nullptr : std::realloc(memory, bytes);
}

void Free(void* memory, const char*, int)
{
    std::free(memory);
}

/// Call it before libcrypto's first allocation.
const bool replaced = CRYPTO_set_mem_functions(Allocate, Reallocate, Free) == 1;

/// Runs the work with each allocation in turn as the first to fail. @return how often the result
/// was empty.
template <typename Work>
int FailOneAfterTheOther(const std::string& expected, Work work)
{
    int failures = 0;
    for (long successful = 0; successful < 1000; ++successful) {
        allocationsLeft = successful;
        const std::string text = work();
        const bool failed = allocationsLeft == 0;
        allocationsLeft = -1;

        if (text == expected && !failed) {
            break;
        }
        EXPECT_TRUE(text.empty() || text == expected) << "after " << successful << ": " << text;
        failures += text.empty() ? 1 : 0;
    }
    EXPECT_EQ(work(), expected);  // the failures before have no effect
    return failures;
}

class CryptoMemoryTest : public testing::Test
{
protected:
    void SetUp() override
    {
        ASSERT_TRUE(replaced);
        // libcrypto does not recover from a failure in its first use.
        ASSERT_FALSE(Tolvex::Crypto::HMAC_SHA1("message", "key").empty());
        ASSERT_FALSE(Tolvex::Crypto::DoBase64Encode("foo", 3, false).empty());
    }
};

TEST_F(CryptoMemoryTest, EncodingWithoutMemoryGivesAnEmptyTextNeverAPartOfIt)
{
    const std::string bytes(5000, 'x');
    for (const bool noNewLines : {false, true}) {
        const auto encode = [&] {
            return Tolvex::Crypto::DoBase64Encode(bytes.data(), bytes.size(), noNewLines);
        };
        EXPECT_GT(FailOneAfterTheOther(encode(), encode), 3);
    }
}

TEST_F(CryptoMemoryTest, SigningWithoutMemoryGivesAnEmptyText)
{
    const auto sign = [] { return Tolvex::Crypto::HMAC_SHA1("message", "key"); };

    EXPECT_GT(FailOneAfterTheOther(sign(), sign), 3);
}

TEST_F(CryptoMemoryTest, ASignatureThatCannotBeComputedIsRefused)
{
    const std::string right = Tolvex::Crypto::HMAC_SHA1("message", "key");

    allocationsLeft = 0;
    const bool accepted = Tolvex::Crypto::VerifyHmacSha1("message", "key", right);
    allocationsLeft = -1;

    EXPECT_FALSE(accepted);
    EXPECT_TRUE(Tolvex::Crypto::VerifyHmacSha1("message", "key", right));
}

}  // namespace
