// SPDX-License-Identifier: MIT
#include "Tools/vesk/CommandLine.h"

#include <gmock/gmock.h>

#include <memory>
#include <sstream>
#include <stdexcept>

namespace monitor::vesk {
namespace {

using testing::HasSubstr;
using testing::StartsWith;

struct Outcome {
  ExitCode code;
  std::string out;
  std::string err;
};

Outcome run(CommandLine& commandLine, const std::vector<std::string>& arguments) {
  std::ostringstream out;
  std::ostringstream err;
  const Console console{out, err, {}, {}};
  const ExitCode code = commandLine.run(arguments, console);
  return {code, out.str(), err.str()};
}

TEST(CommandLine, PrintsVersionAndHelpOnStandardOutput) {
  CommandLine commandLine;
  const Outcome version = run(commandLine, {"--version"});
  EXPECT_EQ(version.code, ExitCode::Ok);
  EXPECT_THAT(version.out, StartsWith("vesk "));
  EXPECT_EQ(version.err, "");
  const Outcome help = run(commandLine, {"--help"});
  EXPECT_EQ(help.code, ExitCode::Ok);
  EXPECT_THAT(help.out, HasSubstr("Exit status:"));
  EXPECT_EQ(help.err, "");
}

TEST(CommandLine, RefusesNoCommandAndUnknownCommandsAsUsage) {
  for (const std::vector<std::string>& arguments :
       {std::vector<std::string>{}, {"no-such-command"}, {"--no-such-option"}}) {
    CommandLine commandLine;
    const Outcome outcome = run(commandLine, arguments);
    EXPECT_EQ(outcome.code, ExitCode::Usage);
    EXPECT_EQ(outcome.out, "");
    EXPECT_THAT(outcome.err, StartsWith("vesk: "));
  }
}

TEST(CommandLine, RunsTheChosenActionWithItsOptions) {
  CommandLine commandLine;
  const auto name = std::make_shared<std::string>();
  commandLine
      .add("Test", "greet", "Greet somebody",
           [name](const Console& console) {
             console.out << "hello " << *name << '\n';
             return ExitCode::Ok;
           })
      .add_option("NAME", *name, "Whom")
      ->required();
  const Outcome outcome = run(commandLine, {"greet", "you"});
  EXPECT_EQ(outcome.code, ExitCode::Ok);
  EXPECT_EQ(outcome.out, "hello you\n");
  EXPECT_EQ(run(commandLine, {"greet"}).code, ExitCode::Usage);
}

TEST(CommandLine, PrintsEveryLineOfAnErrorAfterTheProgramsName) {
  CommandLine commandLine;
  commandLine.add("Test", "refuse", "Fail", [](const Console& console) -> ExitCode {
    console.out << "part\n";
    throw CommandError(ExitCode::NoMatch, "First.\nSecond.");
  });
  const Outcome outcome = run(commandLine, {"refuse"});
  EXPECT_EQ(outcome.code, ExitCode::NoMatch);
  EXPECT_EQ(outcome.out, "part\n");
  EXPECT_EQ(outcome.err, "vesk: First.\nvesk: Second.\n");
}

TEST(CommandLine, CountsAnyOtherExceptionAsAFailedOperation) {
  CommandLine commandLine;
  commandLine.add("Test", "break", "Fail",
                  [](const Console&) -> ExitCode { throw std::runtime_error("It broke."); });
  const Outcome outcome = run(commandLine, {"break"});
  EXPECT_EQ(outcome.code, ExitCode::Failed);
  EXPECT_EQ(outcome.err, "vesk: It broke.\n");
}

TEST(CommandLine, SaysThatStandardOutputCouldNotBeWritten) {
  CommandLine commandLine;
  commandLine.add("Test", "print", "Print", [](const Console& console) {
    console.out.setstate(std::ios::badbit);
    return ExitCode::Ok;
  });
  const Outcome outcome = run(commandLine, {"print"});
  EXPECT_EQ(outcome.code, ExitCode::Failed);
  EXPECT_EQ(outcome.err, "vesk: Standard output cannot be written.\n");
}

}  // namespace
}  // namespace monitor::vesk
