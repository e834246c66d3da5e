#include "Tolvex/Exception/IException.h"

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <dlfcn.h>
#include <exception>
#include <memory>
#include <stdexcept>
#include <string>
#include <typeinfo>

#include <gtest/gtest.h>

#include "tests/Exception/ThrowingLibrary.h"

namespace Tolvex {
namespace {

TEST(IExceptionTest, HoldsATextOf1024BytesAndA32BitIntegerBehindTheBase)
{
    constexpr std::size_t fields = 1024 + sizeof(std::int32_t);
    constexpr std::size_t unit = alignof(IException);

    EXPECT_EQ(sizeof(IException), (sizeof(std::exception) + fields + unit - 1) / unit * unit);
}

TEST(IExceptionTest, WhatReturnsTheText)
{
    EXPECT_STREQ(IException("no such interface").what(), "no such interface");
}

TEST(IExceptionTest, CanBeInitialisedFromATextWithAnEqualsSign)
{
    const IException exception = "no such interface";

    EXPECT_STREQ(exception.what(), "no such interface");
}

TEST(IExceptionTest, TextOf1023CharactersIsKeptWhole)
{
    const std::string text(1023, 'x');

    EXPECT_EQ(IException(text.c_str()).what(), text);
}

TEST(IExceptionTest, TextOf1024CharactersLosesItsLast)
{
    const std::string text = std::string(1023, 'x') + "y";

    EXPECT_EQ(IException(text.c_str()).what(), std::string(1023, 'x'));
}

TEST(IExceptionTest, TextOf2000CharactersIsCutTo1023)
{
    std::string text;
    for (int i = 0; i < 2000; ++i) {
        text += static_cast<char>('a' + i % 26);
    }

    EXPECT_EQ(IException(text.c_str()).what(), text.substr(0, 1023));
}

TEST(IExceptionTest, EmptyTextGivesAnEmptyText)
{
    EXPECT_STREQ(IException("").what(), "");
}

TEST(IExceptionTest, NullTextCountsAsEmpty)
{
    EXPECT_STREQ(IException(nullptr).what(), "");
}

TEST(IExceptionTest, PercentSignsAreNoFormat)
{
    EXPECT_STREQ(IException("100%s%n%d").what(), "100%s%n%d");
}

TEST(IExceptionTest, TextInAWritableBufferIsTaken)
{
    char text[] = "writable";

    EXPECT_STREQ(IException(text).what(), "writable");
}

TEST(IExceptionTest, LaterChangesOfTheGivenBufferDoNotShow)
{
    char text[] = "before";
    const IException exception(text);

    std::memcpy(text, "after!", sizeof text);

    EXPECT_STREQ(exception.what(), "before");
}

TEST(IExceptionTest, CopyHoldsItsOwnText)
{
    const IException original("text");

    IException copy(original);
    copy = IException("other");

    EXPECT_STREQ(original.what(), "text");
    EXPECT_STREQ(copy.what(), "other");
    EXPECT_NE(copy.what(), original.what());
}

TEST(IExceptionTest, AssignmentReplacesTheText)
{
    IException target("a rather long text");

    target = IException("short");

    EXPECT_STREQ(target.what(), "short");
}

TEST(IExceptionTest, IsCaughtAsAStandardException)
{
    try {
        throw IException("thrown");
    } catch (const std::exception& exception) {
        EXPECT_STREQ(exception.what(), "thrown");
    }
}

TEST(IExceptionTest, IsNoRuntimeError)
{
    EXPECT_EQ(dynamic_cast<const std::runtime_error*>(
                  static_cast<const std::exception*>(std::make_unique<IException>("x").get())),
              nullptr);
}

// ------------------------------------------------------------------- across shared objects

void ThrowInProgram(const char* text)
{
    throw IException(text);
}

TEST(IExceptionTest, ThrownInASharedObjectIsCaughtInTheProgram)
{
    try {
        Support::ThrowInSharedObject("from afar");
        FAIL() << "nothing was thrown";
    } catch (const IException& exception) {
        EXPECT_STREQ(exception.what(), "from afar");
    }
}

TEST(IExceptionTest, ThrownInASharedObjectIsCaughtInTheProgramAsAStandardException)
{
    try {
        Support::ThrowInSharedObject("from afar");
        FAIL() << "nothing was thrown";
    } catch (const std::exception& exception) {
        EXPECT_NE(dynamic_cast<const IException*>(&exception), nullptr);
    }
}

TEST(IExceptionTest, ThrownInASharedObjectIsCaughtInAnother)
{
    EXPECT_EQ(Support::CatchInSharedObject(Support::ThrowInSharedObject, "between two"),
              "between two");
}

TEST(IExceptionTest, ThrownInTheProgramIsCaughtInASharedObject)
{
    EXPECT_EQ(Support::CatchInSharedObject(ThrowInProgram, "inwards"), "inwards");
}

TEST(IExceptionTest, AllSharedObjectsAndTheProgramShareOneTypeInformation)
{
    EXPECT_EQ(&Support::GetTypeInThrower(), &typeid(IException));
    EXPECT_EQ(&Support::GetTypeInCatcher(), &typeid(IException));
}

TEST(IExceptionTest, VirtualTableAndTypeInformationAreExportedByTheLibrary)
{
    void* const library = dlopen("libtolvex.so.1", RTLD_LAZY | RTLD_NOLOAD);
    ASSERT_NE(library, nullptr);

    EXPECT_NE(dlsym(library, "_ZTVN6Tolvex10IExceptionE"), nullptr);
    EXPECT_NE(dlsym(library, "_ZTIN6Tolvex10IExceptionE"), nullptr);
    dlclose(library);
}

}  // namespace
}  // namespace Tolvex
