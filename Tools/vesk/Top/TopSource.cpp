// SPDX-License-Identifier: MIT
#include "Tools/vesk/Top/TopSource.h"

#include <optional>
#include <string>

#include "MonitorCore/AppAggregator.h"
#include "MonitorCore/ProjectGrouper.h"
#include "Tools/vesk/ExitCode.h"
#include "Tools/vesk/Top/PlayingPrograms.h"
#ifdef VESK_AUDIO_COMMANDS
#include "Tools/vesk/Agent/AgentConnection.h"
#endif

namespace monitor::vesk {

#ifdef VESK_AUDIO_COMMANDS
struct TopSource::Agent {
  std::unique_ptr<agent::AgentConnection> connection;

  // Nothing is held where there is no bus or no agent on it. Throws CommandError where there is one that does
  // not answer.
  std::vector<HeldGain> held() {
    try {
      if (!connection) connection = std::make_unique<agent::AgentConnection>();
      const auto status = connection->status();
      return status ? status->held : std::vector<HeldGain>{};
    } catch (const CommandError& error) {
      connection.reset();
      if (error.code() == ExitCode::Unavailable) return {};
      throw;
    }
  }
};
#else
struct TopSource::Agent {
  std::vector<HeldGain> held() { return {}; }
};
#endif

TopSource::TopSource() : agent_(std::make_unique<Agent>()) {}
TopSource::~TopSource() = default;

TopData TopSource::look(bool projects) {
  TopData data;
  data.snapshot = monitor_.collector().sample(projects);
  monitor_.advanced().mergeInto(data.snapshot);
  monitor_.advanced().request();
  data.helperStatus = monitor_.advanced().status();
  data.withProjects = projects;
  if (projects) {
    const std::vector<ProcessSample> processes = AppAggregator::processesOf(data.snapshot.apps);
    tracker_.observe(processes, data.snapshot.timestamp);
    data.idle = tracker_.lowActivitySeconds();
    data.projects = ProjectGrouper::groups(processes);
  }
  lookAtSound(data);
  return data;
}

void TopSource::lookAtSound(TopData& data) {
  try {
    const std::vector<ActiveAudioApplication> sounding = monitor_.sounding();
    data.playing = playingPrograms(sounding, agent_->held());
  } catch (const NativeAudioActivity::AudioActivityError& error) {
    const std::string problem = monitor_.soundingProblem();
    data.audioProblem = "Volumes are not known: " + (problem.empty() ? std::string(error.what()) : problem);
  } catch (const CommandError& error) {
    data.audioProblem = std::string("Volumes are not known: ") + error.what();
  }
}

}  // namespace monitor::vesk
