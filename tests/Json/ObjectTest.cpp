#include <stdexcept>
#include <string>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"

namespace {

using namespace Tolvex::Json;

Object MakeObject(const std::vector<std::string>& keys)
{
    Object object;
    int number = 0;
    for (const std::string& key : keys) {
        object[key] = number++;
    }
    return object;
}

TEST(ObjectTest, NewObjectIsEmpty)
{
    const Object object;

    EXPECT_EQ(object.size(), 0U);
    EXPECT_EQ(object.begin(), object.end());
    EXPECT_FALSE(object.HasKey(""));
}

TEST(ObjectTest, KeysComeInByteOrder)
{
    const std::string nul(1, '\0');
    const Object object = MakeObject({"a", "ab", "B", "_", "\xc3\xa9", "", nul});
    std::vector<std::string> keys;

    for (const auto& member : object) {
        keys.push_back(member.first);
    }

    EXPECT_EQ(keys, (std::vector<std::string>{"", nul, "B", "_", "a", "ab", "\xc3\xa9"}));
}

TEST(ObjectTest, AbsentKeyIsInsertedAsNull)
{
    Object object;

    EXPECT_EQ(object["a"].GetType(), NullVal);
    EXPECT_EQ(object[std::string("b")].GetType(), NullVal);

    EXPECT_EQ(object.size(), 2U);
    EXPECT_EQ(std::as_const(object)["a"].GetType(), NullVal);
    EXPECT_EQ(std::as_const(object)[std::string("b")].GetType(), NullVal);
}

TEST(ObjectTest, FindGivesTheMemberOrTheEnd)
{
    Object object = MakeObject({"a", "b"});

    ASSERT_NE(object.find("b"), object.end());
    EXPECT_EQ(object.find("b")->second.ToInt(), 1);
    ASSERT_NE(std::as_const(object).find("b"), std::as_const(object).end());
    EXPECT_EQ(std::as_const(object).find("b")->second.ToInt(), 1);
    EXPECT_EQ(std::as_const(object).find("c"), std::as_const(object).end());
    EXPECT_EQ(object.find("c"), object.end());
}

TEST(ObjectTest, HasKeysGivesTheIndexOfTheFirstAbsentKey)
{
    const Object object = MakeObject({"a", "c"});
    const char* keys[] = {"a", "b", "c"};

    EXPECT_EQ(object.HasKeys(std::vector<std::string>{"a", "b", "c"}), 1);
    EXPECT_EQ(object.HasKeys(std::vector<std::string>{"c", "a"}), -1);
    EXPECT_EQ(object.HasKeys(std::vector<std::string>()), -1);
    EXPECT_EQ(object.HasKeys(keys, 3), 1);
    EXPECT_EQ(object.HasKeys(keys, 1), -1);
    EXPECT_EQ(object.HasKeys(keys, 0), -1);
    EXPECT_EQ(object.HasKeys(keys, -1), -1);
    EXPECT_EQ(object.HasKeys(nullptr, 0), -1);
    EXPECT_EQ(Value(object).HasKeys(keys, 3), 1);
}

TEST(ObjectTest, NullPointerAmongTheKeysThrows)
{
    const Object object = MakeObject({"a"});
    const char* keys[] = {"a", nullptr};
    const char* absentFirst[] = {"b", nullptr};

    EXPECT_THROW((void)object.HasKeys(keys, 2), std::logic_error);
    EXPECT_EQ(object.HasKeys(keys, 1), -1);
    EXPECT_EQ(object.HasKeys(absentFirst, 2), 0);
}

TEST(ObjectTest, RemoveKeyTellsWhetherThereWasOne)
{
    Object object = MakeObject({"a", "b"});

    EXPECT_FALSE(object.RemoveKey("c"));
    EXPECT_EQ(object.size(), 2U);
    EXPECT_TRUE(object.RemoveKey("a"));
    EXPECT_FALSE(object.RemoveKey("a"));
    EXPECT_EQ(object.size(), 1U);
}

TEST(ObjectTest, CopiesAreDeep)
{
    Object object;
    object["k"] = MakeObject({"a"});

    Object copy(object);
    copy["k"]["a"] = "changed";
    Object assigned;
    assigned = object;
    assigned["k"]["b"] = "added";

    EXPECT_EQ(Serialize(object), R"({"k":{"a":0}})");
    EXPECT_EQ(Serialize(copy), R"({"k":{"a":"changed"}})");
    EXPECT_EQ(Serialize(assigned), R"({"k":{"a":0,"b":"added"}})");
}

TEST(ObjectTest, AssignmentToItselfOrFromInsideItselfIsSafe)
{
    Object object;
    object["k"] = MakeObject({"a"});
    Object& same = object;

    object = same;
    object = std::move(same);
    EXPECT_EQ(Serialize(object), R"({"k":{"a":0}})");

    object = object["k"].AsObject();
    EXPECT_EQ(Serialize(object), R"({"a":0})");
}

TEST(ObjectTest, MoveTakesTheMembersAndLeavesNone)
{
    Object object = MakeObject({"a"});
    const Value* const member = &object["a"];

    Object moved(std::move(object));
    Object assigned = MakeObject({"b"});
    assigned = std::move(moved);

    EXPECT_EQ(&assigned["a"], member);
    EXPECT_EQ(object.size(), 0U);  // NOLINT(bugprone-use-after-move): the header promises it
    EXPECT_EQ(moved.size(), 0U);   // NOLINT(bugprone-use-after-move)
}

TEST(ObjectTest, ClearErasesAllMembers)
{
    Object object = MakeObject({"a", "b"});

    object.Clear();
    object.Clear();

    EXPECT_EQ(object.size(), 0U);
}

}  // namespace
