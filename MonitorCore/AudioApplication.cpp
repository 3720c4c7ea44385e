// SPDX-License-Identifier: MIT
#include "MonitorCore/AudioApplication.h"

#include "MonitorCore/Json/RecordCoding.h"

namespace monitor {
namespace {

json::Writer encode(const AudioApplication& application) {
  json::Writer object = json::Writer::object();
  object.set("id", application.id);
  object.set("name", application.name);
  if (application.bundleID) object.set("bundleID", *application.bundleID);
  object.set("processes", json::encodeList(application.processes, json::encodeProcessKey));
  object.set("gain", application.gain);
  object.set("running", application.running);
  return object;
}

AudioApplication decode(const json::Reader& object) {
  AudioApplication application;
  application.id = object.at("id").string();
  application.name = object.at("name").string();
  if (const auto bundle = object.find("bundleID")) application.bundleID = bundle->string();
  application.processes = json::decodeList<ProcessKey>(object.at("processes"), json::decodeProcessKey);
  application.gain = object.at("gain").number();
  application.running = object.at("running").boolean();
  return application;
}

}  // namespace

Data encodeApplications(const std::vector<AudioApplication>& applications) {
  return json::encodeList(applications, encode).text();
}

std::vector<AudioApplication> decodeApplications(std::string_view bytes) {
  return json::decodeList<AudioApplication>(json::Document(bytes).root(), decode);
}

Data encodeProcessKeys(const std::vector<ProcessKey>& keys) {
  return json::encodeList(keys, json::encodeProcessKey).text();
}

std::vector<ProcessKey> decodeProcessKeys(std::string_view bytes) {
  return json::decodeList<ProcessKey>(json::Document(bytes).root(), json::decodeProcessKey);
}

}  // namespace monitor
