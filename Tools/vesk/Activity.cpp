// SPDX-License-Identifier: MIT
#include "Tools/vesk/Activity.h"

#include <chrono>
#include <future>

#include "Tools/vesk/Progress.h"

namespace monitor::vesk {

void runWithActivity(const Console& console, const Clock& clock, const std::string& label,
                     const std::function<void()>& work) {
  if (!console.errTerminal.interactive) {
    work();
    return;
  }
  constexpr std::chrono::milliseconds kRedraw{200};
  const double start = clock.now();
  Progress progress(console, clock, label + ", seconds so far", 0);
  std::future<void> done = std::async(std::launch::async, work);
  while (done.wait_for(kRedraw) == std::future_status::timeout) {
    progress.update(static_cast<std::uint64_t>(clock.now() - start));
  }
  done.get();
}

}  // namespace monitor::vesk
