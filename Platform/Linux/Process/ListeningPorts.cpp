// SPDX-License-Identifier: MIT
#include "Platform/Linux/Process/ListeningPorts.h"

#include <unistd.h>

#include <algorithm>
#include <array>
#include <charconv>
#include <string_view>
#include <system_error>
#include <utility>

#include "Platform/Linux/Base/Folder.h"
#include "Platform/Linux/Process/BoundedFile.h"

namespace monitor::platform {
namespace {

// The listening sockets come first in these tables, so that a cut at the end costs none of them.
constexpr std::size_t kSocketTableBytes = 4U << 20U;
constexpr std::size_t kMostDescriptors = 1U << 20U;
// Of links to sockets and namespaces; a longer one leads to neither.
using LinkBuffer = std::array<char, 64>;

Folder openDescriptors(const ProcFolder& proc, std::int32_t pid) {
  FileDescriptor descriptor = proc.open(pid, "fd");
  Folder folder(descriptor.valid() ? ::fdopendir(descriptor.get()) : nullptr);
  if (folder != nullptr) descriptor.release();
  return folder;
}

std::optional<std::uint64_t> inodeBehind(int folder, const char* name) {
  LinkBuffer buffer;
  const ssize_t length = ::readlinkat(folder, name, buffer.data(), buffer.size());
  if (length <= 0) return std::nullopt;
  return socketInode(std::string_view(buffer.data(), static_cast<std::size_t>(length)));
}

std::int32_t descriptorNumber(std::string_view name) {
  std::int32_t number = -1;
  std::from_chars(name.data(), name.data() + name.size(), number);
  return number;
}

}  // namespace

ListeningPorts::ListeningPorts(const ProcFolder& proc, std::string root, ListenerDump dump)
    : proc_(proc), root_(std::move(root)), dump_(std::move(dump)) {}

void ListeningPorts::beginPass() {
  if (read_.empty()) return;
  before_ = std::move(sockets_);
  sockets_.clear();
  read_.clear();
}

std::vector<std::int64_t> ListeningPorts::portsOf(std::int32_t pid, HeldSockets& held) {
  if (!read_.contains(0)) readOwnNetwork();
  if (!held.networkKnown) held.network = foreignNetwork(pid);
  held.networkKnown = true;
  if (held.network != 0 && !read_.contains(held.network)) readNetworkOf(pid, held.network);
  if (sockets_.empty()) return {};
  if (needsWalk(pid, held)) walk(pid, held);
  std::vector<std::int64_t> ports;
  for (const HeldSockets::Held& each : held.sockets) {
    const auto socket = sockets_.find(each.inode);
    if (socket != sockets_.end()) ports.push_back(socket->second);
  }
  std::sort(ports.begin(), ports.end());
  ports.erase(std::unique(ports.begin(), ports.end()), ports.end());
  return ports;
}

void ListeningPorts::readOwnNetwork() {
  read_.insert(0);
  LinkBuffer buffer;
  ownNetwork_ = networkIn(proc_.link(::getpid(), "ns/net", buffer));
  if (auto sockets = dump_ ? dump_() : std::nullopt) {
    add(*sockets);
  } else {
    addTables(root_ + "/net");
  }
}

void ListeningPorts::readNetworkOf(std::int32_t pid, std::uint64_t network) {
  read_.insert(network);
  addTables(root_ + '/' + std::to_string(pid) + "/net");
}

void ListeningPorts::addTables(const std::string& folder) {
  ListeningSockets sockets;
  for (const char* table : {"/tcp", "/tcp6"}) {
    if (const auto text = readBeginning(folder + table, kSocketTableBytes)) {
      addListeningSockets(*text, sockets);
    }
  }
  add(sockets);
}

void ListeningPorts::add(const ListeningSockets& sockets) {
  for (const auto& [inode, port] : sockets) {
    if (!before_.contains(inode) && !sockets_.contains(inode)) ++generation_;
    sockets_.emplace(inode, port);
  }
}

// The number in "net:[4026531840]", 0 when it is not known.
std::uint64_t ListeningPorts::networkIn(const std::optional<std::string_view>& link) const {
  constexpr std::string_view kPrefix = "net:[";
  std::uint64_t number = 0;
  if (link && link->starts_with(kPrefix)) {
    std::from_chars(link->data() + kPrefix.size(), link->data() + link->size(), number);
  }
  return number;
}

std::uint64_t ListeningPorts::foreignNetwork(std::int32_t pid) const {
  LinkBuffer buffer;
  const std::uint64_t network = networkIn(proc_.link(pid, "ns/net", buffer));
  return network == ownNetwork_ ? 0 : network;
}

bool ListeningPorts::needsWalk(std::int32_t pid, const HeldSockets& held) const {
  if (!held.known) return true;
  if (!held.ran) return false;
  return held.due || held.generation != generation_ || !listenersAreWhereTheyWere(pid, held);
}

bool ListeningPorts::listenersAreWhereTheyWere(std::int32_t pid, const HeldSockets& held) const {
  LinkBuffer buffer;
  return std::all_of(held.sockets.begin(), held.sockets.end(), [&](const HeldSockets::Held& each) {
    if (!sockets_.contains(each.inode)) return true;
    const std::string name = "fd/" + std::to_string(each.descriptor);
    const auto link = proc_.link(pid, name.c_str(), buffer);
    return link && socketInode(*link) == each.inode;
  });
}

void ListeningPorts::walk(std::int32_t pid, HeldSockets& held) const {
  held.sockets.clear();
  held.known = true;
  held.ran = false;
  held.due = false;
  held.generation = generation_;
  const Folder folder = openDescriptors(proc_, pid);
  if (folder == nullptr) return;
  std::size_t seen = 0;
  while (const dirent* entry = ::readdir(folder.get())) {
    if (++seen > kMostDescriptors) break;
    const auto inode = inodeBehind(::dirfd(folder.get()), entry->d_name);
    if (inode) held.sockets.push_back({*inode, descriptorNumber(entry->d_name)});
  }
}

}  // namespace monitor::platform
