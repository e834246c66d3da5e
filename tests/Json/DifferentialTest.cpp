// The library reads and writes every text exactly as the reference does.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>

#include <gtest/gtest.h>

#include "tests/Json/Documents.h"
#include "tests/Json/Judge.h"
#include "tests/Support/Pace.h"

namespace {

using Tolvex::Json::Judge::Complaint;
using Tolvex::Json::Judge::DocumentMaker;
using Tolvex::Json::Judge::Minimised;

constexpr std::size_t documentsPerSeed = 200000;

class DifferentialTest : public testing::TestWithParam<std::uint64_t>
{
};

TEST_P(DifferentialTest, EveryDocumentReadsAndWritesAsTheReferenceDoes)
{
    DocumentMaker maker(GetParam());
    const std::size_t count = Tolvex::Support::Scaled(documentsPerSeed);

    for (std::size_t i = 0; i < count; ++i) {
        const std::string document = maker.Make();
        const std::string complaint = Complaint(document);
        ASSERT_TRUE(complaint.empty()) << complaint << "\nminimised:\n"
                                       << Complaint(Minimised(document));
    }
}

TEST(FuzzCorpusTest, EveryInputReadsAndWritesAsTheReferenceDoes)
{
    std::size_t count = 0;
    for (const auto& entry :
         std::filesystem::directory_iterator(TOLVEX_SOURCE_DIR "/tests/Fuzz/corpus/Deserialize")) {
        std::ifstream file(entry.path(), std::ios::binary);
        std::ostringstream document;
        document << file.rdbuf();
        EXPECT_EQ(Complaint(document.str()), "") << entry.path();
        ++count;
    }
    EXPECT_GE(count, 100U);
}

INSTANTIATE_TEST_SUITE_P(Seeds, DifferentialTest, testing::Values(1, 2, 3),
                         testing::PrintToStringParamName());

}  // namespace
