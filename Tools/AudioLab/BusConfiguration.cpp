// SPDX-License-Identifier: MIT
#include "Tools/AudioLab/BusConfiguration.h"

#include <fmt/format.h>

namespace monitor::lab {

std::string busConfigurationText(const BusConfiguration& bus) {
  std::string folders;
  for (const auto& folder : bus.serviceFolders) {
    folders += fmt::format("  <servicedir>{}</servicedir>\n", folder.string());
  }
  std::string includes;
  for (const auto& file : bus.includes) includes += fmt::format("  <include>{}</include>\n", file.string());
  return fmt::format(R"(<!DOCTYPE busconfig PUBLIC "-//freedesktop//DTD D-Bus Bus Configuration 1.0//EN"
 "http://www.freedesktop.org/standards/dbus/1.0/busconfig.dtd">
<busconfig>
  <type>session</type>
  <listen>unix:path={0}</listen>
  <auth>EXTERNAL</auth>
{1}  <policy context="default">
    <allow send_destination="*" eavesdrop="true"/>
    <allow eavesdrop="true"/>
    <allow own="*"/>
{2}{3}  </policy>
{4}  <limit name="max_incoming_bytes">1000000000</limit>
  <limit name="max_outgoing_bytes">1000000000</limit>
  <limit name="max_message_size">1000000000</limit>
  <limit name="service_start_timeout">20000</limit>
  <limit name="auth_timeout">240000</limit>
  <limit name="max_completed_connections">100000</limit>
  <limit name="max_incomplete_connections">10000</limit>
  <limit name="max_connections_per_user">100000</limit>
  <limit name="max_pending_service_starts">10000</limit>
  <limit name="max_names_per_connection">50000</limit>
  <limit name="max_match_rules_per_connection">50000</limit>
  <limit name="max_replies_per_connection">50000</limit>
</busconfig>
)",
                     bus.socket.string(), folders, bus.everyUser ? "    <allow user=\"*\"/>\n" : "", bus.policy,
                     includes);
}

}  // namespace monitor::lab
