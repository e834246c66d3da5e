// Reads every row of the tables in docs/json-dialect.md from the page, and holds the library to it.

#include <cmath>
#include <fstream>
#include <map>
#include <string>
#include <vector>

#include <gtest/gtest.h>

#include "Tolvex/Json/Json.h"

#include "tests/Json/Judge.h"

namespace Tolvex::Json {
namespace {

using Cells = std::vector<std::string>;

/// A table row without its outer bars, cut at the inner ones; code without its backquotes.
Cells CellsOf(const std::string& line)
{
    Cells cells;
    std::size_t from = 1;
    for (std::size_t bar = line.find('|', from); bar != std::string::npos;
         bar = line.find('|', from)) {
        std::string cell = line.substr(from, bar - from);
        cell.erase(0, cell.find_first_not_of(' '));
        cell.erase(cell.find_last_not_of(' ') + 1);
        if (cell.size() > 1 && cell.front() == '`' && cell.back() == '`') {
            cell = cell.substr(1, cell.size() - 2);
        }
        cells.push_back(cell);
        from = bar + 1;
    }
    return cells;
}

/// The rows of all tables of the page whose first column has this heading.
std::vector<Cells> RowsOfTablesOf(const std::string& heading)
{
    std::ifstream page(TOLVEX_SOURCE_DIR "/docs/json-dialect.md");
    std::vector<Cells> rows;
    bool inside = false;
    for (std::string line; std::getline(page, line);) {
        if (line.empty() || line.front() != '|') {
            inside = false;
        } else if (line.starts_with("| " + heading + " |")) {
            inside = true;
        } else if (inside && !line.starts_with("|---")) {
            rows.push_back(CellsOf(line));
        }
    }
    return rows;
}

/// What the library reads, written as the page writes it.
std::string Reads(const std::string& text)
{
    const std::string description = Judge::Describe(Judge::ReadByLibrary(text));
    if (description == "throws std::out_of_range") {
        return "std::out_of_range";
    }
    return description == "null" ? "refused" : description;
}

TEST(DialectTest, EveryTextOfThePageReadsAsThePageSays)
{
    const std::vector<Cells> rows = RowsOfTablesOf("Text");

    ASSERT_GE(rows.size(), 60U);
    for (const Cells& row : rows) {
        ASSERT_EQ(row.size(), 3U) << row.front();
        EXPECT_EQ(Reads(row[0]), row[1]) << row[0];
        EXPECT_EQ(Judge::Complaint(row[0]), "");
    }
}

// Spelt on the page exactly as here.
#define EXAMPLE(expression)     \
    {                           \
#expression, expression \
    }

const std::map<std::string, Value> examples = {
    EXAMPLE(Value(7)),
    EXAMPLE(Value(1.5)),
    EXAMPLE(Value(1e-7)),
    EXAMPLE(Value(1e20)),
    EXAMPLE(Value::FromFloat(0.1F)),
    EXAMPLE(Value(-HUGE_VAL)),
    EXAMPLE(Value()),
    EXAMPLE(Value(true)),
    EXAMPLE(Value("x")),
    EXAMPLE(Value(" x ")),
    EXAMPLE(Value("a,b")),
    EXAMPLE(Value("a]b")),
    EXAMPLE(Value("say \"hi\"")),
    EXAMPLE(Value("C:\\new")),
    EXAMPLE(Value("\303\251")),
};

TEST(DialectTest, EveryValueOfThePageIsWrittenAndComesBackAsThePageSays)
{
    const std::vector<Cells> rows = RowsOfTablesOf("Value");

    ASSERT_EQ(rows.size(), examples.size());
    for (const Cells& row : rows) {
        ASSERT_EQ(row.size(), 5U) << row.front();
        ASSERT_TRUE(examples.contains(row[0])) << row[0];
        Array array;
        array.push_back(examples.at(row[0]));
        Object object;
        object["a"] = examples.at(row[0]);
        EXPECT_EQ(SerializeArray(array), row[1]);
        EXPECT_EQ(Reads(row[1]), row[2]);
        EXPECT_EQ(Serialize(Value(object)), row[3]);
        EXPECT_EQ(Reads(row[3]), row[4]);
    }
}

}  // namespace
}  // namespace Tolvex::Json
