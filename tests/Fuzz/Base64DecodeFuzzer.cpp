// Whatever Base64Decode() accepts is exactly what Base64EncodeLine() makes of the result, and what
// it refuses leaves the output alone. The bytes of the input make the way there and back as well.
#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <string>

#include "Tolvex/Crypto/Crypto.h"

namespace {

void Require(bool condition)
{
    if (!condition) {
        std::abort();
    }
}

void DecodeText(const std::string& text)
{
    std::string bytes = "before";
    if (Tolvex::Crypto::Base64Decode(text, bytes)) {
        Require(Tolvex::Crypto::Base64EncodeLine(bytes.data(), bytes.size()) == text);
    } else {
        Require(bytes == "before");
    }
}

void EncodeAndDecode(const std::string& bytes)
{
    const std::string line = Tolvex::Crypto::Base64EncodeLine(bytes.data(), bytes.size());
    std::string decoded;
    Require(Tolvex::Crypto::Base64Decode(line, decoded) && decoded == bytes);

    std::string lines = Tolvex::Crypto::DoBase64Encode(bytes.data(), bytes.size(), false);
    lines.erase(std::remove(lines.begin(), lines.end(), '\n'), lines.end());
    Require(lines == line);
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size)
{
    const std::string input(reinterpret_cast<const char*>(data), size);
    DecodeText(input);
    EncodeAndDecode(input);
    return 0;
}
