#include "examples/dashcam/JsonFile.h"

#include <exception>
#include <fstream>
#include <sstream>
#include <utility>

#include "Tolvex/Json/ParseError.h"

namespace Dashcam {

namespace Json = Tolvex::Json;

Json::Object ReadJsonFile(const std::string& path, std::string& problem)
{
    problem.clear();
    std::ifstream file(path, std::ios::binary);
    std::ostringstream text;
    if (!(text << file.rdbuf())) {
        problem = path + ": cannot be read, or is empty";
        return {};
    }
    Json::ParseError error;
    Json::Value document;
    try {
        document = Json::Deserialize(text.str(), error);
    } catch (const std::exception&) {
        // The error says why.
    }
    if (!error.reason.empty()) {
        problem = path + ':' + std::to_string(error.line) + ':' + std::to_string(error.column) +
                  ": " + error.reason;
        return {};
    }
    if (document.GetType() != Json::ObjectVal) {
        problem = path + ": is no object";
        return {};
    }
    return document.AsObject();
}

Json::Value ToJson(std::int64_t number)
{
    const int narrow = static_cast<int>(number);
    return narrow == number ? Json::Value(narrow) : Json::Value(static_cast<double>(number));
}

}  // namespace Dashcam
