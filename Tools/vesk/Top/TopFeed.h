// SPDX-License-Identifier: MIT
#pragma once

#include <condition_variable>
#include <exception>
#include <functional>
#include <mutex>
#include <optional>
#include <thread>

#include "Tools/vesk/Top/TopState.h"

namespace monitor::vesk {

// Looks at the machine every so often on a thread of its own, so that keys are answered however long a look
// takes. All members belong to the thread that made it.
class TopFeed {
 public:
  // `look` runs on the feed's thread only, at once and then every `every` seconds; what it throws is thrown
  // by take().
  using Look = std::function<TopData(bool projects)>;

  TopFeed(Look look, double every, bool projects);
  ~TopFeed();  // waits for a look under way
  TopFeed(const TopFeed&) = delete;
  TopFeed& operator=(const TopFeed&) = delete;

  // Readable when take() has something.
  [[nodiscard]] int descriptor() const { return readEnd_; }
  // The latest look, once.
  [[nodiscard]] std::optional<TopData> take();
  // Takes effect at once.
  void setProjects(bool projects);
  void setPaused(bool paused);

 private:
  void run();
  void publish(std::optional<TopData> data, std::exception_ptr failure);

  Look look_;
  double every_;
  int readEnd_ = -1;
  int writeEnd_ = -1;

  std::mutex mutex_;  // guards what follows
  std::condition_variable changed_;
  std::optional<TopData> latest_;
  std::exception_ptr failure_;
  bool projects_;
  bool paused_ = false;
  bool hurry_ = false;  // look now
  bool ending_ = false;

  std::thread thread_;  // last: it uses all of the above
};

}  // namespace monitor::vesk
