// A device signs a request. The server checks the signature and refuses the request after one of
// its bytes has changed.
#include <iostream>
#include <string>

#include "Tolvex/Crypto/Crypto.h"

namespace {

const std::string key = "key that device and server share";

/// The answer of the server to a request.
void Receive(const std::string& request, const std::string& signature)
{
    const bool genuine = Tolvex::Crypto::VerifyHmacSha1(request, key, signature);
    std::cout << request << '\n' << (genuine ? "accepted" : "refused") << '\n';
}

}  // namespace

int main()
{
    const std::string body = "speed=48;lat=48.2082;lon=16.3738";
    const std::string request =
        "POST /v1/events?body=" + Tolvex::Crypto::Base64EncodeLine(body.data(), body.size());
    const std::string signature = Tolvex::Crypto::HMAC_SHA1(request, key);
    std::cout << "Signature: " << signature << "\n\n";

    Receive(request, signature);

    std::string forged = request;
    forged.back() = 'A';
    Receive(forged, signature);
    return 0;
}
