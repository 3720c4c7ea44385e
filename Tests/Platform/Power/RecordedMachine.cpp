// SPDX-License-Identifier: MIT
#include "Tests/Platform/Power/RecordedMachine.h"

#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <string_view>

namespace monitor::platform {
namespace fs = std::filesystem;

RecordedMachine::RecordedMachine(const std::string& text, double interval) : end_(clock_.time + interval) {
  constexpr std::string_view kFile = "== ";
  constexpr std::string_view kGone = "-- ";
  constexpr std::string_view kArrow = " -> ";
  Steps before;
  Steps* steps = &before;
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) {
    if (line == "@during" || line == "@after") {
      steps = line == "@during" ? &during_ : &after_;
    } else if (line.starts_with(kGone)) {
      steps->push_back({Step::Kind::Gone, line.substr(kGone.size()), {}});
    } else if (line.starts_with(kFile)) {
      const std::string path = line.substr(kFile.size());
      const std::size_t arrow = path.find(kArrow);
      if (arrow != std::string::npos) {
        steps->push_back({Step::Kind::Link, path.substr(0, arrow), path.substr(arrow + kArrow.size())});
      } else {
        steps->push_back({path.ends_with('/') ? Step::Kind::Folder : Step::Kind::File, path, {}});
      }
    } else if (!steps->empty()) {
      steps->back().content += line + '\n';
    } else if (!line.starts_with("#")) {
      throw std::runtime_error("a line before the first file: " + line);
    }
  }
  apply(before);
}

std::string RecordedMachine::textOf(const std::string& name) {
  const fs::path path = fs::path(VESK_FIXTURES) / "power/machines" / (name + ".tree");
  std::ifstream file(path, std::ios::binary);
  if (!file) throw std::runtime_error(path.string() + " cannot be read");
  std::ostringstream text;
  text << file.rdbuf();
  return text.str();
}

PowerSources RecordedMachine::sources() {
  return {tree_.root(), sockets_, clock_, [this](double seconds) { wait(seconds); }};
}

void RecordedMachine::wait(double seconds) {
  constexpr double kRounding = 1e-9;
  clock_.time += seconds;
  apply(clock_.time >= end_ - kRounding ? after_ : during_);
}

void RecordedMachine::apply(const Steps& steps) {
  for (const Step& step : steps) {
    switch (step.kind) {
      case Step::Kind::File:
        tree_.file(step.path, step.content);
        break;
      case Step::Kind::Folder:
        tree_.folder(step.path);
        break;
      case Step::Kind::Link:
        fs::create_directories((tree_.root() / step.path).parent_path());
        fs::remove(tree_.root() / step.path);
        fs::create_symlink(step.content, tree_.root() / step.path);
        break;
      case Step::Kind::Gone:
        tree_.remove(step.path);
        break;
    }
  }
}

std::optional<std::vector<TcpSocket>> RecordedMachine::ListedSockets::read(const char* name) const {
  const auto text = tree_.files().text(name);
  if (!text) return std::nullopt;
  std::vector<TcpSocket> sockets;
  std::istringstream numbers(*text);
  for (TcpSocket socket; numbers >> socket.cookie >> socket.inode >> socket.received >> socket.sent;) {
    sockets.push_back(socket);
  }
  return sockets;
}

}  // namespace monitor::platform
