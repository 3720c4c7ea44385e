// SPDX-License-Identifier: MIT
#pragma once

#include <stdexcept>

namespace monitor::lab {

// What the laboratory throws: a daemon that does not start, a wait past its deadline, a peer that vanished.
// what() names the thing, and carries the end of its log where it has one.
class LabError : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

}  // namespace monitor::lab
