// SPDX-License-Identifier: MIT
#include "MonitorCore/SnapshotRecording.h"

#include "MonitorCore/AppAggregator.h"
#include "MonitorCore/Json/MetricCoding.h"
#include "MonitorCore/Json/RecordCoding.h"
#include "MonitorCore/Json/RecordedFigures.h"
#include "MonitorCore/Json/RecordedNumber.h"
#include "MonitorCore/ProcessRecording.h"
#include "MonitorCore/Recording.h"

namespace monitor {
namespace {

using json::findRecorded;
using json::Reader;
using json::setRecorded;
using json::Writer;

Writer encodeApp(const AppUsage& app) {
  Writer object = Writer::object();
  object.set("id", app.id);
  object.set("name", app.name);
  if (app.bundleID) object.set("bundleID", *app.bundleID);
  json::setRecordedFigures(object, app);
  return object;
}

AppUsage decodeApp(const Reader& object) {
  AppUsage app;
  app.id = object.at("id").string();
  const auto name = object.find("name");
  app.name = name ? name->string() : app.id;
  if (const auto bundle = object.find("bundleID")) app.bundleID = bundle->string();
  json::readRecordedFigures(object, app);
  return app;
}

Writer encodeAccessory(const AccessoryBattery& accessory) {
  Writer object = Writer::object();
  object.set("id", accessory.id());
  object.set("name", accessory.name());
  setRecorded(object, "percent", accessory.percent());
  return object;
}

AccessoryBattery decodeAccessory(const Reader& object) {
  return {object.at("id").string(), object.at("name").string(), json::recordedNumber(object.at("percent"))};
}

Writer snapshotObject(const MonitorSnapshot& snapshot) {
  Writer object = Writer::object();
  setRecorded(object, "timestamp", snapshot.timestamp.secondsSince2001);
  setRecorded(object, "uptime", snapshot.uptime);
  setRecorded(object, "interval", snapshot.interval);
  object.set("readings", json::encodeMetricReadings(snapshot.readings));
  object.set("apps", json::encodeList(snapshot.apps, encodeApp));
  object.set("accessories", json::encodeList(snapshot.accessories, encodeAccessory));
  object.set("restrictedProcessCount", snapshot.restrictedProcessCount);
  if (snapshot.advancedTimestamp) {
    setRecorded(object, "advancedTimestamp", snapshot.advancedTimestamp->secondsSince2001);
  }
  setRecorded(object, "advancedInterval", snapshot.advancedInterval);
  return object;
}

}  // namespace

std::string encodeSnapshot(const MonitorSnapshot& snapshot) {
  return snapshotObject(snapshot).text();
}

Writer recordingObject(const MonitorSnapshot& snapshot) {
  Writer object = snapshotObject(snapshot);
  object.set("processes", processList(AppAggregator::processesOf(snapshot.apps)));
  return object;
}

MonitorSnapshot decodeSnapshot(std::string_view line) {
  const json::Document document(line);
  const Reader object = document.root();
  requireKnownVersion(object);
  MonitorSnapshot snapshot;
  snapshot.timestamp = Date{json::recordedNumber(object.at("timestamp"))};
  snapshot.uptime = findRecorded(object, "uptime").value_or(0.0);
  snapshot.interval = json::recordedNumber(object.at("interval"));
  if (const auto readings = object.find("readings"))
    snapshot.readings = json::decodeMetricReadings(*readings);
  if (const auto apps = object.find("apps")) snapshot.apps = json::decodeList<AppUsage>(*apps, decodeApp);
  if (const auto accessories = object.find("accessories")) {
    snapshot.accessories = json::decodeList<AccessoryBattery>(*accessories, decodeAccessory);
  }
  if (const auto count = object.find("restrictedProcessCount")) {
    snapshot.restrictedProcessCount = count->integer<std::int64_t>();
  }
  if (const auto time = findRecorded(object, "advancedTimestamp")) snapshot.advancedTimestamp = Date{*time};
  snapshot.advancedInterval = findRecorded(object, "advancedInterval").value_or(1.0);
  return snapshot;
}

}  // namespace monitor
