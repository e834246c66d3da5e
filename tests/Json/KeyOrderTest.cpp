// Members end up in byte order, whatever their order in the text, in short objects and in long
// ones.

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <iterator>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"

#include "tests/Json/Documents.h"
#include "tests/Json/Judge.h"

namespace Tolvex::Json {
namespace {

using Keys = std::vector<std::string>;

/// Differing keys in ascending order. Most have their first eight bytes in common with others.
Keys MakeKeys(std::size_t count)
{
    Keys keys;
    for (std::size_t i = 0; i < count; ++i) {
        const std::string number = std::to_string(i);
        keys.push_back((i % 3 == 0 ? "k" : i % 3 == 1 ? "sameprefix" : "\303\244") + number);
    }
    std::sort(keys.begin(), keys.end());
    return keys;
}

std::string TextOf(const Keys& keys)
{
    std::string text;
    for (std::size_t i = 0; i < keys.size(); ++i) {
        text += (i == 0 ? "\"" : ",\"") + keys[i] + "\":" + std::to_string(i);
    }
    return "{" + text + "}";
}

Keys KeysOf(const Object& object)
{
    Keys keys;
    std::transform(object.begin(), object.end(), std::back_inserter(keys),
                   [](const auto& member) { return member.first; });
    return keys;
}

void Shuffle(Keys& keys, std::uint64_t seed)
{
    Judge::Random random(seed);
    for (std::size_t i = keys.size(); i > 1; --i) {
        std::swap(keys[i - 1], keys[random.Below(i)]);
    }
}

class KeyOrderTest : public testing::TestWithParam<std::size_t>
{
protected:
    const Keys ascending = MakeKeys(GetParam());
};

TEST_P(KeyOrderTest, AscendingKeysStayAscending)
{
    const Value value = Deserialize(TextOf(ascending));

    EXPECT_EQ(KeysOf(value.AsObject()), ascending);
    EXPECT_EQ(Judge::Complaint(TextOf(ascending)), "");
}

TEST_P(KeyOrderTest, DescendingKeysAreTurnedAround)
{
    const Keys descending(ascending.rbegin(), ascending.rend());
    const Value value = Deserialize(TextOf(descending));

    EXPECT_EQ(KeysOf(value.AsObject()), ascending);
    EXPECT_EQ(Judge::Complaint(TextOf(descending)), "");
}

TEST_P(KeyOrderTest, ShuffledKeysAreSorted)
{
    for (std::uint64_t seed = 1; seed <= 20; ++seed) {
        Keys shuffled = ascending;
        Shuffle(shuffled, seed);
        const Value value = Deserialize(TextOf(shuffled));

        EXPECT_EQ(KeysOf(value.AsObject()), ascending);
        EXPECT_EQ(Judge::Complaint(TextOf(shuffled)), "");
    }
}

TEST_P(KeyOrderTest, RepeatedKeysAreFoundAgainAndTheLastOneWins)
{
    Keys twice = ascending;
    twice.insert(twice.end(), ascending.begin(), ascending.end());
    Shuffle(twice, 1);
    const Value value = Deserialize(TextOf(twice));

    EXPECT_EQ(KeysOf(value.AsObject()), ascending);
    for (std::size_t i = 0; i < twice.size(); ++i) {
        const auto last = std::find(twice.rbegin(), twice.rend(), twice[i]).base() - 1;
        EXPECT_EQ(value[twice[i]].ToInt(), last - twice.begin());
    }
    EXPECT_EQ(Judge::Complaint(TextOf(twice)), "");
}

TEST_P(KeyOrderTest, ObjectsInsideDoNotDisturbTheOrderAround)
{
    Keys shuffled = ascending;
    Shuffle(shuffled, 2);
    std::string inner = TextOf(shuffled);
    std::string text = "{";
    for (const std::string& key : shuffled) {
        text += "\"" + key + "\":" + (key.front() == 'k' ? inner : "[" + inner + "]") + ",";
    }
    text += "\"\177last\":0}";

    const Value value = Deserialize(text);

    EXPECT_EQ(value.size(), static_cast<int>(ascending.size() + 1));
    EXPECT_EQ(Judge::Complaint(text), "");
    EXPECT_EQ(Judge::Complaint("[" + text + "," + inner + "]"), "");
}

TEST_P(KeyOrderTest, MalformedObjectInsideLeavesTheOrderAround)
{
    std::string text = TextOf(ascending);
    text.pop_back();
    text += text.size() > 1 ? "," : "";
    text += R"("broken":{"z":1,"a":x},"aa":1,"zz":{"c":1,"b":2},"ab":2})";

    EXPECT_EQ(Judge::Complaint(text), "");
}

/// Short objects and long ones.
INSTANTIATE_TEST_SUITE_P(Members, KeyOrderTest, testing::Values(0, 1, 2, 31, 32, 33, 34, 64, 100),
                         testing::PrintToStringParamName());

}  // namespace
}  // namespace Tolvex::Json
