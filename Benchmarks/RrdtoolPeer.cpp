// SPDX-License-Identifier: MIT
#include "Benchmarks/RrdtoolPeer.h"

#include <fcntl.h>
#include <signal.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <fstream>
#include <stdexcept>
#include <utility>

namespace monitor::bench {

bool RrdtoolPeer::available() {
  return std::system("command -v rrdtool >/dev/null 2>&1") == 0;
}

RrdtoolPeer::RrdtoolPeer(std::filesystem::path folder, std::int64_t start, int apps, int machineWide)
    : folder_(std::move(folder)) {
  std::filesystem::create_directories(folder_);
  int toChild[2];
  int fromChild[2];
  if (pipe2(toChild, O_CLOEXEC) != 0 || pipe2(fromChild, O_CLOEXEC) != 0) throw std::runtime_error("pipe");
  pid_ = fork();
  if (pid_ == 0) {
    dup2(toChild[0], STDIN_FILENO);
    dup2(fromChild[1], STDOUT_FILENO);
    if (chdir(folder_.c_str()) == 0) execlp("rrdtool", "rrdtool", "-", static_cast<char*>(nullptr));
    _exit(127);
  }
  close(toChild[0]);
  close(fromChild[1]);
  in_ = toChild[1];
  out_ = fromChild[0];
  if (pid_ < 0) throw std::runtime_error("fork");

  for (int app = 0; app <= apps; ++app) {
    files_.push_back(app < apps ? "app" + std::to_string(app) + ".rrd" : "machine.rrd");
    series_.push_back(app < apps ? 7 : machineWide);
    std::string command = "create " + files_.back() + " --start " + std::to_string(start) + " --step 2";
    for (int series = 0; series < series_.back(); ++series) {
      command += " DS:s" + std::to_string(series) + ":GAUGE:90:U:U";
    }
    command += " RRA:AVERAGE:0.5:30:1440 RRA:MAX:0.5:30:1440 RRA:AVERAGE:0.5:450:2880 RRA:MAX:0.5:450:2880\n";
    send(command, 1);
  }
}

RrdtoolPeer::~RrdtoolPeer() {
  close(in_);  // rrdtool ends with its input
  close(out_);
  waitpid(pid_, nullptr, 0);
}

void RrdtoolPeer::update(std::int64_t time, double value) {
  std::string commands;
  for (std::size_t file = 0; file < files_.size(); ++file) {
    commands += "update " + files_[file] + " " + std::to_string(time);
    for (int series = 0; series < series_[file]; ++series) {
      commands += ':';
      commands += std::to_string(value + series);
    }
    commands += '\n';
  }
  send(commands, static_cast<int>(files_.size()));
}

void RrdtoolPeer::send(const std::string& commands, int replies) {
  // The answers to one snapshot are shorter than a pipe holds, so writing first cannot block for ever.
  for (std::size_t sent = 0; sent < commands.size();) {
    const ssize_t count = write(in_, commands.data() + sent, commands.size() - sent);
    if (count <= 0) throw std::runtime_error("rrdtool stopped reading");
    sent += static_cast<std::size_t>(count);
  }
  std::string text;
  for (int answered = 0; answered < replies;) {
    std::array<char, 65'536> buffer;
    const ssize_t count = read(out_, buffer.data(), buffer.size());
    if (count <= 0) throw std::runtime_error("rrdtool ended");
    for (ssize_t index = 0; index < count; ++index) {
      text += buffer[static_cast<std::size_t>(index)];
      if (text.back() != '\n') continue;
      if (text.starts_with("ERROR")) throw std::runtime_error("rrdtool: " + text);
      if (text.starts_with("OK")) ++answered;
      text.clear();
    }
  }
}

double RrdtoolPeer::cpuMs() const {
  double nanoseconds = 0.0;
  std::ifstream("/proc/" + std::to_string(pid_) + "/schedstat") >> nanoseconds;
  return nanoseconds / 1e6;
}

}  // namespace monitor::bench
