// SPDX-License-Identifier: MIT
#include "Platform/Linux/Ipc/FairSender.h"

#include <sys/socket.h>

#include <cstdio>
#include <system_error>
#include <utility>

namespace monitor::platform {
namespace {

// Bytes. Enough for some lists of programs; the bus library asks for 8 MiB by itself.
constexpr int kSendBuffer = 16 * 1024;

}  // namespace

FairSender::FairSender(sd_bus* bus, sd_event* event) : bus_(bus) {
  sd_event_source* source = nullptr;
  // Runs after every turn of the loop in which something happened, the socket's becoming writable included.
  const int result = sd_event_add_post(event, &source, onLoopTurn, this);
  if (result < 0) throw std::system_error(-result, std::generic_category(), "sd_event_add_post");
  turn_.reset(source);
  waitForTurns(false);
}

// Only while something waits: it makes the loop ask the kernel once more after every turn.
void FairSender::waitForTurns(bool wait) {
  if (wait == waitsForTurns_) return;
  waitsForTurns_ = wait;
  sd_event_source_set_enabled(turn_.get(), wait ? SD_EVENT_ON : SD_EVENT_OFF);
}

void FairSender::send(Client client, Message message, std::function<void()> sent) {
  waiting_[client].push_back({std::move(message), std::move(sent)});
  flush();
}

int FairSender::onLoopTurn(sd_event_source* /*source*/, void* data) noexcept {
  static_cast<FairSender*>(data)->flush();
  return 0;
}

void FairSender::flush() {
  std::uint64_t queued = 0;
  while (!waiting_.empty() && sd_bus_get_n_queued_write(bus_, &queued) >= 0 && queued == 0) {
    auto next = waiting_.upper_bound(last_);
    if (next == waiting_.end()) next = waiting_.begin();
    last_ = next->first;
    const auto entry = std::move(next->second.front());
    next->second.pop_front();
    if (next->second.empty()) waiting_.erase(next);
    const int result = sd_bus_send(bus_, entry.message.get(), nullptr);
    if (result < 0) std::fprintf(stderr, "An answer could not be sent: error %d\n", -result);
    if (entry.sent) entry.sent();
  }
  waitForTurns(!waiting_.empty());
}

void shortenSendBuffer(sd_bus* bus) {
  const int descriptor = sd_bus_get_fd(bus);
  if (descriptor >= 0) setsockopt(descriptor, SOL_SOCKET, SO_SNDBUF, &kSendBuffer, sizeof(kSendBuffer));
}

}  // namespace monitor::platform
