/// @file
/// RapidJSON, as the benchmarks and the counts of instructions use it.
#pragma once

#include <string>

#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>

namespace Tolvex::Benchmarks {

struct Library
{
    static rapidjson::Document Read(const std::string& text)
    {
        rapidjson::Document tree;
        tree.Parse(text.data(), text.size());
        return tree;
    }

    static std::string Write(const rapidjson::Document& tree)
    {
        rapidjson::StringBuffer buffer;
        rapidjson::Writer<rapidjson::StringBuffer> writer(buffer);
        tree.Accept(writer);
        return {buffer.GetString(), buffer.GetSize()};
    }
};

}  // namespace Tolvex::Benchmarks
