// The library reads and writes every text exactly as the reference does.

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string>

#include <gtest/gtest.h>

#include "tests/Json/Documents.h"
#include "tests/Json/Judge.h"
#include "tests/Json/Reference.h"
#include "tests/Support/Pace.h"

namespace {

using Tolvex::Json::Judge::Complaint;
using Tolvex::Json::Judge::DocumentMaker;
using Tolvex::Json::Judge::Minimised;

constexpr std::size_t documentsPerSeed = 200000;
constexpr std::size_t largeDocumentsPerSeed = 200;
constexpr std::size_t largeBytes = 20000;

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

// Longer than the buffers of the reader and the writer.
TEST_P(DifferentialTest, LargeDocumentReadsAndWritesAsTheReferenceDoes)
{
    DocumentMaker maker(GetParam());
    const std::size_t count = Tolvex::Support::Scaled(largeDocumentsPerSeed);

    for (std::size_t i = 0; i < count; ++i) {
        std::string document = "[]";
        while (document.size() < largeBytes) {
            const std::string part = maker.Make();
            bool malformed = false;
            try {
                static_cast<void>(
                    Tolvex::Json::Reference::Deserialize("[" + part + "]", &malformed));
            } catch (const std::out_of_range&) {
                malformed = true;
            }
            if (!malformed) {
                document.insert(1, document.size() == 2 ? part : part + ",");
            }
        }
        ASSERT_EQ(Complaint(document), "");
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
