// SPDX-License-Identifier: MIT
#pragma once

#include <sys/types.h>
#include <unistd.h>

#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

#include "MonitorCore/AdvancedSample.h"
#include "Tests/Platform/Helper/ServiceManagerMock.h"
#include "Tests/Platform/Ipc/PrivateBus.h"
#include "Tools/AudioLab/ChildProcess.h"

namespace monitor::tests {

inline constexpr const char* kHelperName = "app.vesk.native.monitor-helper";

// A folder that every user may look into, with the programs as they are installed: the helper, and beside it
// a tool that claims 12.345 W and an energy of 1 for every process there is.
class Installation {
 public:
  Installation();
  ~Installation();
  Installation(const Installation&) = delete;
  Installation& operator=(const Installation&) = delete;

  [[nodiscard]] const std::filesystem::path& folder() const { return folder_; }
  [[nodiscard]] std::string helper() const { return (folder_ / "vesk-helper").string(); }
  [[nodiscard]] std::string vesk() const { return (folder_ / "vesk").string(); }
  // What the tool does from now on: "" works for a fifth of a second, "slow" for five seconds, "fail" exits
  // with 1.
  void setTool(const std::string& mode) const;
  void removeTool() const;
  // Puts the power-metrics tool of this system in the place of the one that makes figures up.
  void useRealTool() const;
  // How often the tool has begun to measure.
  [[nodiscard]] std::size_t runs() const;

 private:
  std::filesystem::path folder_;
};

// The helper as the system bus starts it, and a service manager that says it is enabled.
class HelperWorld {
 public:
  explicit HelperWorld(PrivateBus::Options options = {});

  Installation installation;
  PrivateBus bus;
  ServiceManagerMock manager;

  struct Run {
    int status = 0;
    std::string output;  // of both streams
  };
  // `vesk` with these arguments as `user`; only root may be anybody else. Tried again when the time of the
  // register or of the helper was over.
  [[nodiscard]] Run vesk(const std::vector<std::string>& arguments, uid_t user = ::getuid()) const;
  // The sample of `vesk advanced --json`; std::runtime_error with what it printed when there is none.
  [[nodiscard]] AdvancedSample sample(uid_t user = ::getuid()) const;
  // Waits until the tool has begun to measure for the `count`-th time; false when it does not.
  [[nodiscard]] bool waitForRuns(std::size_t count) const;
};

// What the login manager says of users and seats, in the files that its library reads. A bus and a helper
// with a view of the file system of their own find them in place of the machine's.
class LoginManager {
 public:
  static constexpr const char* kWhyNot = "no view of the file system of its own is to be had here";

  LoginManager();
  ~LoginManager();
  LoginManager(const LoginManager&) = delete;
  LoginManager& operator=(const LoginManager&) = delete;
  // Whether such a view is to be had.
  [[nodiscard]] static bool works();

  // The seats where `user` is logged in, and those of them where it is the user's turn.
  void say(uid_t user, const std::string& online, const std::string& active) const;
  // Becomes its last argument, in that view.
  [[nodiscard]] std::vector<std::string> through() const;

 private:
  std::filesystem::path folder_;
};

// Two users of this system who are not root. The bus admits nobody whom the system does not know.
struct Users {
  uid_t anna;
  uid_t bert;
};
[[nodiscard]] Users twoUsers();

// The command as `user`, whom only root may become.
[[nodiscard]] std::vector<std::string> asUser(uid_t user, std::vector<std::string> command);

// A process that does nothing, as `user`.
[[nodiscard]] lab::ChildProcess sleeperOf(uid_t user, const lab::Environment& environment);

}  // namespace monitor::tests
