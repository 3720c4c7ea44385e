// SPDX-License-Identifier: MIT
// The real helper and the real command on a private system bus, with a tool that makes its figures up.
#include <gmock/gmock.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <mutex>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "Tests/Integration/Helper/HelperWorld.h"

namespace monitor::tests {
namespace {

using testing::HasSubstr;
using testing::Not;

bool has(const AdvancedSample& sample, pid_t pid) {
  return std::any_of(sample.processes.begin(), sample.processes.end(),
                     [pid](const auto& process) { return process.key.pid == pid; });
}

// Waits until the process runs as `user`: it is root until setpriv is done.
bool waitForOwner(pid_t pid, uid_t user) {
  for (int i = 0; i < 6000; ++i) {
    std::ifstream file("/proc/" + std::to_string(pid) + "/status");
    const std::string text{std::istreambuf_iterator<char>(file), {}};
    const std::string id = std::to_string(user);
    if (text.find("Uid:\t" + id + "\t" + id) != std::string::npos) return true;
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  return false;
}

class HelperOnBus : public testing::Test {
 protected:
  void SetUp() override {
    if (::getuid() != 0 && std::filesystem::exists("/run/systemd/seats")) {
      GTEST_SKIP() << "the login manager decides whether this user is served; as root it does not";
    }
  }
};

TEST_F(HelperOnBus, GivesASampleToItsFirstCallerAndRoundsWatts) {
  const HelperWorld world;
  EXPECT_EQ(world.bus.ownerOf(kHelperName), 0);
  const auto sample = world.sample();
  EXPECT_NE(world.bus.ownerOf(kHelperName), 0);
  ASSERT_EQ(sample.readings.count(MetricID::PowerWatts), 1U);
  EXPECT_EQ(sample.readings.at(MetricID::PowerWatts).value, 12.3);
  EXPECT_EQ(sample.readings.at(MetricID::PowerWatts).source, "Apple powermetrics");
  EXPECT_EQ(sample.interval, 0.2);
  EXPECT_TRUE(has(sample, ::getpid()));
}

TEST_F(HelperOnBus, CommandShowsTheStatusAndTheReadings) {
  const HelperWorld world;
  const auto run = world.vesk({"advanced"});
  EXPECT_EQ(run.status, 0) << run.output;
  EXPECT_THAT(run.output, HasSubstr("Connected \u00B7 1 hardware reading available.\n"));
  EXPECT_THAT(run.output, HasSubstr("powerWatts"));
  EXPECT_THAT(run.output, HasSubstr("12.3"));
  EXPECT_THAT(run.output, HasSubstr("helper_integration_tests\n"));  // this process, by name
}

TEST_F(HelperOnBus, SamplingCommandsMergeWhatItMeasures) {
  const HelperWorld world;
  // The command waits for the helper for a few seconds only, so a slow machine may need another go.
  for (int attempt = 0; attempt < 6; ++attempt) {
    const auto run = world.vesk({"sample", "--json"});
    ASSERT_EQ(run.status, 0) << run.output;
    if (run.output.find("\"powerWatts\"") == std::string::npos) continue;
    EXPECT_THAT(run.output, HasSubstr("\"advancedTimestamp\""));
    EXPECT_THAT(run.output, HasSubstr("Connected \u00B7 1 hardware reading available."));
    EXPECT_THAT(run.output, HasSubstr("\"energy\":1"));
    return;
  }
  FAIL() << "no sample of the helper arrived";
}

TEST_F(HelperOnBus, TellsTwoUsersTenCallersNothingOfEachOther) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can become other users";
  if (!LoginManager::works()) GTEST_SKIP() << LoginManager::kWhyNot;
  const Users users = twoUsers();
  const LoginManager login;
  login.say(users.anna, "seat0", "seat0");
  login.say(users.bert, "seat1", "seat1");
  const HelperWorld world({.through = login.through()});
  const auto anna = sleeperOf(users.anna, world.bus.environment());
  const auto bert = sleeperOf(users.bert, world.bus.environment());
  ASSERT_TRUE(waitForOwner(anna.pid(), users.anna));
  ASSERT_TRUE(waitForOwner(bert.pid(), users.bert));

  std::mutex mutex;
  std::vector<std::pair<uid_t, AdvancedSample>> samples;
  std::string problems;
  std::vector<std::thread> callers;
  for (int i = 0; i < 10; ++i) {
    callers.emplace_back([&, user = i % 2 == 0 ? users.anna : users.bert] {
      try {
        auto sample = world.sample(user);
        const std::lock_guard lock(mutex);
        samples.emplace_back(user, std::move(sample));
      } catch (const std::exception& error) {
        const std::lock_guard lock(mutex);
        problems += error.what();
      }
    });
  }
  for (auto& caller : callers) caller.join();

  EXPECT_EQ(problems, "");
  ASSERT_EQ(samples.size(), 10U);
  for (const auto& [user, sample] : samples) {
    EXPECT_TRUE(has(sample, user == users.anna ? anna.pid() : bert.pid())) << user;
    EXPECT_FALSE(has(sample, user == users.anna ? bert.pid() : anna.pid())) << user;
    EXPECT_FALSE(has(sample, ::getpid())) << "root's process for " << user;
  }
  EXPECT_LE(world.installation.runs(), 10U);
}

TEST_F(HelperOnBus, IntrospectsJustWhatThePackageDeclares) {
  const HelperWorld world;
  const auto interfaces = [&](const std::string& source) {
    return world.bus.run({"sh", "-c", source + " | python3 " VESK_IPC_TESTS "/interfaces.py"}).output;
  };
  const auto live = interfaces("busctl --address=" + world.bus.address() + " introspect --xml-interface " +
                               kHelperName + " /app/vesk/native/monitor_helper");
  EXPECT_EQ(live,
            "app.vesk.native.MonitorHelper\n"
            "app.vesk.native.MonitorHelper method Collect(out ay data, out s message)\n");
  EXPECT_EQ(interfaces("cat " VESK_PACKAGING "/app.vesk.native.MonitorHelper.xml"), live);
}

// Sends without end what it also receives. The system's own interpreter: another one may be root's alone.
constexpr const char* kTalker = R"(
import socket, time
listener = socket.create_server(("127.0.0.1", 0))
sender = socket.create_connection(listener.getsockname())
receiver, _ = listener.accept()
while True:
    sender.sendall(bytes(1000))
    receiver.recv(1000)
    time.sleep(0.01)
)";

TEST_F(HelperOnBus, RealToolReadsOtherUsersProcessesWithTheCapabilitiesOfTheUnit) {
  if (::getuid() != 0) GTEST_SKIP() << "only root can become other users";
  if (!LoginManager::works()) GTEST_SKIP() << LoginManager::kWhyNot;
  const Users users = twoUsers();
  const LoginManager login;
  login.say(users.anna, "seat0", "seat0");
  auto through = login.through();
  for (const char* word :
       {"setpriv", "--bounding-set=-all,+dac_read_search,+net_admin,+sys_ptrace", "--inh-caps=-all"}) {
    through.emplace_back(word);
  }
  const HelperWorld world({.through = through});
  world.installation.useRealTool();
  lab::SpawnOptions spawn;
  spawn.command = asUser(users.anna, {"/usr/bin/python3", "-c", kTalker});
  spawn.environment = world.bus.environment();
  const lab::ChildProcess talker(spawn);
  ASSERT_TRUE(waitForOwner(talker.pid(), users.anna));

  for (int attempt = 0; attempt < 10; ++attempt) {
    for (const auto& process : world.sample(users.anna).processes) {
      if (process.key.pid == talker.pid() && process.upload > 0.0 && process.download > 0.0) return;
    }
  }
  FAIL() << "no traffic of the other user's process was seen";
}

TEST_F(HelperOnBus, MessageOfAFailedRunIsShown) {
  const HelperWorld world;
  world.installation.setTool("fail");
  const auto run = world.vesk({"advanced"});
  EXPECT_EQ(run.status, 1);
  EXPECT_EQ(run.output, "vesk: macOS could not collect the optional hardware readings.\n");
  const auto json = world.vesk({"advanced", "--json"});
  EXPECT_THAT(json.output,
              HasSubstr("{\"status\":\"macOS could not collect the optional hardware readings.\"}\n"));
  world.installation.setTool("");
  EXPECT_EQ(world.vesk({"advanced"}).status, 0);
}

TEST_F(HelperOnBus, ToolThatIsNotThereIsNamed) {
  const HelperWorld world;
  world.installation.removeTool();
  const auto run = world.vesk({"advanced"});
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, HasSubstr("vesk-powermetrics could not be started (error 2)."));
}

