// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/TopFeed.h"

#include <fcntl.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <system_error>
#include <utility>

namespace monitor::vesk {

TopFeed::TopFeed(Look look, double every, bool projects)
    : look_(std::move(look)), every_(every), projects_(projects) {
  std::array<int, 2> ends{};
  if (::pipe(ends.data()) != 0) throw std::system_error(errno, std::generic_category(), "pipe");
  for (const int end : ends) {
    ::fcntl(end, F_SETFL, O_NONBLOCK);
    ::fcntl(end, F_SETFD, FD_CLOEXEC);
  }
  readEnd_ = ends[0];
  writeEnd_ = ends[1];
  thread_ = std::thread([this] { run(); });
}

TopFeed::~TopFeed() {
  {
    const std::lock_guard lock(mutex_);
    ending_ = true;
  }
  changed_.notify_all();
  thread_.join();
  ::close(readEnd_);
  ::close(writeEnd_);
}

std::optional<TopData> TopFeed::take() {
  std::array<char, 64> bytes{};
  while (::read(readEnd_, bytes.data(), bytes.size()) > 0) {
  }
  const std::lock_guard lock(mutex_);
  if (failure_) std::rethrow_exception(std::exchange(failure_, nullptr));
  return std::exchange(latest_, std::nullopt);
}

void TopFeed::setProjects(bool projects) {
  {
    const std::lock_guard lock(mutex_);
    projects_ = projects;
    hurry_ = true;
  }
  changed_.notify_all();
}

void TopFeed::setPaused(bool paused) {
  {
    const std::lock_guard lock(mutex_);
    paused_ = paused;
    hurry_ = hurry_ || !paused;
  }
  changed_.notify_all();
}

void TopFeed::publish(std::optional<TopData> data, std::exception_ptr failure) {
  {
    const std::lock_guard lock(mutex_);
    latest_ = std::move(data);
    failure_ = std::move(failure);
  }
  // A full pipe is readable, which is all it is for.
  [[maybe_unused]] const auto written = ::write(writeEnd_, "", 1);
}

void TopFeed::run() {
  // Rates need two looks: the second one follows soon.
  constexpr double kFirstWait = 0.5;
  double wait = std::min(kFirstWait, every_);
  std::unique_lock lock(mutex_);
  while (!ending_) {
    const bool projects = projects_;
    hurry_ = false;
    lock.unlock();
    std::optional<TopData> data;
    std::exception_ptr failure;
    try {
      data = look_(projects);
    } catch (...) {
      failure = std::current_exception();
    }
    const bool failed = failure != nullptr;
    publish(std::move(data), std::move(failure));
    if (failed) return;
    lock.lock();
    changed_.wait_for(lock, std::chrono::duration<double>(wait), [this] { return ending_ || hurry_; });
    changed_.wait(lock, [this] { return ending_ || !paused_ || hurry_; });
    wait = every_;
  }
}

}  // namespace monitor::vesk
