// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/AgentAnswers.h"

#include <utility>

#include "Tools/vesk/ExitCode.h"

namespace monitor::vesk::agent {

void throwIfRefused(const GainKeeper::Answer& answer) {
  if (answer.error.empty()) return;
  throw CommandError(ExitCode::Failed,
                     answer.cause.empty() ? answer.error : answer.error + '\n' + answer.cause);
}

ListedApplications listOrThrow(GainKeeper::ListAnswer answer) {
  if (!answer.list) {
    throwIfRefused(
        {answer.message.empty() ? "The list of programs could not be read." : answer.message, answer.cause});
  }
  return {*std::move(answer.list), std::move(answer.message)};
}

}  // namespace monitor::vesk::agent
