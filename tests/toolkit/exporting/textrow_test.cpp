// SPDX-License-Identifier: MIT
#include "toolkit/exporting/textrow.h"
#include <array>
#include <gmock/gmock.h>

using exporting::addLevels;
using exporting::Format;
using exporting::formatOf;

namespace {

TEST(Levels, KeepTheirSignAndZerosInTenths)
{
    constexpr std::array<short, 7> raw{0, 5, -5, 100, -100, 32765, -32768};
    std::string line;

    addLevels(line, raw, 1, "");

    EXPECT_EQ(line, "0.0,0.5,-0.5,10.0,-10.0,3276.5,-3276.8");
}

TEST(Levels, KeepTheirSignAndZerosInThousandths)
{
    constexpr std::array<short, 4> raw{1000, -1, 16, 0};
    std::string line;

    addLevels(line, raw, 3, "");

    EXPECT_EQ(line, "1.000,-0.001,0.016,0.000");
}

TEST(Levels, ThatWereNotMeasuredAreWhatStandsForNothing)
{
    constexpr std::array<short, 3> raw{values::noLevel, 10, values::noLevel};
    std::string csv;
    std::string json;

    addLevels(csv, raw, 1, "");
    addLevels(json, raw, 1, "null");

    EXPECT_EQ(csv, ",1.0,");
    EXPECT_EQ(json, "null,1.0,null");
}

TEST(FormatOfAPath, IsThatOfItsEndingInAnyCase)
{
    EXPECT_EQ(formatOf("a.csv"), Format::Csv);
    EXPECT_EQ(formatOf("A.CSV"), Format::Csv);
    EXPECT_EQ(formatOf("a.ndjson"), Format::Ndjson);
    EXPECT_EQ(formatOf("a.Jsonl"), Format::Ndjson);
    EXPECT_EQ(formatOf("dir.csv/a.npy"), Format::Npy);
    EXPECT_EQ(formatOf("a.csv.gz"), std::nullopt);
    EXPECT_EQ(formatOf("csv"), std::nullopt);
    EXPECT_EQ(formatOf(""), std::nullopt);
}

} // namespace
