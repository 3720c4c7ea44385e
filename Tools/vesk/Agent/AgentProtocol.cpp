// SPDX-License-Identifier: MIT
#include "Tools/vesk/Agent/AgentProtocol.h"

#include <utility>

#include "MonitorCore/Json/RecordCoding.h"

namespace monitor::vesk::agent {
namespace {

json::Writer encodeHeld(const HeldGain& held) {
  json::Writer object = json::Writer::object();
  object.set("id", held.app.id);
  object.set("name", held.app.name);
  if (held.app.bundleID) object.set("bundleID", *held.app.bundleID);
  object.set("processes", json::encodeList(held.app.processes, json::encodeProcessKey));
  object.set("gain", held.gain);
  object.set("state", stateText(held.state));
  object.set("trouble", held.trouble);
  return object;
}

HoldState decodeState(const json::Reader& value) {
  const std::string text = value.string();
  for (const HoldState state : {HoldState::Active, HoldState::Lost, HoldState::Waiting}) {
    if (text == stateText(state)) return state;
  }
  value.fail("expected \"active\", \"lost\" or \"waiting\"");
}

HeldGain decodeHeld(const json::Reader& object) {
  HeldGain held;
  held.app.id = object.at("id").string();
  held.app.name = object.at("name").string();
  if (const auto bundle = object.find("bundleID")) held.app.bundleID = bundle->string();
  held.app.processes = json::decodeList<ProcessKey>(object.at("processes"), json::decodeProcessKey);
  held.gain = object.at("gain").number();
  held.state = decodeState(object.at("state"));
  held.app.gain = held.state == HoldState::Active ? held.gain : 1.0;
  held.trouble = object.at("trouble").string();
  return held;
}

json::Writer encodeEvent(const KeeperJournal::Event& event) {
  json::Writer object = json::Writer::object();
  object.set("time", event.time.secondsSince2001);
  object.set("text", event.text);
  return object;
}

KeeperJournal::Event decodeEvent(const json::Reader& object) {
  return {Date{object.at("time").number()}, object.at("text").string()};
}

}  // namespace

std::string_view stateText(HoldState state) {
  switch (state) {
    case HoldState::Active:
      return "active";
    case HoldState::Lost:
      return "lost";
    case HoldState::Waiting:
      return "waiting";
  }
  return "";
}

json::Writer statusObject(const GainKeeper::Status& status) {
  json::Writer object = json::Writer::object();
  object.set("held", json::encodeList(status.held, encodeHeld));
  if (status.secondsSinceAnswer) object.set("secondsSinceAnswer", *status.secondsSinceAnswer);
  object.set("lastError", status.lastError);
  object.set("lastCause", status.lastCause);
  object.set("events", json::encodeList(status.events, encodeEvent));
  return object;
}

Data encodeStatus(const GainKeeper::Status& status) {
  return statusObject(status).text();
}

GainKeeper::Status decodeStatus(std::string_view bytes) {
  const json::Document document(bytes);
  const json::Reader object = document.root();
  GainKeeper::Status status;
  status.held = json::decodeList<HeldGain>(object.at("held"), decodeHeld);
  if (const auto seconds = object.find("secondsSinceAnswer")) status.secondsSinceAnswer = seconds->number();
  status.lastError = object.at("lastError").string();
  status.lastCause = object.at("lastCause").string();
  status.events = json::decodeList<KeeperJournal::Event>(object.at("events"), decodeEvent);
  return status;
}

}  // namespace monitor::vesk::agent
