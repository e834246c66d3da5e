#include "Tolvex/Base/SharedValue.h"

#include <thread>

#include <gtest/gtest.h>

namespace {

TEST(SharedValueTest, ChangesOfSeveralThreadsAreAllAdded)
{
    constexpr int changes = 100000;
    int number = 5;
    const auto change = [&number](int by) {
        for (int count = 0; count < changes; ++count) {
            Tolvex::Base::AddShared(number, by);
        }
    };

    std::thread adding([&change] { change(3); });
    std::thread subtracting([&change] { change(-1); });
    adding.join();
    subtracting.join();

    EXPECT_EQ(Tolvex::Base::LoadShared(number), 5 + 2 * changes);
}

}  // namespace
