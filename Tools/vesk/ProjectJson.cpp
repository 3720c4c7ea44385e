// SPDX-License-Identifier: MIT
#include "Tools/vesk/ProjectJson.h"

#include "MonitorCore/Json/RecordedNumber.h"

namespace monitor::vesk {

json::Writer processNames(const std::vector<ProcessSample>& processes,
                          const ProjectActivityTracker::Seconds* idle) {
  json::Writer list = json::Writer::array();
  for (const ProcessSample& process : processes) {
    json::Writer object = json::Writer::object();
    object.set("pid", process.key.pid);
    object.set("start", process.key.start);
    object.set("name", process.name);
    if (idle != nullptr) {
      const auto seconds = idle->find(process.key);
      if (seconds != idle->end()) json::setRecorded(object, "idleSeconds", seconds->second);
    }
    list.append(std::move(object));
  }
  return list;
}

json::Writer projectsJson(const std::vector<MonitorProject>& projects,
                          const ProjectActivityTracker::Seconds* idle) {
  json::Writer list = json::Writer::array();
  for (const MonitorProject& project : projects) {
    json::Writer object = json::Writer::object();
    object.set("id", project.id);
    if (project.folder) object.set("folder", *project.folder);
    object.set("roots", processNames(project.roots, idle));
    object.set("processes", processNames(project.processes));
    list.append(std::move(object));
  }
  return list;
}

}  // namespace monitor::vesk
