// SPDX-License-Identifier: MIT
#pragma once

#include <functional>
#include <utility>

namespace monitor {

// The first of reply, error and time-out completes a request; the later ones find it closed. Confined to one
// queue.
template <class... Results>
class OneShot {
 public:
  explicit OneShot(std::function<void(Results...)> completion) : completion_(std::move(completion)) {}

  // Whether this was the first; what the completion itself leads to finds the request closed.
  bool complete(Results... results) {
    if (!open_) return false;
    open_ = false;
    const auto completion = std::exchange(completion_, nullptr);
    if (completion) completion(std::move(results)...);
    return true;
  }

 private:
  std::function<void(Results...)> completion_;
  bool open_ = true;
};

}  // namespace monitor
