// SPDX-License-Identifier: MIT
#include "Tools/vesk/Monitor/SoundingCommand.h"

#include <utility>

#include "MonitorCore/Json/StrictJson.h"
#include "MonitorCore/Utf8.h"
#include "Tools/vesk/Table.h"

namespace monitor::vesk {

void printSounding(const std::vector<ActiveAudioApplication>& applications, bool json,
                   const Console& console) {
  json::Writer list = json::Writer::array();
  Table table({{"NAME", Align::Left, true}, {"ID", Align::Left, true}, {"BUNDLE", Align::Left, true}});
  for (const ActiveAudioApplication& application : applications) {
    table.add({application.name, application.id, application.bundleURL.value_or("-")});
    json::Writer object = json::Writer::object();
    object.set("id", repairedUtf8(application.id));
    object.set("name", repairedUtf8(application.name));
    if (application.bundleURL) object.set("bundleURL", repairedUtf8(*application.bundleURL));
    list.append(std::move(object));
  }
  if (json) {
    console.out << list.text() << '\n';
  } else {
    console.out << (table.empty() ? "No program produces sound.\n" : table.text(console.outTerminal));
  }
}

}  // namespace monitor::vesk
