// The text that NewUid() makes from given bytes: the random generator is replaced.
#include <string>

#include <gtest/gtest.h>

#include "Tolvex/Util/Uid.h"

namespace {

int draws = 0;

}  // namespace

extern "C" void uuid_generate_random(unsigned char* identifier)
{
    ++draws;
    for (int place = 0; place < 16; ++place) {
        identifier[place] = static_cast<unsigned char>(0xF0 - 0x0F * place);
    }
}

namespace {

TEST(UidCallsTest, AnIdentifierIsTheTextOfSixteenRandomBytes)
{
    draws = 0;

    EXPECT_EQ(Tolvex::Util::NewUid(), "f0e1d2c3-b4a5-9687-7869-5a4b3c2d1e0f");

    EXPECT_EQ(draws, 1);
}

}  // namespace