TEST_F(HelperOnBus, HelperKilledDuringACallIsAnErrorAtOnceAndTheNextCallStartsAnother) {
  const HelperWorld world;
  world.installation.setTool("slow");
  HelperWorld::Run run;
  std::thread caller([&] { run = world.vesk({"advanced"}); });
  const bool began = world.waitForRuns(1);
  const pid_t killed = world.bus.ownerOf(kHelperName);
  if (killed > 0) ::kill(killed, SIGKILL);
  caller.join();
  ASSERT_TRUE(began);
  ASSERT_GT(killed, 0);
  EXPECT_EQ(run.status, 1);
  EXPECT_THAT(run.output, HasSubstr("vesk: "));
  EXPECT_THAT(run.output, Not(HasSubstr("did not return readings"))) << "that is the text of the time-out";

  world.installation.setTool("");
  EXPECT_EQ(world.vesk({"advanced"}).status, 0);
  EXPECT_NE(world.bus.ownerOf(kHelperName), killed);
}

TEST_F(HelperOnBus, SigtermDuringARunEndsWellAfterIt) {
  HelperWorld world;
  lab::SpawnOptions spawn;
  spawn.command = {world.installation.helper()};
  spawn.environment = world.bus.environment();
  spawn.log = world.bus.directory() / "helper.log";
  lab::ChildProcess helper(spawn);
  for (int i = 0; i < 3000 && world.bus.ownerOf(kHelperName) == 0; ++i) ::usleep(10'000);
  world.installation.setTool("slow");
  std::thread caller([&] { (void)world.vesk({"advanced"}); });
  const bool began = world.waitForRuns(1);
  helper.signal(SIGTERM);
  const auto status = helper.wait(lab::Milliseconds(60'000));
  caller.join();
  EXPECT_TRUE(began);
  ASSERT_TRUE(status.has_value());
  EXPECT_TRUE(WIFEXITED(*status));
  EXPECT_EQ(WEXITSTATUS(*status), 0) << lab::fileTail(spawn.log, 10);
}

TEST_F(HelperOnBus, OneThatIsNotEnabledIsNeitherAskedNorStarted) {
  HelperWorld world;
  world.manager.setState("vesk-helper.service", "disabled");
  const auto run = world.vesk({"advanced"});
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.output,
            "vesk: The optional helper is not enabled.\n"
            "vesk: An administrator enables it with: systemctl enable vesk-helper.service\n");
  EXPECT_EQ(world.bus.ownerOf(kHelperName), 0);
}

TEST_F(HelperOnBus, WithoutAServiceManagerThereIsNoHelper) {
  const PrivateBus bus;
  const Installation installation;
  const auto run = bus.run({"sh", "-c", installation.vesk() + " advanced --json 2>&1"});
  EXPECT_EQ(run.status, 3);
  EXPECT_EQ(run.output,
            "{\"status\":\"The optional helper is not installed.\"}\n"
            "vesk: The optional helper is not installed.\n");
}

}  // namespace
}  // namespace monitor::tests
