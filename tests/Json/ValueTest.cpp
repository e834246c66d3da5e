#include <cmath>
#include <cstddef>
#include <cstdint>
#include <limits>
#include <map>
#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"
#include "Tolvex/Json/Private/Tree.h"

namespace {

using namespace Tolvex::Json;

constexpr int highest = std::numeric_limits<int>::max();
constexpr int lowest = std::numeric_limits<int>::min();

constexpr const char* numericText = "json mValueType==IsNumeric() required";
constexpr const char* boolText = "json mValueType==BoolVal required";
constexpr const char* stringText = "json mValueType==StringVal required";
constexpr const char* arrayText = "json mValueType==ArrayVal required";
constexpr const char* objectText = "json mValueType==ObjectVal required";

template <typename Call>
std::string ErrorOf(Call call)
{
    try {
        call();
    } catch (const std::runtime_error& error) {
        return error.what();
    }
    return "no exception";
}

Object MakeObject(const std::string& key, const Value& value)
{
    Object object;
    object[key] = value;
    return object;
}

Array MakeArray(const Value& element)
{
    Array array;
    array.push_back(element);
    return array;
}

/// One value of every type, in the order of the types.
std::vector<Value> OneOfEach()
{
    return {Value(),
            Value(std::string("s")),
            Value(1),
            Value::FromFloat(2.5F),
            Value(3.5),
            Value(MakeObject("k", 1)),
            Value(MakeArray(1)),
            Value(true)};
}

/// Whether a value holds no inactive string, object, array or flag: a number on the right shows
/// them.
bool HoldsNothingInactive(Value& value)
{
    const Value number(7);
    value = number;  // makes whatever it holds inactive, and visible to left operands
    return Value("") == value && Value(Object()) == value && Value(Array()) == value &&
           Value(false) == value;
}

/// A number that holds one of everything, inactive.
Value MakeFullNumber()
{
    Value value(MakeObject("old", 1));
    value = MakeArray(2);
    value = std::string("old");
    value = true;
    const Value number(7);
    value = number;
    return value;
}

template <typename Type>
constexpr bool isPlain =
    !std::is_polymorphic_v<Type> && std::is_copy_constructible_v<Type> &&
    std::is_copy_assignable_v<Type> && std::is_nothrow_move_constructible_v<Type>;
static_assert(isPlain<Value> && isPlain<Array> && isPlain<Object>);

/// The type of what a call gives.
template <typename Call, typename... Arguments>
using ResultOf = std::invoke_result_t<Call, Arguments...>;

static_assert(std::is_same_v<ResultOf<decltype(&Value::GetType), const Value&>, ValueType>);
static_assert(
    std::is_same_v<ResultOf<decltype(&Value::ToString), const Value&>, const std::string&>);
static_assert(std::is_same_v<ResultOf<decltype(&Value::ToArray), const Value&>, Array>);
static_assert(std::is_same_v<ResultOf<decltype(&Value::ToObject), const Value&>, Object>);
static_assert(std::is_same_v<ResultOf<decltype(&Value::size), const Value&>, int>);
static_assert(std::is_same_v<ResultOf<decltype(&Array::size), const Array&>, unsigned int>);
static_assert(std::is_same_v<ResultOf<decltype(&Object::size), const Object&>, unsigned int>);
static_assert(std::is_same_v<Array::iterator, std::vector<Value>::iterator>);
static_assert(std::is_same_v<Object::iterator, std::map<std::string, Value>::iterator>);

TEST(ValueTest, DefaultValueIsNull)
{
    Value value;

    EXPECT_EQ(value.GetType(), NullVal);
    EXPECT_FALSE(value.IsNumeric());
    EXPECT_TRUE(HoldsNothingInactive(value));
}

TEST(ValueTest, TypesHaveTheirNumbersInOrder)
{
    const std::vector<Value> values = OneOfEach();

    for (std::size_t i = 0; i < values.size(); ++i) {
        EXPECT_EQ(static_cast<std::size_t>(values[i].GetType()), i);
        EXPECT_EQ(values[i].IsNumeric(), i >= 2 && i <= 4) << i;
    }
}

TEST(ValueTest, IntegerFillsAllThreeNumbers)
{
    const Value value(7);

    EXPECT_EQ(value.ToInt(), 7);
    EXPECT_EQ(value.ToFloat(), 7.0F);
    EXPECT_EQ(value.ToDouble(), 7.0);
}

TEST(ValueTest, LargeIntegerIsRoundedInItsFloatOnly)
{
    const Value value(highest);

    EXPECT_EQ(value.ToInt(), highest);
    EXPECT_EQ(value.ToFloat(), 2147483648.0F);
    EXPECT_EQ(value.ToDouble(), 2147483647.0);
}

TEST(ValueTest, DoubleIsTruncatedTowardZeroWhenTheValueIsMade)
{
    EXPECT_EQ(Value(2.9).ToInt(), 2);
    EXPECT_EQ(Value(-2.7).ToInt(), -2);
    EXPECT_EQ(Value(0.1).ToFloat(), 0.1F);
    EXPECT_EQ(Value(0.1).ToDouble(), 0.1);
}

TEST(ValueTest, DoubleOutOfRangeSaturatesItsInteger)
{
    EXPECT_EQ(Value(2147483648.0).ToInt(), highest);
    EXPECT_EQ(Value(-2147483649.0).ToInt(), lowest);
    EXPECT_EQ(Value(HUGE_VAL).ToInt(), highest);
    EXPECT_EQ(Value(-HUGE_VAL).ToInt(), lowest);
    EXPECT_EQ(Value(std::nan("")).ToInt(), 0);
    EXPECT_TRUE(std::isinf(Value(1e300).ToFloat()));
}

TEST(ValueTest, FloatHasItsTruncationAndItsWidening)
{
    const Value value = Value::FromFloat(-0.1F);

    EXPECT_EQ(value.GetType(), FloatVal);
    EXPECT_EQ(value.ToInt(), 0);
    EXPECT_EQ(value.ToFloat(), -0.1F);
    EXPECT_EQ(value.ToDouble(), static_cast<double>(-0.1F));
    EXPECT_EQ(Value::FromFloat(1e20F).ToInt(), highest);
}

TEST(ValueTest, FloatIsWidenedToADoubleByTheConstructors)
{
    const auto value = std::make_unique<Value>(0.1F);

    EXPECT_EQ(value->GetType(), DoubleVal);
    EXPECT_EQ(value->ToDouble(), static_cast<double>(0.1F));
}

TEST(ValueTest, CStringMakesAStringAndNullAnEmptyOne)
{
    EXPECT_EQ(Value("text").ToString(), "text");
    EXPECT_EQ(Value(static_cast<const char*>(nullptr)).ToString(), "");
}

TEST(ValueTest, StringsKeepEveryByte)
{
    const std::string bytes("a\0\xff\"", 4);

    EXPECT_EQ(Value(bytes).ToString(), bytes);
}

TEST(ValueTest, OperatorsConvertAsTheAccessorsDo)
{
    const Value number(2.5);
    const Value text("x");
    const Value flag(true);

    EXPECT_EQ(static_cast<int>(number), 2);
    EXPECT_EQ(static_cast<float>(number), 2.5F);
    EXPECT_EQ(static_cast<double>(number), 2.5);
    EXPECT_TRUE(static_cast<bool>(flag));
    EXPECT_EQ(text.operator std::string(), "x");
    EXPECT_EQ(Value(MakeArray(1)).operator Array().size(), 1U);
    EXPECT_EQ(Value(MakeObject("k", 1)).operator Object().size(), 1U);
}

TEST(ValueTest, EveryAccessorRefusesEveryOtherTypeWithItsText)
{
    const char* const keys[] = {"k"};
    for (Value value : OneOfEach()) {
        const Value& constant = value;
        const ValueType type = value.GetType();
        const auto expected = [](bool fits, const char* text) {
            return std::string(fits ? "no exception" : text);
        };
        const auto keyList = const_cast<const char**>(keys);

        const std::string numeric = expected(value.IsNumeric(), numericText);
        EXPECT_EQ(ErrorOf([&] { (void)value.ToInt(); }), numeric);
        EXPECT_EQ(ErrorOf([&] { (void)value.ToFloat(); }), numeric);
        EXPECT_EQ(ErrorOf([&] { (void)value.ToDouble(); }), numeric);
        EXPECT_EQ(ErrorOf([&] { (void)value.operator int(); }), numeric);
        EXPECT_EQ(ErrorOf([&] { (void)value.operator float(); }), numeric);
        EXPECT_EQ(ErrorOf([&] { (void)value.operator double(); }), numeric);

        const std::string flag = expected(type == BoolVal, boolText);
        EXPECT_EQ(ErrorOf([&] { (void)value.ToBool(); }), flag);
        EXPECT_EQ(ErrorOf([&] { (void)value.operator bool(); }), flag);

        const std::string text = expected(type == StringVal, stringText);
        EXPECT_EQ(ErrorOf([&] { (void)value.ToString(); }), text);
        EXPECT_EQ(ErrorOf([&] { (void)value.operator std::string(); }), text);

        const std::string array = expected(type == ArrayVal, arrayText);
        EXPECT_EQ(ErrorOf([&] { (void)value.ToArray(); }), array);
        EXPECT_EQ(ErrorOf([&] { (void)value.AsArray(); }), array);
        EXPECT_EQ(ErrorOf([&] { (void)value.operator Array(); }), array);
        EXPECT_EQ(ErrorOf([&] { (void)value[0U]; }), array);
        EXPECT_EQ(ErrorOf([&] { (void)constant[0U]; }), array);
        EXPECT_EQ(ErrorOf([&] { (void)value[0]; }), array);
        EXPECT_EQ(ErrorOf([&] { (void)constant[0]; }), array);

        const std::string object = expected(type == ObjectVal, objectText);
        EXPECT_EQ(ErrorOf([&] { (void)value.ToObject(); }), object);
        EXPECT_EQ(ErrorOf([&] { (void)value.AsObject(); }), object);
        EXPECT_EQ(ErrorOf([&] { (void)value.operator Object(); }), object);
        EXPECT_EQ(ErrorOf([&] { (void)value.HasKey("k"); }), object);
        EXPECT_EQ(ErrorOf([&] { (void)value.HasKeys({std::string("k")}); }), object);
        EXPECT_EQ(ErrorOf([&] { (void)value.HasKeys(keyList, 1); }), object);
        EXPECT_EQ(ErrorOf([&] { (void)value["k"]; }), object);
        EXPECT_EQ(ErrorOf([&] { (void)constant["k"]; }), object);
        EXPECT_EQ(ErrorOf([&] { (void)value[std::string("k")]; }), object);
        EXPECT_EQ(ErrorOf([&] { (void)constant[std::string("k")]; }), object);
        EXPECT_EQ(value.GetType(), type);
    }
}

TEST(ValueTest, KeyOfAnotherTypeIsNotAddedToAnInactiveObject)
{
    const Value object(MakeObject("k", 1));
    const Value number(5);
    Value value(object);
    value = number;

    EXPECT_EQ(ErrorOf([&] { (void)value["new"]; }), objectText);
    EXPECT_EQ(ErrorOf([&] { (void)value[std::string("new")]; }), objectText);

    EXPECT_TRUE(object == value) << "the object is inactive, and as it was";
    EXPECT_EQ(value.ToInt(), 5);
}

TEST(ValueTest, SizeCountsMembersAndElementsAndIsOneForAllElseNullIncluded)
{
    Value two{Array()};
    two = Deserialize("[1,2]");

    EXPECT_EQ(Value().size(), 1);
    EXPECT_EQ(Value("").size(), 1);
    EXPECT_EQ(Value(0).size(), 1);
    EXPECT_EQ(Value(false).size(), 1);
    EXPECT_EQ(Value(Array()).size(), 0);
    EXPECT_EQ(Value(Object()).size(), 0);
    EXPECT_EQ(two.size(), 2);
    EXPECT_EQ(Value(MakeObject("k", 1)).size(), 1);
}

TEST(ValueTest, IndexReachesTheElementItself)
{
    Value value(MakeArray(1));

    value[0] = 2;
    value[0U] = value[0].ToInt() + 1;

    EXPECT_EQ(std::as_const(value)[0].ToInt(), 3);
}

template <typename Index>
class ValueIndexTest : public testing::Test
{
};

using IndexTypes =
    testing::Types<char, signed char, unsigned char, short, unsigned short, int, unsigned int, long,
                   unsigned long, long long, unsigned long long, std::size_t, std::ptrdiff_t,
                   std::uint8_t, std::int16_t, std::uint32_t, std::int64_t>;
TYPED_TEST_SUITE(ValueIndexTest, IndexTypes);

TYPED_TEST(ValueIndexTest, EveryIntegerTypeIndexesAnArrayAndNothingElse)
{
    Value value = Deserialize("[1,2]");
    const TypeParam second{1};

    value[second] = 3;

    EXPECT_EQ(std::as_const(value)[second].ToInt(), 3);
    EXPECT_EQ(ErrorOf([&] { (void)Value("text")[second]; }), arrayText);
    EXPECT_EQ(ErrorOf([&] { (void)std::as_const(value)[second][second]; }), arrayText);
}

TEST(ValueTest, ZerosIndexAndTextsAreKeys)
{
    Value array = Deserialize("[1]");
    Value object = Deserialize(R"({"k":2})");
    const char letters[] = "k";
    char changeable[] = "k";

    EXPECT_EQ(array[0].ToInt(), 1);
    EXPECT_EQ(array[0U].ToInt(), 1);
    EXPECT_EQ(array[0L].ToInt(), 1);
    EXPECT_EQ(array[0UL].ToInt(), 1);
    EXPECT_EQ(array[std::size_t{0}].ToInt(), 1);
    EXPECT_EQ(object["k"].ToInt(), 2);
    EXPECT_EQ(object[letters].ToInt(), 2);
    EXPECT_EQ(object[changeable].ToInt(), 2);
    EXPECT_EQ(std::as_const(object)[changeable].ToInt(), 2);
    EXPECT_EQ(object[static_cast<const char*>(letters)].ToInt(), 2);
    EXPECT_EQ(object[std::string("k")].ToInt(), 2);
}

TEST(ValueTest, AbsentKeyIsInsertedAsNull)
{
    Value value{Object()};

    Value& entry = value["new"];

    EXPECT_EQ(entry.GetType(), NullVal);
    EXPECT_EQ(value.size(), 1);
    EXPECT_TRUE(value.HasKey("new"));
    EXPECT_FALSE(value.HasKey("other"));
    EXPECT_EQ(std::as_const(value)["new"].GetType(), NullVal);
}

TEST(ValueTest, ClearChangesTheTypeAndNothingElse)
{
    Value value(MakeArray(1));

    value.Clear();

    EXPECT_EQ(value.GetType(), NullVal);
    EXPECT_EQ(value.size(), 1);
    EXPECT_EQ(ErrorOf([&] { (void)value.ToArray(); }), arrayText);
    EXPECT_EQ(SerializeValue(value), "null");
    EXPECT_FALSE(HoldsNothingInactive(value)) << "the array is to stay, inactive";
}

TEST(ValueTest, CopyTakesWhatBelongsToTheTypeOnly)
{
    for (const Value& value : OneOfEach()) {
        Value full = MakeFullNumber();
        full = value;

        const Value copy(full);

        EXPECT_EQ(copy.GetType(), value.GetType());
        EXPECT_EQ(SerializeValue(copy), SerializeValue(value));
    }
}

TEST(ValueTest, CopyBringsNothingInactiveAlong)
{
    const Value full = MakeFullNumber();
    ASSERT_FALSE(Value("") == full);
    ASSERT_FALSE(Value(false) == full);

    Value copy(full);

    EXPECT_EQ(copy.ToInt(), 7);
    EXPECT_TRUE(HoldsNothingInactive(copy));
}

TEST(ValueTest, CopiedDoubleConvertsItsIntegerAndFloatAgain)
{
    const Value source(1e10);

    const Value copy(source);

    EXPECT_EQ(copy.ToInt(), highest);
    EXPECT_EQ(copy.ToFloat(), 1e10F);
}

TEST(ValueTest, CopiedFloatKeepsItsDoubleAsItIs)
{
    Value source(0.1);
    Access::Type(source) = FloatVal;  // its double is not its float's widening
    Value assigned(3);

    const Value copy(source);
    assigned = source;

    EXPECT_EQ(copy.ToFloat(), 0.1F);
    EXPECT_EQ(copy.ToDouble(), 0.1);
    EXPECT_EQ(assigned.ToDouble(), 0.1);
    EXPECT_EQ(assigned.ToInt(), 0);
}

TEST(ValueTest, AssignedValueKeepsItsOtherRepresentationsInactive)
{
    Value value(MakeObject("old", 1));

    value = std::string("s");
    EXPECT_EQ(value.size(), 1);
    EXPECT_EQ(ErrorOf([&] { (void)value.ToObject(); }), objectText);

    value = 5;
    EXPECT_TRUE(Value("s") == value);
    EXPECT_FALSE(Value("") == value);
    EXPECT_TRUE(Value(MakeObject("old", 1)) == value);
    EXPECT_FALSE(Value(Object()) == value);
}

TEST(ValueTest, EveryRepresentationIsKeptThroughAssignmentsOfOtherTypes)
{
    const Value null;
    Value value = MakeFullNumber();

    value = null;
    value = Value(2.5);
    value = Value::FromFloat(0.5F);
    value = Value();
    value = Value(9);

    EXPECT_EQ(value.ToInt(), 9);
    EXPECT_TRUE(Value("old") == value);
    EXPECT_TRUE(Value(MakeObject("old", 1)) == value);
    EXPECT_TRUE(Value(MakeArray(2)) == value);
    EXPECT_TRUE(Value(true) == value);
}

TEST(ValueTest, AssignmentsByMoveKeepTheDestinationsOtherRepresentations)
{
    Value value(MakeObject("old", 1));
    Value source("s");

    value = std::move(source);
    value = Value(5);

    EXPECT_TRUE(Value("s") == value);
    EXPECT_TRUE(Value(MakeObject("old", 1)) == value);
}

TEST(ValueTest, MovedValueBringsNothingInactiveAlong)
{
    Value source = MakeFullNumber();

    Value moved(std::move(source));

    EXPECT_EQ(moved.ToInt(), 7);
    EXPECT_TRUE(HoldsNothingInactive(moved));
    Value again = MakeFullNumber();
    Value target;
    target = std::move(again);
    EXPECT_TRUE(Value("") == target);
    EXPECT_TRUE(Value(Object()) == target);
}

TEST(ValueTest, MovesLeaveAtTheDestinationWhatACopyLeaves)
{
    for (const Value& value : OneOfEach()) {
        Value source(value);
        Value other(value);
        Value assigned("before");

        const Value constructed(std::move(source));
        assigned = std::move(other);

        EXPECT_EQ(constructed.GetType(), value.GetType());
        EXPECT_EQ(SerializeValue(constructed), SerializeValue(value));
        EXPECT_EQ(assigned.GetType(), value.GetType());
        EXPECT_EQ(SerializeValue(assigned), SerializeValue(value));
    }
}

TEST(ValueTest, MoveTakesElementsOverWhereTheyAre)
{
    Value source(MakeArray("element"));
    const Value* const element = &source[0];

    Value moved(std::move(source));
    EXPECT_EQ(&moved[0], element);

    Value assigned;
    assigned = std::move(moved);
    EXPECT_EQ(&assigned[0], element);
}

TEST(ValueTest, MoveOfALargeDocumentTakesItsMembersOver)
{
    Array large;
    for (int i = 0; i < 10000; ++i) {
        large.push_back(MakeObject("k", i));
    }
    Value source(std::move(large));
    const Value* const element = &source[0];

    Value assigned;
    assigned = std::move(source);

    EXPECT_EQ(&assigned[0], element);
}

TEST(ValueTest, AssignmentToItselfChangesNothing)
{
    for (Value value : OneOfEach()) {
        const std::string before = SerializeValue(value);
        Value& same = value;

        value = same;
        EXPECT_EQ(SerializeValue(value), before);
        value = std::move(same);
        EXPECT_EQ(SerializeValue(value), before);
    }
}

TEST(ValueTest, ValueCanBeAssignedFromInsideItself)
{
    Value value = Deserialize(R"({"k":{"a":[1,{"b":2}]}})");

    value = value["k"];
    EXPECT_EQ(Serialize(value), R"({"a":[1,{"b":2}]})");
    value = value["a"];
    EXPECT_EQ(Serialize(value), R"([1,{"b":2}])");
    value = value[1];
    EXPECT_EQ(Serialize(value), R"({"b":2})");
    value = value["b"];
    EXPECT_EQ(value.ToInt(), 2);
}

TEST(ValueTest, ValueCanBeMovedFromInsideItself)
{
    Value value = Deserialize(R"({"k":{"a":[1,[2,["x"]]]}})");

    value = std::move(value["k"]);
    EXPECT_EQ(Serialize(value), R"({"a":[1,[2,["x"]]]})");
    value = std::move(value["a"]);
    EXPECT_EQ(Serialize(value), R"([1,[2,["x"]]])");
    value = std::move(value[1]);
    EXPECT_EQ(Serialize(value), R"([2,["x"]])");
    value = std::move(value[1]);
    value = std::move(value[0]);
    EXPECT_EQ(value.ToString(), "x");
}

TEST(ValueTest, MemberCanBeAssignedTheValueAroundIt)
{
    Value value = Deserialize(R"({"j":[true],"k":1})");

    value["k"] = value;
    EXPECT_EQ(Serialize(value), R"({"j":[true],"k":{"j":[true],"k":1}})");
    value["j"][0] = value["j"];
    EXPECT_EQ(Serialize(value), R"({"j":[[true]],"k":{"j":[true],"k":1}})");
}

TEST(ValueTest, AccessorsWithoutCopyReferToTheValueItself)
{
    Value value(MakeArray(1));

    EXPECT_EQ(&value.AsArray()[0], &value[0]);
    EXPECT_NE(&std::as_const(value).ToArray()[0], &value[0]);
    const Value text("x");
    EXPECT_EQ(&text.ToString(), &text.ToString());
}

TEST(ValueTest, CopiesThatAccessorsGiveAreDeep)
{
    const Value array = Deserialize(R"([{"a":1}])");
    const Value object = Deserialize(R"({"a":[1]})");

    Array elements = array.ToArray();
    elements[0U]["a"] = 2;
    Array converted = array.operator Array();
    converted[0U]["a"] = 2;
    Object members = object.ToObject();
    members["a"][0] = 2;
    Object alsoConverted = object.operator Object();
    alsoConverted["a"][0] = 2;

    EXPECT_EQ(Serialize(array), R"([{"a":1}])");
    EXPECT_EQ(Serialize(object), R"({"a":[1]})");
}

}  // namespace
