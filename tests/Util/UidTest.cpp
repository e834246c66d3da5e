#include "Tolvex/Util/Uid.h"

#include <cstddef>
#include <iostream>
#include <set>
#include <sstream>
#include <string>
#include <thread>
#include <unordered_set>
#include <vector>

#include <gtest/gtest.h>

#include "tests/Support/ChildProcess.h"
#include "tests/Support/Pace.h"

namespace {

using Tolvex::Util::NewUid;

constexpr std::size_t manyIdentifiers = Tolvex::Support::isEmulated ? 20000 : 100000;

bool IsLowerCaseDigit(char character)
{
    return (character >= '0' && character <= '9') || (character >= 'a' && character <= 'f');
}

TEST(UidTest, AnIdentifierIsAUuidInLowerCaseText)
{
    for (int i = 0; i < 1000; ++i) {
        const std::string uid = NewUid();

        ASSERT_EQ(uid.size(), 36U);
        for (std::size_t place = 0; place < uid.size(); ++place) {
            if (place == 8 || place == 13 || place == 18 || place == 23) {
                ASSERT_EQ(uid[place], '-') << uid;
            } else {
                ASSERT_TRUE(IsLowerCaseDigit(uid[place])) << uid;
            }
        }
    }
}

TEST(UidTest, AnIdentifierIsOfVersionFourAndOfTheStandardVariant)
{
    std::set<char> variants;
    for (int i = 0; i < 1000; ++i) {
        const std::string uid = NewUid();
        ASSERT_EQ(uid[14], '4') << uid;
        variants.insert(uid[19]);
    }

    EXPECT_EQ(variants, (std::set<char>{'8', '9', 'a', 'b'}));
}

TEST(UidTest, EveryOtherDigitTakesAllValues)
{
    std::vector<std::set<char>> seen(36);
    for (int i = 0; i < 2000; ++i) {
        const std::string uid = NewUid();
        for (std::size_t place = 0; place < uid.size(); ++place) {
            seen[place].insert(uid[place]);
        }
    }

    for (std::size_t place = 0; place < seen.size(); ++place) {
        const bool fixed = place == 8 || place == 13 || place == 14 || place == 18 || place == 23;
        EXPECT_EQ(seen[place].size(), fixed ? 1U : place == 19 ? 4U : 16U) << place;
    }
}

TEST(UidTest, ManyIdentifiersAreAllDifferent)
{
    std::unordered_set<std::string> uids;
    for (std::size_t i = 0; i < manyIdentifiers; ++i) {
        uids.insert(NewUid());
    }

    EXPECT_EQ(uids.size(), manyIdentifiers);
}

TEST(UidTest, IdentifiersOfSeveralThreadsAreAllDifferent)
{
    constexpr std::size_t threadCount = 4;
    constexpr std::size_t perThread = manyIdentifiers / 20;
    std::vector<std::vector<std::string>> made(threadCount);
    std::vector<std::thread> threads;
    for (std::vector<std::string>& own : made) {
        threads.emplace_back([&own] {
            for (std::size_t i = 0; i < perThread; ++i) {
                own.push_back(NewUid());
            }
        });
    }

    std::set<std::string> uids;
    for (std::size_t i = 0; i < threadCount; ++i) {
        threads[i].join();
        uids.insert(made[i].begin(), made[i].end());
    }
    EXPECT_EQ(uids.size(), threadCount * perThread);
}

TEST(UidTest, IdentifiersOfAForkedProcessDifferFromItsParents)
{
    constexpr std::size_t perProcess = 100;
    std::set<std::string> uids{NewUid()};  // the generator is in use before the fork

    const auto child = Tolvex::Support::RunInChild([] {
        for (std::size_t i = 0; i < perProcess; ++i) {
            std::cout << NewUid() << '\n';
        }
        return 0;
    });
    for (std::size_t i = 0; i < perProcess; ++i) {
        uids.insert(NewUid());
    }

    ASSERT_TRUE(child.Succeeded()) << child.output;
    std::istringstream lines(child.output);
    for (std::string line; std::getline(lines, line);) {
        uids.insert(line);
    }
    EXPECT_EQ(uids.size(), 2 * perProcess + 1);
}

}  // namespace
