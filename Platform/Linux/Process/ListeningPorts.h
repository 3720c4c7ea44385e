// SPDX-License-Identifier: MIT
#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Platform/Linux/Process/ListeningSockets.h"
#include "Platform/Linux/Process/ProcFolder.h"

namespace monitor::platform {

// The listening sockets of this program's network namespace; nothing when they cannot be asked for.
using ListenerDump = std::function<std::optional<ListeningSockets>()>;

// The sockets that one process had open when its descriptors were last walked, and what is known to have
// happened to it since.
struct HeldSockets {
  struct Held {
    std::uint64_t inode = 0;
    std::int32_t descriptor = 0;
  };
  std::vector<Held> sockets;
  std::uint64_t network = 0;     // its network namespace; 0 for the one of this program
  std::uint64_t generation = 0;  // of the listening sockets, at that walk
  bool networkKnown = false;
  bool known = false;  // false: never walked, or another program since
  bool ran = true;     // its descriptors may be others by now
  bool due = false;    // to be walked if it ran, although nothing else asks for it

  // Another program, or so much time that nothing is to be relied on.
  void forgetProgram() { networkKnown = known = false; }
  void becomeDue() {
    networkKnown = false;
    due = true;
  }
};

// Finds out which listening sockets are a process's. A walk over descriptors costs more than everything else
// that is read of a process, and hardly any process listens: so the sockets are asked of the kernel once a
// pass, and only those processes are walked whose descriptors may lead to one in a way that is not known yet.
//
// A process that did not run has the descriptors it had. One that ran may have others, but they can only
// matter when there is a listening socket that there was not at its last walk, or when one that it had is no
// longer where it was. What that misses is a socket that listens for long and is handed to a process that
// runs for long; `due` is for that. One caller at a time.
class ListeningPorts {
 public:
  // Without a dump the tables net/tcp and net/tcp6 are read. `proc` must outlive this.
  ListeningPorts(const ProcFolder& proc, std::string root, ListenerDump dump);

  // What was read of the sockets is out of date.
  void beginPass();
  // Distinct ports, ascending.
  [[nodiscard]] std::vector<std::int64_t> portsOf(std::int32_t pid, HeldSockets& held);

 private:
  void readOwnNetwork();
  void readNetworkOf(std::int32_t pid, std::uint64_t network);
  void add(const ListeningSockets& sockets);
  void addTables(const std::string& folder);
  [[nodiscard]] std::uint64_t foreignNetwork(std::int32_t pid) const;
  [[nodiscard]] std::uint64_t networkIn(const std::optional<std::string_view>& link) const;
  [[nodiscard]] bool needsWalk(std::int32_t pid, const HeldSockets& held) const;
  [[nodiscard]] bool listenersAreWhereTheyWere(std::int32_t pid, const HeldSockets& held) const;
  void walk(std::int32_t pid, HeldSockets& held) const;

  const ProcFolder& proc_;
  std::string root_;
  ListenerDump dump_;
  ListeningSockets sockets_;
  ListeningSockets before_;       // those of the last pass that asked
  std::set<std::uint64_t> read_;  // networks read in this pass; 0 is this program's
  std::uint64_t ownNetwork_ = 0;
  std::uint64_t generation_ = 1;  // grows with every socket that was not there before
};

}  // namespace monitor::platform
