// What reaches a terminal: names that command it, columns that do not line up, a bar that wraps.
#include "cli/terminal/Text.h"
#include "cli/terminal/ProgressBar.h"
#include "cli/terminal/Quantities.h"
#include "cli/terminal/Table.h"

#include <gmock/gmock.h>

namespace tarncli {
namespace {

TEST(Text, EscapesWhatWouldCommandOrDeceiveATerminal)
{
    EXPECT_EQ(escaped("Grüße 👩‍🚀.txt"), "Grüße 👩‍🚀.txt");
    EXPECT_EQ(escaped("a\033[2Jb"), "a\\u{1b}[2Jb");
    EXPECT_EQ(escaped("a\nb\tc\\"), "a\\nb\\tc\\\\");
    EXPECT_EQ(escaped("gpj.\u202Eexe"), "gpj.\\u{202e}exe");
    EXPECT_EQ(escaped("\u0085\u2066\uFEFF\u2028"), "\\u{85}\\u{2066}\\u{feff}\\u{2028}");
    EXPECT_EQ(escaped("\xff\xc3"), "\\xff\\xc3");
}

TEST(Text, MeasuresColumnsNotBytes)
{
    EXPECT_EQ(displayWidth("äöü"), 3);
    EXPECT_EQ(displayWidth("日本"), 4);
    EXPECT_EQ(displayWidth("e\u0301"), 1);
    EXPECT_EQ(cutToWidth("日本語", 5), "日本…");
    EXPECT_EQ(cutToWidth("abc", 3), "abc");
}

TEST(Table, LinesUpWideAndNarrowNames)
{
    Table table({Table::Align::right, Table::Align::left, Table::Align::left}, {"SIZE", "NAME", "BY"});
    table.add({"1", "日本", "bob"});
    table.add({"100", "a", ""});
    EXPECT_EQ(table.text(), "SIZE  NAME  BY\n"
                            "   1  日本  bob\n"
                            " 100  a\n");
    EXPECT_EQ(Table({Table::Align::left}, {"NAME"}).text(), "");
}

TEST(Quantities, RoundWithoutFourFigures)
{
    EXPECT_EQ(humanSize(1023), "1023 B");
    EXPECT_EQ(humanSize(1024), "1.0 KiB");
    EXPECT_EQ(humanSize(10189), "10 KiB");
    EXPECT_EQ(humanSize(1024 * 1024 - 1), "1.0 MiB");
    EXPECT_EQ(humanSize(~std::uint64_t{0}), "16 EiB");
    EXPECT_EQ(humanDuration(std::chrono::seconds(3725)), "1:02:05");
}

TEST(ProgressLine, LeavesOutWhatDoesNotFit)
{
    const Progress progress{"Storing", 1 << 20, 4 << 20, 3, 12, 1 << 20};
    EXPECT_EQ(progressLine(progress, 120),
              "Storing  [#####---------------] 25%  1.0 MiB of 4.0 MiB  3/12  1.0 MiB/s  0:03 left");
    EXPECT_THAT(progressLine({"Storing", 4 << 20, 4 << 20, 0, 1, 1}, 120),
                testing::EndsWith("4.0 MiB  syncing"));
    EXPECT_EQ(progressLine(progress, 50), "Storing  [#####---------------] 25%");
    EXPECT_EQ(progressLine(progress, 4), "Sto…");
    EXPECT_EQ(progressLine({"Storing", 0, 0, 0, 0, 0}, 80), "Storing  0 requests");
}

} // namespace
} // namespace tarncli
