// SPDX-License-Identifier: MIT
#include "MonitorCore/MonitorServiceIdentity.h"

namespace monitor::MonitorServiceIdentity {

std::string requirement(std::string_view identifier) {
  std::string text = "anchor apple generic and certificate leaf[subject.OU] = \"Q7RKM24XZT\" and identifier \"";
  text += identifier;
  text += '"';
  return text;
}

}  // namespace monitor::MonitorServiceIdentity
