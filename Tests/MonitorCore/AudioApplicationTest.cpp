// SPDX-License-Identifier: MIT
#include "MonitorCore/AudioApplication.h"

#include <gtest/gtest.h>

#include <limits>
#include <nlohmann/json.hpp>
#include <string>
#include <vector>

#include "MonitorCore/Json/StrictJson.h"

namespace monitor {
namespace {

AudioApplication player() {
  return {"app.player", "Player", "app.player", {{12, 5000}, {7, 1}}, 0.4, true};
}

nlohmann::ordered_json parsed(const Data& data) {
  return nlohmann::ordered_json::parse(std::string(data.begin(), data.end()));
}

Data without(const std::string& key) {
  auto list = parsed(encodeApplications({player()}));
  list.at(0).erase(key);
  return list.dump();
}

TEST(AudioApplicationTest, KeysAreWrittenInTheirOrder) {
  const auto list = parsed(encodeApplications({player()}));
  std::vector<std::string> keys;
  for (const auto& [key, value] : list.at(0).items()) keys.push_back(key);
  EXPECT_EQ(keys, (std::vector<std::string>{"id", "name", "bundleID", "processes", "gain", "running"}));
}

TEST(AudioApplicationTest, AbsentBundleIdentifierWritesNoKeyAndComesBackEqual) {
  AudioApplication application = player();
  application.bundleID.reset();
  const Data data = encodeApplications({application});
  EXPECT_FALSE(parsed(data).at(0).contains("bundleID"));
  EXPECT_EQ(decodeApplications(data), std::vector<AudioApplication>{application});
}

TEST(AudioApplicationTest, NullBundleIdentifierIsAbsent) {
  auto list = parsed(encodeApplications({player()}));
  list.at(0)["bundleID"] = nullptr;
  EXPECT_EQ(decodeApplications(list.dump()).at(0).bundleID, std::nullopt);
}

TEST(AudioApplicationTest, EveryOtherKeyIsRequired) {
  for (const char* key : {"id", "name", "processes", "gain", "running"}) {
    EXPECT_THROW((void)decodeApplications(without(key)), json::DecodeError) << key;
  }
  EXPECT_NO_THROW((void)decodeApplications(without("bundleID")));
}

TEST(AudioApplicationTest, WrongTypesAreRefused) {
  for (const auto& [key, value] : std::vector<std::pair<std::string, nlohmann::ordered_json>>{
           {"id", 1}, {"name", true}, {"bundleID", 2}, {"processes", "none"}, {"gain", "0.4"}, {"running", 1}}) {
    auto list = parsed(encodeApplications({player()}));
    list.at(0)[key] = value;
    EXPECT_THROW((void)decodeApplications(list.dump()), json::DecodeError) << key;
  }
}

TEST(AudioApplicationTest, OtherKeysAreIgnored) {
  auto list = parsed(encodeApplications({player()}));
  list.at(0)["volume"] = 11;
  EXPECT_EQ(decodeApplications(list.dump()), std::vector<AudioApplication>{player()});
}

TEST(AudioApplicationTest, OrderOfTheProcessesIsKept) {
  EXPECT_EQ(decodeApplications(encodeApplications({player()})).at(0).processes,
            (std::vector<ProcessKey>{{12, 5000}, {7, 1}}));
  EXPECT_EQ(decodeProcessKeys(encodeProcessKeys({{12, 5000}, {7, 1}})),
            (std::vector<ProcessKey>{{12, 5000}, {7, 1}}));
}

TEST(AudioApplicationTest, NoApplicationsAreAnEmptyArray) {
  EXPECT_EQ(parsed(encodeApplications({})).dump(), "[]");
  EXPECT_TRUE(decodeApplications("[]").empty());
}

TEST(AudioApplicationTest, GainThatIsNoNumberCannotBeSent) {
  AudioApplication application = player();
  application.gain = std::numeric_limits<double>::quiet_NaN();
  EXPECT_THROW((void)encodeApplications({application}), json::EncodeError);
}

}  // namespace
}  // namespace monitor
