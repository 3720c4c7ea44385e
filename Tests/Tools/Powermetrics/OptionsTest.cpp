// SPDX-License-Identifier: MIT
#include "Tools/powermetrics/Options.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

namespace monitor::powermetrics {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

std::string usageError(const std::vector<std::string>& arguments) {
  try {
    (void)parseOptions(arguments);
  } catch (const UsageError& error) {
    return error.what();
  }
  return "no error";
}

TEST(PowermetricsOptionsTest, ArgumentsOfTheCollectorAreUnderstood) {
  const Options options = parseOptions({"--samplers", "tasks,cpu_power,gpu_power,thermal,smc",
                                        "--show-process-netstats", "--show-process-energy", "--sample-count",
                                        "1", "--sample-rate", "1000", "--format", "plist"});
  EXPECT_TRUE(options.tasks && options.cpuPower && options.gpuPower && options.thermal && options.smc);
  EXPECT_TRUE(options.processNetstats && options.processEnergy);
  EXPECT_EQ(options.sampleCount, 1U);
  EXPECT_EQ(options.sampleMilliseconds, 1'000U);
  EXPECT_FALSE(options.help);
}

TEST(PowermetricsOptionsTest, WithoutArgumentsEverySamplerRunsForOneSecond) {
  const Options options = parseOptions({});
  EXPECT_TRUE(options.tasks && options.cpuPower && options.gpuPower && options.thermal && options.smc);
  EXPECT_FALSE(options.processNetstats || options.processEnergy);
  EXPECT_EQ(options.sampleCount, 1U);
  EXPECT_EQ(options.sampleMilliseconds, 1'000U);
}

TEST(PowermetricsOptionsTest, OnlyNamedSamplersRun) {
  const Options options = parseOptions({"--samplers=smc,tasks"});
  EXPECT_TRUE(options.tasks && options.smc);
  EXPECT_FALSE(options.cpuPower || options.gpuPower || options.thermal);
}

TEST(PowermetricsOptionsTest, SamplersMustBeKnownAndNamedOnce) {
  EXPECT_EQ(usageError({"--samplers", "tasks,disk"}),
            "--samplers: \"disk\" is not one of tasks, cpu_power, gpu_power, thermal, smc.");
  EXPECT_THAT(usageError({"--samplers", "tasks,"}), StartsWith("--samplers: \"\" is not one of"));
  EXPECT_THAT(usageError({"--samplers", "Tasks"}), StartsWith("--samplers: \"Tasks\" is not one of"));
  EXPECT_THAT(usageError({"--samplers", " tasks"}), StartsWith("--samplers: \" tasks\" is not one of"));
  EXPECT_EQ(usageError({"--samplers", "smc,tasks,smc"}), "--samplers: smc is named twice.");
}

TEST(PowermetricsOptionsTest, NumbersIncludeBothBounds) {
  EXPECT_EQ(parseOptions({"--sample-count", "1"}).sampleCount, 1U);
  EXPECT_EQ(parseOptions({"--sample-count", "1000000"}).sampleCount, 1'000'000U);
  EXPECT_EQ(parseOptions({"--sample-rate", "10"}).sampleMilliseconds, 10U);
  EXPECT_EQ(parseOptions({"--sample-rate", "90000"}).sampleMilliseconds, 90'000U);
  EXPECT_EQ(usageError({"--sample-count", "0"}),
            "--sample-count: \"0\" is not a whole number from 1 to 1000000.");
  EXPECT_EQ(usageError({"--sample-rate", "90001"}),
            "--sample-rate: \"90001\" is not a whole number from 10 to 90000.");
  for (const char* text :
       {"1000001", "-1", "+1", "1.0", "1e3", "0x10", " 1", "1 ", "one", "", "18446744073709551617"}) {
    EXPECT_THAT(usageError({"--sample-count", text}), StartsWith("--sample-count: ")) << text;
  }
  EXPECT_THAT(usageError({"--sample-rate", "9"}), StartsWith("--sample-rate: \"9\""));
}

TEST(PowermetricsOptionsTest, OnlyFormatIsPlist) {
  EXPECT_EQ(usageError({"--format", "text"}), "--format: \"text\" is not plist.");
  EXPECT_EQ(usageError({"--format", "PLIST"}), "--format: \"PLIST\" is not plist.");
  EXPECT_NO_THROW((void)parseOptions({"--format", "plist"}));
}

TEST(PowermetricsOptionsTest, EverythingElseIsRefusedByName) {
  EXPECT_THAT(usageError({"--bogus"}), HasSubstr("--bogus"));
  EXPECT_THAT(usageError({"extra"}), HasSubstr("extra"));
  EXPECT_THAT(usageError({"--samplers"}), HasSubstr("--samplers"));
  EXPECT_THAT(usageError({"--sample-count", "1", "--sample-count", "2"}), HasSubstr("--sample-count"));
  EXPECT_THAT(usageError({"--sample"}), HasSubstr("--sample"));
}

TEST(PowermetricsOptionsTest, HelpWinsOverTheRest) {
  EXPECT_TRUE(parseOptions({"--help"}).help);
  EXPECT_TRUE(parseOptions({"-h"}).help);
}

TEST(PowermetricsOptionsTest, HelpListsTheExtraSamplerWhereItsReadersLook) {
  EXPECT_THAT(helpText(), HasSubstr("\n  smc "));
  for (const char* word : {"--samplers", "--show-process-netstats", "--show-process-energy", "--sample-count",
                           "--sample-rate", "--format", "Exit status:"}) {
    EXPECT_THAT(helpText(), HasSubstr(word));
  }
}

}  // namespace
}  // namespace monitor::powermetrics
