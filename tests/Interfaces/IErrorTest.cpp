#include "Tolvex/Interfaces/IError.h"

#include <memory>
#include <stdexcept>
#include <string>
#include <type_traits>

#include <gtest/gtest.h>

namespace Tolvex::Interfaces {
namespace {

/// A derived class whose protected members are open to the tests.
class Device : public IError
{
public:
    Device() = default;
    Device(const std::string& space, const std::string& name)
    {
        SetNamespace(space);
        SetClassName(name);
    }

    using IError::className;
    using IError::errorCode;
    using IError::errorText;
    using IError::namespaceName;
};

struct NullTextException : std::exception
{
    const char* what() const noexcept override { return nullptr; }
};

TEST(IErrorTest, NewObjectHoldsNoTextNoNamesAndCodeZero)
{
    const Device device;

    EXPECT_EQ(device.GetErrorText(), "");
    EXPECT_EQ(device.GetErrorCode(), 0);
    EXPECT_EQ(device.namespaceName, "");
    EXPECT_EQ(device.className, "");
}

TEST(IErrorTest, SetErrorPutsNamespaceClassAndMethodBeforeTheMessage)
{
    Device device("Tolvex::Util", "Timer");

    device.SetError("Create timer error", "Create", true, true);

    EXPECT_EQ(device.GetErrorText(),
              "[Namespace: Tolvex::Util][Class: Timer][Method: Create]Create timer error");
}

struct PartsCase
{
    const char* name;
    const char* space;
    const char* className;
    const char* method;
    bool withNamespace;
    bool withClass;
    const char* expected;
};

class IErrorPartsTest : public testing::TestWithParam<PartsCase>
{
};

TEST_P(IErrorPartsTest, OnlyThePartsThatAreWantedAndNotEmptyAppear)
{
    const PartsCase& parts = GetParam();
    Device device(parts.space, parts.className);

    device.SetError("text", parts.method, parts.withNamespace, parts.withClass);

    EXPECT_EQ(device.GetErrorText(), parts.expected);
}

INSTANTIATE_TEST_SUITE_P(
    Parts, IErrorPartsTest,
    testing::Values(
        PartsCase{"All", "N", "C", "M", true, true, "[Namespace: N][Class: C][Method: M]text"},
        PartsCase{"WithoutNamespace", "N", "C", "M", false, true, "[Class: C][Method: M]text"},
        PartsCase{"WithoutClass", "N", "C", "M", true, false, "[Namespace: N][Method: M]text"},
        PartsCase{"WithoutBoth", "N", "C", "M", false, false, "[Method: M]text"},
        PartsCase{"EmptyMethod", "N", "C", "", true, true, "[Namespace: N][Class: C]text"},
        PartsCase{"EmptyMethodAndNoFlags", "N", "C", "", false, false, "text"},
        PartsCase{"EmptyNames", "", "", "M", true, true, "[Method: M]text"},
        PartsCase{"EmptyNamespace", "", "C", "M", true, true, "[Class: C][Method: M]text"},
        PartsCase{"EmptyClass", "N", "", "M", true, true, "[Namespace: N][Method: M]text"},
        PartsCase{"NothingButTheMessage", "", "", "", true, true, "text"}),
    [](const testing::TestParamInfo<PartsCase>& row) { return std::string(row.param.name); });

TEST(IErrorTest, EmptyMessageLeavesThePartsAlone)
{
    Device device("N", "C");

    device.SetError("", "M", true, true);

    EXPECT_EQ(device.GetErrorText(), "[Namespace: N][Class: C][Method: M]");
}

TEST(IErrorTest, MessageIsTakenAsItIsWithPercentSignsAndNulBytes)
{
    Device device;
    const std::string message("100%s\0%n", 8);

    device.SetError(message, "", true, true);

    EXPECT_EQ(device.GetErrorText(), message);
}

TEST(IErrorTest, SetErrorReplacesThePreviousTextWhole)
{
    Device device;
    device.SetError("a much longer text that came before", "M", true, true);

    device.SetError("b", "", true, true);

    EXPECT_EQ(device.GetErrorText(), "b");
}

TEST(IErrorTest, OwnTextAsMessageIsWrappedOnceMore)
{
    Device device("N", "C");
    device.SetError("text", "Inner", false, false);

    device.SetError(device.GetErrorText(), "Outer", true, false);

    EXPECT_EQ(device.GetErrorText(), "[Namespace: N][Method: Outer][Method: Inner]text");
}

TEST(IErrorTest, OwnTextAsMethodIsTakenBeforeItIsReplaced)
{
    Device device;
    device.SetError("where", "", false, false);

    device.SetError("what", device.GetErrorText(), false, false);

    EXPECT_EQ(device.GetErrorText(), "[Method: where]what");
}

TEST(IErrorTest, TextLongerThanAnyFixedBufferIsKeptWhole)
{
    Device device("N", "C");
    const std::string message(100000, 'x');

    device.SetError(message, "M", true, true);

    EXPECT_EQ(device.GetErrorText(), "[Namespace: N][Class: C][Method: M]" + message);
}

TEST(IErrorTest, SetErrorLeavesTheCodeAlone)
{
    Device device;
    device.errorCode = 7;

    device.SetError("text", "M", true, true);

    EXPECT_EQ(device.GetErrorCode(), 7);
}

TEST(IErrorTest, ResetErrorEmptiesTheTextAndZeroesTheCode)
{
    Device device("N", "C");
    device.SetError("text", "M", true, true);
    device.errorCode = -5;

    device.ResetError();

    EXPECT_EQ(device.GetErrorText(), "");
    EXPECT_EQ(device.GetErrorCode(), 0);
}

TEST(IErrorTest, ResetErrorKeepsTheNames)
{
    Device device("N", "C");

    device.ResetError();

    EXPECT_EQ(device.namespaceName, "N");
    EXPECT_EQ(device.className, "C");
}

TEST(IErrorTest, LaterNamesReplaceEarlierOnes)
{
    Device device("Old", "Old");
    device.SetNamespace("New");
    device.SetClassName("Newer");

    device.SetError("text", "", true, true);

    EXPECT_EQ(device.GetErrorText(), "[Namespace: New][Class: Newer]text");
}

TEST(IErrorTest, ExceptionTextFollowsItsMarkWithoutASpace)
{
    Device device("N", "C");

    device.SetError(std::runtime_error("broken"), "M", true, true);

    EXPECT_EQ(device.GetErrorText(), "[Namespace: N][Class: C][Method: M][#Exception]broken");
}

TEST(IErrorTest, ExceptionOverloadHonoursTheFlagsAndTheEmptyMethod)
{
    Device device("N", "C");

    device.SetError(std::runtime_error("broken"), "", false, false);

    EXPECT_EQ(device.GetErrorText(), "[#Exception]broken");
}

TEST(IErrorTest, ExceptionWithNullTextLeavesTheMarkAlone)
{
    Device device;

    device.SetError(NullTextException(), "M", true, true);

    EXPECT_EQ(device.GetErrorText(), "[Method: M][#Exception]");
}

TEST(IErrorTest, DeletedThroughTheBaseDestroysTheDerivedObject)
{
    struct Flagging : IError
    {
        explicit Flagging(bool& flag) : destroyed(flag) {}
        ~Flagging() override { destroyed = true; }
        bool& destroyed;
    };
    bool destroyed = false;

    std::unique_ptr<IError> error = std::make_unique<Flagging>(destroyed);
    error.reset();

    EXPECT_TRUE(destroyed);
}

TEST(IErrorTest, CodeIsA32BitSignedInteger)
{
    static_assert(std::is_same_v<decltype(Device::errorCode), std::int32_t>);
    Device device;

    device.errorCode = -2147483647 - 1;

    EXPECT_EQ(device.GetErrorCode(), -2147483647 - 1);
}

}  // namespace
}  // namespace Tolvex::Interfaces
