// Several threads may use different documents at once, and share one that no thread changes.

#include <string>
#include <thread>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/ParseError.h"
#include "Tolvex/Json/Standard.h"

namespace {

using namespace Tolvex::Json;

constexpr int threadCount = 4;
constexpr int rounds = 200;
constexpr const char* text =
    R"({"a":[1,2.5,-1e300,0x1.8p3,{"b":null}],"s":"x\\n\\u0041y","t":true})";

template <typename Work>
void RunOnThreads(Work work)
{
    std::vector<std::thread> threads;
    for (int i = 0; i < threadCount; ++i) {
        threads.emplace_back([work] {
            for (int round = 0; round < rounds; ++round) {
                work();
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
}

TEST(ConcurrencyTest, TextsAreReadAtTheSameTime)
{
    const std::string shared = text;
    const Value expected = Deserialize(shared);

    RunOnThreads([&] {
        ParseError error;
        EXPECT_TRUE(Deserialize(shared) == expected);
        EXPECT_TRUE(Deserialize(shared, error) == expected);
    });
}

TEST(ConcurrencyTest, ValueThatNoThreadChangesIsWrittenComparedAndCopiedAtTheSameTime)
{
    const Value shared = Deserialize(text);
    const std::string written = Serialize(shared);
    const std::string standard = SerializeStandard(shared);

    RunOnThreads([&] {
        const Value copy(shared);
        EXPECT_TRUE(copy == shared);
        EXPECT_EQ(Serialize(shared), written);
        EXPECT_EQ(SerializeStandard(shared), standard);
        EXPECT_EQ(shared["a"][1].ToDouble(), 2.5);
        EXPECT_TRUE(shared.AsObject().HasKey("s"));
    });
}

TEST(ConcurrencyTest, DocumentsAreBuiltAtTheSameTime)
{
    const Value part = Deserialize(text);

    RunOnThreads([&] {
        Object object;
        object["part"] = Value(part);
        Value value(std::move(object));
        value["part"]["a"][4]["b"] = Value(value);
        EXPECT_TRUE(value["part"]["a"][4]["b"]["part"] == part);
    });
}

}  // namespace
