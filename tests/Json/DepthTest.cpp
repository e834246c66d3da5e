#include <functional>
#include <pthread.h>
#include <stdexcept>
#include <string>
#include <utility>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/ParseError.h"
#include "Tolvex/Json/Standard.h"

#include "tests/Support/Pace.h"

namespace {

using namespace Tolvex::Json;

constexpr std::size_t stackBytes = 524288;
const std::size_t levels = Tolvex::Support::Scaled(1000000);

void* Call(void* work)
{
    (*static_cast<std::function<void()>*>(work))();
    return nullptr;
}

/// Runs the work on a thread whose stack is as large as those of the library's threads.
void RunOnSmallStack(std::function<void()> work)
{
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    ASSERT_EQ(pthread_attr_setstacksize(&attributes, stackBytes), 0);
    pthread_t thread{};
    ASSERT_EQ(pthread_create(&thread, &attributes, &Call, &work), 0);
    pthread_join(thread, nullptr);
    pthread_attr_destroy(&attributes);
}

std::string Repeat(const std::string& text, std::size_t count)
{
    std::string repeated;
    repeated.reserve(text.size() * count);
    for (std::size_t i = 0; i < count; ++i) {
        repeated += text;
    }
    return repeated;
}

/// Uses every operation on a deep document.
void Exercise(const std::string& text)
{
    Value value = Deserialize(text);
    ASSERT_NE(value.GetType(), NullVal);

    Value copy(value);
    EXPECT_TRUE(copy == value);
    EXPECT_TRUE(Serialize(copy) == text);
    EXPECT_TRUE(SerializeStandard(copy) == text);

    Value moved(std::move(copy));
    Value assigned;
    assigned = std::move(moved);
    EXPECT_TRUE(assigned == value);
    value = assigned;
    assigned = 5;  // the document stays in it, inactive
}

TEST(DepthTest, DeepArraysNeedNoStack)
{
    RunOnSmallStack([] { Exercise(Repeat("[", levels) + Repeat("]", levels)); });
}

TEST(DepthTest, DeepObjectsNeedNoStack)
{
    RunOnSmallStack([] { Exercise(Repeat(R"({"a":)", levels) + "1" + Repeat("}", levels)); });
}

TEST(DepthTest, DeepMixturesWithSiblingsNeedNoStack)
{
    RunOnSmallStack([] {
        Exercise(Repeat(R"([1,{"a":[],"b":)", levels / 4) + "1" +
                 Repeat(R"(,"c":{}},"x"])", levels / 4));
    });
}

TEST(DepthTest, DeepMalformedTextIsRefusedWithoutStack)
{
    RunOnSmallStack([] {
        EXPECT_THROW((void)Deserialize(Repeat("[", levels) + "]"), std::out_of_range);
        EXPECT_EQ(Deserialize(Repeat("[", levels) + "}" + Repeat("]", levels)).GetType(), NullVal);
        EXPECT_EQ(Deserialize(Repeat("[", levels) + ".5" + Repeat("]", levels)).GetType(),
                  ArrayVal);
    });
}

TEST(DepthTest, FaultsOfDeepTextAreLocatedWithoutStack)
{
    RunOnSmallStack([] {
        ParseError error;
        EXPECT_THROW((void)Deserialize(Repeat("[", levels) + "]", error), std::out_of_range);
        EXPECT_EQ(error.offset, 1U);
        EXPECT_EQ(Deserialize(Repeat("[", levels) + ".5" + Repeat("]", levels), error).GetType(),
                  ArrayVal);
        EXPECT_EQ(error.offset, levels);
        EXPECT_EQ(Deserialize(Repeat("{\"a\":", levels), error).GetType(), NullVal);
        EXPECT_EQ(error.offset, 5 * levels);
    });
}

TEST(DepthTest, DeepInactiveContainersAreDestroyedWithoutStack)
{
    RunOnSmallStack([] {
        Value value;
        for (std::size_t i = 0; i < levels / 4; ++i) {
            Object outer;
            Value& member = outer["k"];
            member = std::move(value);
            value = Value(std::move(outer));
        }
        value.Clear();  // what it holds stays in it
        EXPECT_EQ(value.size(), 1);
    });
}

}  // namespace
