// The places of virtual operations in their tables: programs that were built before depend on them.
#include <cstddef>
#include <cstring>
#include <string>

#include <gtest/gtest.h>

#include "Tolvex/Interfaces/IgnitionOffMode.h"
#include "Tolvex/Log/LogPolicy.h"
#include "Tolvex/Log/Logger.h"
#include "Tolvex/Log/LoggerBase.h"

namespace {

using Tolvex::Ilog::ConsoleLogPolicy;
using Tolvex::Ilog::FileLogPolicy;
using Tolvex::Ilog::ILogPolicy;
using Tolvex::Ilog::Logger;
using Tolvex::Ilog::LoggerBase;
using Tolvex::Interfaces::IgnitionOffMode;

/// @return the place of a virtual operation in the table of its class. A destructor has two.
template <typename Operation>
std::size_t PlaceOf(Operation operation)
{
    // A pointer to a virtual member begins with the offset in the table, plus 1 except on ARM.
    std::size_t offset = 0;
    static_assert(sizeof(operation) >= sizeof(offset));
    std::memcpy(&offset, &operation, sizeof(offset));
    return offset / sizeof(void*);
}

/// Adds a virtual operation to those of a class.
template <typename Class>
struct WithOneMore : Class
{
    virtual void OneMore() {}
};

TEST(VirtualTableTest, OperationsOfAPolicyFollowItsDestructorInTheStatedOrder)
{
    EXPECT_EQ(PlaceOf(&ILogPolicy::SetOutput), 2U);
    EXPECT_EQ(PlaceOf(&ILogPolicy::Write), 3U);
    EXPECT_EQ(PlaceOf(&ILogPolicy::Close), 4U);
    EXPECT_EQ(PlaceOf(&ILogPolicy::WriteHeader), 5U);
}

TEST(VirtualTableTest, PoliciesAddNoVirtualOperation)
{
    EXPECT_EQ(PlaceOf(&WithOneMore<FileLogPolicy>::OneMore), 6U);
    EXPECT_EQ(PlaceOf(&WithOneMore<ConsoleLogPolicy>::OneMore), 6U);
}

TEST(VirtualTableTest, LoggerOverAPolicyHasItsDestructorOnly)
{
    EXPECT_EQ(PlaceOf(&WithOneMore<LoggerBase<FileLogPolicy>>::OneMore), 2U);
}

TEST(VirtualTableTest, LoggerOfTheProcessHasDestructorAndIgnitionOffOnly)
{
    EXPECT_EQ(PlaceOf(&IgnitionOffMode::RunIgnitionOff), 2U);
    EXPECT_EQ(PlaceOf(&Logger::RunIgnitionOff), 2U);
}

}  // namespace
