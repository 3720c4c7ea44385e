// SPDX-License-Identifier: MIT
#include "Tests/Platform/Machines/RecordedMachine.h"

#include <sstream>
#include <stdexcept>
#include <utility>

namespace monitor::platform {
namespace {

std::string unescaped(const std::string& word) {
  std::string result;
  for (std::size_t index = 0; index < word.size(); ++index) {
    if (word[index] != '\\') {
      result += word[index];
      continue;
    }
    const char kind = word.at(++index);
    if (kind == 'x') {
      result += static_cast<char>(std::stoi(word.substr(index + 1, 2), nullptr, 16));
      index += 2;
    } else {
      result += kind == 'n' ? '\n' : kind == 's' ? ' ' : kind;
    }
  }
  return result;
}

std::vector<std::string> wordsOf(const std::string& line) {
  std::istringstream stream(line);
  std::vector<std::string> words;
  for (std::string word; stream >> word;) words.push_back(word);
  return words;
}

using Figures = std::map<std::string, std::string>;

std::string figure(const Figures& figures, const std::string& key, const std::string& otherwise) {
  const auto found = figures.find(key);
  return found != figures.end() ? found->second : otherwise;
}

// The fields of stat up to the beginning of the stack; a real one has more behind them.
std::string statText(std::int32_t pid, const Figures& figures) {
  const auto get = [&](const char* key, const char* otherwise) { return figure(figures, key, otherwise); };
  return std::to_string(pid) + " (" + get("name", "program") + ") " + get("state", "S") + ' ' +
         get("parent", "1") + " 10 10 " + get("terminal", "0") + " -1 4194560 1 2 3 4 " + get("user", "0") +
         ' ' + get("system", "0") + " 0 0 20 0 " + get("threads", "1") + " 0 " + get("start", "100") +
         " 1000000 " + get("rss", "0") + " 18446744073709551615 1 1 0 0 0\n";
}

std::string schedstatText(const std::string& ran) {
  const std::size_t slash = ran.find('/');
  return ran.substr(0, slash) + " 1000 " + ran.substr(slash + 1) + '\n';
}

}  // namespace

RecordedMachine::RecordedMachine(std::istream& text) {
  for (std::string line; std::getline(text, line);) lines_.push_back(line);
  tree_.folder("proc");  // adapters open it once
}

bool RecordedMachine::next() {
  bool begun = false;
  for (; line_ < lines_.size(); ++line_) {
    const Words words = wordsOf(lines_[line_]);
    if (words.empty() || words.front().starts_with('#')) continue;
    if (words.front() == "moment") {
      if (begun) return true;
      begun = true;
      uptime_ = std::stod(words.at(1));
    } else {
      obey(words, line_);
    }
  }
  return begun;
}

void RecordedMachine::obey(const Words& words, std::size_t& line) {
  const std::string& verb = words.front();
  const std::string& path = words.at(1);
  if (verb == "file") {
    tree_.file(path, contentBehind(line));
  } else if (verb == "link") {
    putLink(path, words.at(2));
  } else if (verb == "folder") {
    tree_.folder(path);
  } else if (verb == "remove") {
    tree_.remove(path);
  } else if (verb == "interface") {
    if (words.at(2) == "gone") {
      interfaces_.erase(path);
    } else {
      interfaces_[path] = {path, std::stoull(words.at(3)), std::stoull(words.at(4)), words.at(2) == "up"};
    }
  } else if (verb == "process") {
    putProcess(std::stoi(path), words);
  } else if (verb == "end") {
    processes_.erase(std::stoi(path));
    tree_.remove("proc/" + path);
  } else {
    throw std::invalid_argument("line " + std::to_string(line + 1) + ": nobody knows \"" + verb + '"');
  }
}

std::string RecordedMachine::contentBehind(std::size_t& line) const {
  std::string content;
  while (line + 1 < lines_.size() && lines_[line + 1].starts_with("|")) {
    ++line;
    content += lines_[line].size() > 2 ? lines_[line].substr(2) : std::string();
    content += '\n';
  }
  return content;
}

void RecordedMachine::putProcess(std::int32_t pid, const Words& words) {
  Figures& figures = processes_[pid];
  for (std::size_t index = 2; index < words.size(); ++index) {
    const std::size_t sign = words[index].find('=');
    if (sign == std::string::npos) throw std::invalid_argument("no figure: " + words[index]);
    figures[words[index].substr(0, sign)] = unescaped(words[index].substr(sign + 1));
  }
  const std::string folder = "proc/" + std::to_string(pid) + '/';
  const auto has = [&figures](const char* key) { return figures.contains(key); };
  tree_.file(folder + "stat", statText(pid, figures));
  tree_.file(folder + "comm", figure(figures, "name", "program") + '\n');
  tree_.file(folder + "status", "Name:\tx\nTgid:\t" + std::to_string(pid) + "\nVmSwap:\t" +
                                    figure(figures, "swap", "0") + " kB\n");
  if (has("resident")) {
    tree_.file(folder + "statm",
               "100000 " + figures["resident"] + ' ' + figure(figures, "shared", "0") + " 1 0 1 0\n");
  }
  if (has("read")) {
    tree_.file(folder + "io", "rchar: 1\nwchar: 2\nsyscr: 3\nsyscw: 4\nread_bytes: " + figures["read"] +
                                  "\nwrite_bytes: " + figure(figures, "written", "0") +
                                  "\ncancelled_write_bytes: 0\n");
  }
  if (has("ran")) tree_.file(folder + "schedstat", schedstatText(figures["ran"]));
  if (has("cgroup")) tree_.file(folder + "cgroup", "0::" + figures["cgroup"] + '\n');
  for (const char* link : {"exe", "cwd", "root"}) {
    if (has(link)) putLink(folder + link, figures[link]);
  }
}

void RecordedMachine::putLink(const std::filesystem::path& path, const std::string& target) const {
  const std::filesystem::path link = tree_.root() / path;
  std::filesystem::create_directories(link.parent_path());
  std::filesystem::remove(link);
  std::filesystem::create_symlink(target, link);
}

std::vector<InterfaceCounter> RecordedMachine::interfaces() const {
  std::vector<InterfaceCounter> list;
  for (const auto& [name, counter] : interfaces_) list.push_back(counter);
  return list;
}

}  // namespace monitor::platform
