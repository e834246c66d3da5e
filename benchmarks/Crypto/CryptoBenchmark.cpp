// What does the library add to libcrypto? Encoding and signing against the same calls made by hand,
// and against libcrypto's one-shot encoder. Each rate is message bytes per second.
#include "Tolvex/Crypto/Crypto.h"

#include <array>
#include <cstddef>
#include <string>

#include <benchmark/benchmark.h>
#include <openssl/bio.h>
#include <openssl/buffer.h>
#include <openssl/evp.h>
#include <openssl/hmac.h>

namespace {

const std::string key(20, 'k');

std::string Message(const benchmark::State& state)
{
    std::string message(static_cast<std::size_t>(state.range(0)), ' ');
    for (std::size_t i = 0; i < message.size(); ++i) {
        message[i] = static_cast<char>(i * 131 >> 3);
    }
    return message;
}

/// The chain of calls that DoBase64Encode() stands for.
std::string EncodeByHand(const void* data, std::size_t length, bool noNewLines)
{
    BIO* const filter = BIO_new(BIO_f_base64());
    if (noNewLines) {
        BIO_set_flags(filter, BIO_FLAGS_BASE64_NO_NL);
    }
    BIO* const chain = BIO_push(filter, BIO_new(BIO_s_mem()));
    BIO_write(chain, data, static_cast<int>(length));
    (void)BIO_flush(chain);
    BUF_MEM* text = nullptr;
    BIO_get_mem_ptr(chain, &text);
    std::string result(text->data, text->length - 1);
    BIO_free_all(chain);
    return result;
}

template <typename Work>
void Run(benchmark::State& state, Work work)
{
    const std::string message = Message(state);
    for (auto _ : state) {
        benchmark::DoNotOptimize(work(message));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void EncodeInLines(benchmark::State& state)
{
    Run(state, [](const std::string& message) {
        return Tolvex::Crypto::DoBase64Encode(message.data(), message.size(), false);
    });
}

void EncodeInLinesByHand(benchmark::State& state)
{
    Run(state, [](const std::string& message) {
        return EncodeByHand(message.data(), message.size(), false);
    });
}

void EncodeWithoutNewLines(benchmark::State& state)
{
    Run(state, [](const std::string& message) {
        return Tolvex::Crypto::DoBase64Encode(message.data(), message.size(), true);
    });
}

void EncodeWithoutNewLinesByHand(benchmark::State& state)
{
    Run(state, [](const std::string& message) {
        return EncodeByHand(message.data(), message.size(), true);
    });
}

void EncodeLine(benchmark::State& state)
{
    Run(state, [](const std::string& message) {
        return Tolvex::Crypto::Base64EncodeLine(message.data(), message.size());
    });
}

void EncodeLineByOneShot(benchmark::State& state)
{
    Run(state, [](const std::string& message) {
        std::string text((message.size() + 2) / 3 * 4, '\0');
        EVP_EncodeBlock(reinterpret_cast<unsigned char*>(text.data()),
                        reinterpret_cast<const unsigned char*>(message.data()),
                        static_cast<int>(message.size()));
        return text;
    });
}

void DecodeLine(benchmark::State& state)
{
    const std::string message = Message(state);
    const std::string text = Tolvex::Crypto::Base64EncodeLine(message.data(), message.size());
    std::string bytes;
    for (auto _ : state) {
        benchmark::DoNotOptimize(Tolvex::Crypto::Base64Decode(text, bytes));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void DecodeLineByOneShot(benchmark::State& state)
{
    const std::string message = Message(state);
    const std::string text = Tolvex::Crypto::Base64EncodeLine(message.data(), message.size());
    for (auto _ : state) {
        std::string bytes(text.size() / 4 * 3, '\0');
        benchmark::DoNotOptimize(EVP_DecodeBlock(
            reinterpret_cast<unsigned char*>(bytes.data()),
            reinterpret_cast<const unsigned char*>(text.data()), static_cast<int>(text.size())));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

void Sign(benchmark::State& state)
{
    Run(state, [](const std::string& message) { return Tolvex::Crypto::HMAC_SHA1(message, key); });
}

void SignByHand(benchmark::State& state)
{
    Run(state, [](const std::string& message) {
        std::array<unsigned char, EVP_MAX_MD_SIZE> digest;
        unsigned int length = 0;
        HMAC(EVP_sha1(), key.data(), static_cast<int>(key.size()),
             reinterpret_cast<const unsigned char*>(message.data()), message.size(), digest.data(),
             &length);
        return EncodeByHand(digest.data(), length, false);
    });
}

void Verify(benchmark::State& state)
{
    const std::string message = Message(state);
    const std::string signature = Tolvex::Crypto::HMAC_SHA1(message, key);
    for (auto _ : state) {
        benchmark::DoNotOptimize(Tolvex::Crypto::VerifyHmacSha1(message, key, signature));
    }
    state.SetBytesProcessed(state.iterations() * state.range(0));
}

/// 20 bytes, 1 KB and 1 MB.
void Sizes(benchmark::internal::Benchmark* work)
{
    work->Arg(20)->Arg(1000)->Arg(1000000);
}

// Bar, from 1 KB up: within 10 percent of the same calls by hand.
BENCHMARK(EncodeInLines)->Apply(Sizes);
BENCHMARK(EncodeInLinesByHand)->Apply(Sizes);
BENCHMARK(EncodeWithoutNewLines)->Apply(Sizes);
BENCHMARK(EncodeWithoutNewLinesByHand)->Apply(Sizes);
BENCHMARK(EncodeLine)->Apply(Sizes);
BENCHMARK(EncodeLineByOneShot)->Apply(Sizes);
BENCHMARK(DecodeLine)->Apply(Sizes);
BENCHMARK(DecodeLineByOneShot)->Apply(Sizes);
BENCHMARK(Sign)->Apply(Sizes);
BENCHMARK(SignByHand)->Apply(Sizes);
BENCHMARK(Verify)->Apply(Sizes);

}  // namespace
