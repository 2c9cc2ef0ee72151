#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "run.h"

namespace kestrav::test {
namespace {

TEST(Usage, EverySubcommandHelps) {
  for (const std::string command :
       {"import", "record", "info", "cat", "play", "repair", "check", "recover", "trim", "merge",
        "split", "diff", "export", "report"}) {
    const Result result = RunTool({command, "--help"});
    EXPECT_EQ(result.code, 0);
    EXPECT_THAT(result.out, ::testing::HasSubstr("Usage: kestrav " + command));
    EXPECT_EQ(result.err, "");
    EXPECT_THAT(RunTool({"--help"}).out, ::testing::HasSubstr("\n  " + command));
  }
}

TEST(Usage, HelpOfImportHoldsTheTableOfSentences) {
  const std::string help = RunTool({"import", "--help"}).out;
  EXPECT_THAT(help, ::testing::HasSubstr("RMC 1, GGA 2, GSA 3, GSV 4, VTG 5, GLL 6, ZDA 7, GST 8, "
                                         "GNS 9, TXT 10, proprietary 11, any other 99"));
}

TEST(Usage, VersionIsTold) {
  const Result result = RunTool({"--version"});
  EXPECT_EQ(result.code, 0);
  EXPECT_THAT(result.out, ::testing::MatchesRegex("kestrav [0-9]+\\.[0-9]+\\.[0-9]+\n"));
}

TEST(Usage, WhatIsNoSubcommandIsRefusedInOneLine) {
  for (const Arguments& arguments : {Arguments{}, {"convert"}, {"--frobnicate"}, {""}}) {
    const Result result = RunTool(arguments);
    EXPECT_EQ(result.code, 2);
    EXPECT_EQ(result.out, "");
    EXPECT_EQ(Lines(result.err).size(), 1U) << result.err;
  }
  EXPECT_EQ(RunTool({"convert"}).err, "kestrav: no subcommand 'convert'; see kestrav --help\n");
}

}  // namespace
}  // namespace kestrav::test
