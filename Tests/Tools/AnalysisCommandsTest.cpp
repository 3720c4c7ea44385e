// SPDX-License-Identifier: MIT
#include <gmock/gmock.h>

#include <cstdlib>
#include <sstream>

#include "Tools/vesk/CommandLine.h"

namespace monitor::vesk {
namespace {

using ::testing::HasSubstr;
using ::testing::StartsWith;

constexpr const char* kRecording = VESK_FIXTURES "/recordings/build.jsonl";
constexpr const char* kPower = VESK_FIXTURES "/power/sample.plist";

struct Outcome {
  ExitCode code;
  std::string out;
  std::string err;
};

Outcome run(const std::vector<std::string>& arguments) {
  CommandLine commandLine;
  std::ostringstream out;
  std::ostringstream err;
  const ExitCode code = commandLine.run(arguments, {out, err, {}, {}});
  return {code, out.str(), err.str()};
}

TEST(ReplayCommand, ShowsAlertsWithTheirTimes) {
  const Outcome outcome = run({"replay", kRecording, "--alerts"});
  EXPECT_EQ(outcome.code, ExitCode::Ok);
  EXPECT_THAT(outcome.out, HasSubstr("Editor is busy"));
  EXPECT_THAT(outcome.out, HasSubstr("CPU stayed above 80% of one core."));
  const Outcome json = run({"replay", kRecording, "--alerts", "--json"});
  EXPECT_EQ(
      json.out,
      R"([{"timestamp":785585460.0,"since":785584860.0,"id":"org.example.editor|cpu",)"
      R"("appID":"org.example.editor","title":"Editor is busy","detail":"CPU stayed above 80% of one core."}])"
      "\n");
}

TEST(ReplayCommand, ShowsProjectsWithTheirIdleTimes) {
  const Outcome outcome = run({"replay", kRecording, "--projects"});
  EXPECT_EQ(outcome.code, ExitCode::Ok);
  EXPECT_THAT(outcome.out, HasSubstr("/home/me/shop"));
  EXPECT_THAT(outcome.out, HasSubstr("0:08:00"));
  EXPECT_THAT(run({"replay", kRecording, "--projects", "--json"}).out, HasSubstr("\"idleSeconds\":480.0"));
}

TEST(ReplayCommand, ShowsTheAppsOfTheLastSample) {
  const Outcome outcome = run({"replay", kRecording, "--apps"});
  EXPECT_EQ(outcome.code, ExitCode::Ok);
  EXPECT_THAT(outcome.out, HasSubstr("101.0"));
  EXPECT_THAT(run({"replay", kRecording, "--apps", "--json"}).out,
              StartsWith(R"([{"id":"org.example.editor","name":"Editor")"));
}

TEST(ReplayCommand, WantsExactlyOneThingToShow) {
  EXPECT_EQ(run({"replay", kRecording}).code, ExitCode::Usage);
  EXPECT_EQ(run({"replay", kRecording, "--apps", "--alerts"}).code, ExitCode::Usage);
}

TEST(ReplayCommand, NamesTheFileThatIsMissingOrWrong) {
  EXPECT_THAT(run({"replay", "/no/such/file", "--apps"}).err, HasSubstr("/no/such/file: No such file"));
  const Outcome wrong = run({"replay", kPower, "--apps"});
  EXPECT_EQ(wrong.code, ExitCode::Failed);
  EXPECT_THAT(wrong.err, HasSubstr("sample.plist:1: not valid JSON"));
  EXPECT_THAT(run({"replay", kRecording, "--alerts", "--preferences", kPower}).err,
              HasSubstr("sample.plist: not valid JSON"));
}

TEST(ParsePowerCommand, ShowsStatusReadingsAndKnownProcesses) {
  const Outcome outcome =
      run({"parse-power", kPower, "--identities", VESK_FIXTURES "/power/identities.json"});
  EXPECT_EQ(outcome.code, ExitCode::Ok);
  EXPECT_THAT(outcome.out, StartsWith("Connected \xC2\xB7 4 hardware readings available.\n"));
  EXPECT_THAT(outcome.out, HasSubstr("fanRPM"));
  EXPECT_THAT(outcome.out, HasSubstr("977:1731712400000000"));
  EXPECT_THAT(run({"parse-power", kPower}).out, ::testing::Not(HasSubstr("977:")));
}

TEST(ParsePowerCommand, PrintsJson) {
  const Outcome outcome = run({"parse-power", kPower, "--json"});
  EXPECT_THAT(outcome.out, StartsWith("{\"sample\":{\"timestamp\":"));
  EXPECT_THAT(outcome.out, HasSubstr("\"status\":\"Connected"));
}

TEST(ParsePowerCommand, NamesTheFileThatIsWrong) {
  const Outcome outcome = run({"parse-power", kRecording});
  EXPECT_EQ(outcome.code, ExitCode::Failed);
  EXPECT_THAT(outcome.err, HasSubstr("build.jsonl: The property list is not valid: an element was expected"));
}

}  // namespace
}  // namespace monitor::vesk
