// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/AgentProgram.h"

#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstring>
#include <memory>
#include <string>

#include "MonitorMac/AudioClient.h"
#include "Platform/Linux/Base/Clocks.h"
#include "Platform/Linux/Base/EventLoop.h"
#include "Platform/Linux/Base/Queues.h"
#include "Platform/Linux/Ipc/Bus.h"
#include "Platform/Linux/Ipc/RemoteConnections.h"
#include "Platform/Linux/Process/ProcessAdapters.h"
#include "Tools/vesk/Agent/AgentServer.h"
#include "Tools/vesk/Agent/GainKeeper.h"
#include "Tools/vesk/Agent/ProgramPresence.h"

namespace monitor::vesk::agent {
namespace {

using platform::MainQueue;

int endQueue(sd_bus_message* /*signal*/, void* queue, sd_bus_error* /*error*/) {
  static_cast<MainQueue*>(queue)->quit();
  return 0;
}

platform::Bus openSessionBus(const MainQueue& queue) {
  platform::Bus bus = platform::openBus({}, queue.loop()->event());
  if (!bus) {
    throw CommandError(ExitCode::Unavailable,
                       std::string("The session bus cannot be reached: ") + std::strerror(errno));
  }
  return bus;
}

// The answer comes on the connection's thread and is passed on to the queue.
std::function<void(GainKeeper::CauseReply)> causesOf(platform::BusAudioConnections& connections,
                                                     const std::shared_ptr<MainQueue>& queue) {
  return [&connections, queue](const GainKeeper::CauseReply& reply) {
    connections.lastCause([queue, reply](std::int32_t /*code*/, const std::string& text) {
      queue->submit([reply, text] { reply(text); });
    });
  };
}

}  // namespace

ExitCode runAgent(const AgentOptions& options, const Console& console) {
  // A terminal or journal that is closed must not end what is held.
  std::signal(SIGPIPE, SIG_IGN);
  const auto queue = std::make_shared<MainQueue>();
  std::function<void()> leave = [&queue] { queue->quit(); };
  for (const int signal : {SIGTERM, SIGINT}) queue->handleSignal(signal, [&leave] { leave(); });

  const platform::Bus bus = openSessionBus(*queue);
  platform::Slot disconnected;
  checked(platform::watchDisconnection(bus.get(), disconnected, endQueue, queue.get()),
          "watching the session bus");
  platform::BusAudioConnections connections;
  const auto processes = platform::makeProcessTable();
  const auto bundles = platform::makeApplicationBundles();
  ProcessTablePresence presence(*processes, *bundles, ::geteuid());
  const platform::MonotonicClock clock;
  const platform::SystemWallClock wallClock;
  GainKeeper keeper(AudioClient::make(connections, queue),
                    {queue, clock, wallClock, presence, causesOf(connections, queue), options.idleSeconds});
  AgentServer server(bus.get(), keeper, ::geteuid());
  if (!server.takeName()) throw CommandError(ExitCode::Failed, "An agent runs already.");

  leave = [&] {
    server.leave();
    queue->quit();
  };
  keeper.onIdle = leave;
  keeper.onEvent = [&console](const std::string& text) { console.err << text << std::endl; };
  keeper.touch();
  queue->run();
  return ExitCode::Ok;
}

}  // namespace monitor::vesk::agent
