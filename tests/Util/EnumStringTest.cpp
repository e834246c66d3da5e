#include "Tolvex/Util/EnumString.h"

#include <atomic>
#include <new>
#include <thread>
#include <vector>

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "Tolvex/Types/LogModule.h"

#include "tests/Support/ChildProcess.h"

extern "C" void RegisterText(int value, const char* text);
extern "C" const void* TableOfLibrary();

namespace {

enum class Door
{
    Front,
    Rear,
    Roof
};

enum class Lamp
{
    Left,
    Right
};

bool memoryIsShort = true;

}  // namespace

namespace Tolvex::Util {

template <>
void EnumString<Door>::RegisterEnumerators()
{
    RegisterEnumerator(Door::Front, "front");
    RegisterEnumerator(Door::Rear, "rear");
    RegisterEnumerator(Door::Rear, "back");
    RegisterEnumerator(Door::Roof, "front");
}

template <>
void EnumString<Lamp>::RegisterEnumerators()
{
    RegisterEnumerator(Lamp::Left, "left");
    if (memoryIsShort) {
        throw std::bad_alloc();
    }
    RegisterEnumerator(Lamp::Right, "right");
}

}  // namespace Tolvex::Util

namespace {

using Tolvex::LogModule;
using Tolvex::Support::ChildResult;
using Tolvex::Support::RunInChild;
using Modules = Tolvex::Util::EnumString<LogModule>;
using Doors = Tolvex::Util::EnumString<Door>;
using Lamps = Tolvex::Util::EnumString<Lamp>;

std::string TextOf(int value)
{
    return Modules::From(static_cast<LogModule>(value));
}

TEST(EnumStringTest, ElevenModulesHaveTheirTexts)
{
    const std::vector<std::string> expected = {"Ithread", "Iaq",   "FaceRec",      "Sdw",
                                               "DaD",     "CELL",  "LT",           "WNET",
                                               "CONFIG",  "Event", "Accelerometer"};
    std::vector<std::string> texts;
    for (int value = 0; value <= 10; ++value) {
        texts.push_back(TextOf(value));
    }
    EXPECT_EQ(texts, expected);
    EXPECT_EQ(Modules::GetMap().size(), 11U);
    static_assert(sizeof(LogModule) == 4);
    EXPECT_EQ(static_cast<int>(LogModule::Accelerometer), 10);
}

TEST(EnumStringTest, ValueWithoutATextGivesTheEmptyString)
{
    EXPECT_EQ(TextOf(11), "");
    EXPECT_EQ(TextOf(-1), "");
    EXPECT_EQ(&Modules::From(static_cast<LogModule>(11)),
              &Modules::From(static_cast<LogModule>(99)));
}

TEST(EnumStringTest, FirstUseThatEndsWithAnExceptionLeavesTheFillingToTheNextOne)
{
    const ChildResult child = RunInChild([] {
        EXPECT_THROW(Lamps::GetMap(), std::bad_alloc);
        EXPECT_THROW(Lamps::From(Lamp::Left), std::bad_alloc);

        memoryIsShort = false;

        EXPECT_EQ(Lamps::From(Lamp::Right), "right");
        EXPECT_EQ(Lamps::From(Lamp::Left), "left");
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(EnumStringTest, TextThatIsThereAlreadyKeepsItsFirstValue)
{
    const ChildResult child = RunInChild([] {
        Modules::RegisterEnumerator(static_cast<LogModule>(50), "WNET");
        EXPECT_EQ(TextOf(7), "WNET");
        EXPECT_EQ(TextOf(50), "");
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(EnumStringTest, ValueWithTwoTextsIsAmbiguousAndGivesTheEmptyString)
{
    const ChildResult child = RunInChild([] {
        Modules::RegisterEnumerator(LogModule::WNET, "network");
        EXPECT_EQ(TextOf(7), "");
        EXPECT_EQ(TextOf(8), "CONFIG");
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(EnumStringTest, EnumerationOfAnApplicationHasATableOfItsOwn)
{
    EXPECT_EQ(Doors::From(Door::Front), "front");
    EXPECT_EQ(Doors::From(Door::Rear), "");
    EXPECT_EQ(Doors::From(Door::Roof), "");
    EXPECT_EQ(Doors::GetMap().size(), 3U);
}

TEST(EnumStringTest, TableIsOneForAllSharedObjectsOfTheProcess)
{
    EXPECT_EQ(TableOfLibrary(), &Modules::GetMap());
    const ChildResult child = RunInChild([] {
        RegisterText(60, "from the other side");
        EXPECT_EQ(TextOf(60), "from the other side");
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

TEST(EnumStringTest, FirstUseFromManyThreadsFillsTheTableOnce)
{
    const ChildResult child = RunInChild([] {
        std::atomic<bool> start = false;
        std::atomic<int> right = 0;
        std::vector<std::thread> threads;
        for (int thread = 0; thread < 8; ++thread) {
            threads.emplace_back([&, thread] {
                while (!start) {
                }
                Modules::RegisterEnumerator(static_cast<LogModule>(100 + thread),
                                            "thread " + std::to_string(thread));
                right += TextOf(10) == "Accelerometer" ? 1 : 0;
            });
        }
        start = true;
        for (std::thread& thread : threads) {
            thread.join();
        }
        EXPECT_EQ(right, 8);
        EXPECT_EQ(Modules::GetMap().size(), 19U);
        return 0;
    });
    EXPECT_TRUE(child.Succeeded()) << child.output;
}

}  // namespace
