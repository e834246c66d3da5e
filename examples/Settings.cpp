// Reads settings that a person edits, says where they are malformed, and reports them to a server
// as standard JSON.
#include <exception>
#include <iostream>
#include <string>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/ParseError.h"
#include "Tolvex/Json/Standard.h"

namespace {

namespace Json = Tolvex::Json;

void Load(const std::string& text)
{
    Json::ParseError error;
    Json::Value settings;
    try {
        settings = Json::Deserialize(text, error);
    } catch (const std::exception&) {
        // Some faults are thrown, too. The error has the reason of each.
    }
    if (error.reason.empty()) {
        std::cout << "loaded: " << Json::SerializeStandard(settings) << '\n';
    } else {
        std::cout << "line " << error.line << ", column " << error.column << ": " << error.reason
                  << '\n';
    }
}

}  // namespace

int main()
{
    Load("{\n    \"driver\": \"J. \\\"Joe\\\" Doe\",\n    \"limit\": 13.9\n}\n");
    Load("{\n    \"driver\": \"Joe\",\n    \"limit\": fast\n}\n");
    Load("{\n    \"limit\": 13.9\n    \"driver\": \"Joe\"\n}\n");
    return 0;
}
