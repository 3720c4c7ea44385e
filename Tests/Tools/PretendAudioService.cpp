// SPDX-License-Identifier: MIT
// A stand-in for the audio service on a test's own bus. What it lists and refuses stands in a JSON file that
// the test writes and every call reads anew (argument 1); the gains of all sessions are written to a second
// file whenever they change (argument 2), so that the test sees them end with their session.
#include <cstdlib>
#include <fstream>
#include <iterator>
#include <map>
#include <string>
#include <vector>

#include "MonitorCore/AudioApplication.h"
#include "MonitorCore/Json/StrictJson.h"
#include "Platform/Linux/Ipc/Bus.h"
#include "Tools/vesk/Agent/BusCalls.h"

namespace {

using namespace monitor;
using vesk::checked;

constexpr const char* kName = "app.vesk.native.monitor-audio";
constexpr const char* kPath = "/app/vesk/native/monitor_audio";

// The state file: {"programs": [AudioApplication], "listFailure": "", "gainFailure": "", "standing": "",
// "cause": "", "hangs": false}
struct State {
  std::vector<AudioApplication> programs;
  std::string listFailure;
  std::string gainFailure;
  std::string standing;
  std::string cause;
  bool hangs = false;
};

std::string stateFile;
std::string gainsFile;
std::map<std::string, std::map<std::string, double>> sessions;  // bus name → application id → gain

std::string contents(const std::string& path) {
  std::ifstream stream(path);
  return {std::istreambuf_iterator<char>(stream), {}};
}

State readState() {
  const std::string text = contents(stateFile);
  const json::Document document(text);
  const json::Reader object = document.root();
  State state;
  state.programs = decodeApplications(object.at("programs").string());
  state.listFailure = object.at("listFailure").string();
  state.gainFailure = object.at("gainFailure").string();
  state.standing = object.at("standing").string();
  state.cause = object.at("cause").string();
  state.hangs = object.at("hangs").boolean();
  return state;
}

// One line for each gain, replaced as a whole so that a reader never meets half of it.
void writeGains() {
  {
    std::ofstream stream(gainsFile + ".new");
    for (const auto& [session, gains] : sessions) {
      for (const auto& [id, gain] : gains) stream << id << ' ' << gain << '\n';
    }
  }
  std::rename((gainsFile + ".new").c_str(), gainsFile.c_str());
}

int applications(sd_bus_message* call, void*, sd_bus_error*) {
  const State state = readState();
  if (state.hangs) return 1;
  std::vector<AudioApplication> list = state.programs;
  const auto& gains = sessions[sd_bus_message_get_sender(call)];
  for (AudioApplication& app : list) {
    const auto gain = gains.find(app.id);
    app.gain = gain == gains.end() ? 1.0 : gain->second;
  }
  const Data bytes = state.listFailure.empty() ? encodeApplications(list) : Data();
  sd_bus_message* reply = nullptr;
  checked(sd_bus_message_new_method_return(call, &reply), "reply");
  const platform::Message owner(reply);
  checked(sd_bus_message_append_array(reply, 'y', bytes.data(), bytes.size()), "list");
  const std::string& message = state.listFailure.empty() ? state.standing : state.listFailure;
  checked(sd_bus_message_append(reply, "s", message.c_str()), "message");
  return sd_bus_send(nullptr, reply, nullptr);
}

std::string set(const std::string& session, double gain, std::string_view processes, const State& state) {
  if (!state.gainFailure.empty()) return state.gainFailure;
  const auto keys = decodeProcessKeys(processes);
  for (const AudioApplication& app : state.programs) {
    if (app.processes != keys) continue;
    if (gain == 1.0) {
      sessions[session].erase(app.id);
    } else {
      sessions[session][app.id] = gain;
    }
    writeGains();
    return {};
  }
  return "This audio app changed or closed. Refresh the app list.";
}

int setGain(sd_bus_message* call, void*, sd_bus_error*) {
  const State state = readState();
  if (state.hangs) return 1;
  double gain = 0.0;
  const void* bytes = nullptr;
  std::size_t size = 0;
  checked(sd_bus_message_read(call, "d", &gain), "gain");
  checked(sd_bus_message_read_array(call, 'y', &bytes, &size), "processes");
  const std::string error =
      set(sd_bus_message_get_sender(call), gain, {static_cast<const char*>(bytes), size}, state);
  return sd_bus_reply_method_return(call, "s", error.c_str());
}

int stop(sd_bus_message* call, void*, sd_bus_error*) {
  sessions[sd_bus_message_get_sender(call)].clear();
  writeGains();
  return sd_bus_reply_method_return(call, "");
}

int lastCause(sd_bus_message* call, void*, sd_bus_error*) {
  const State state = readState();
  return sd_bus_reply_method_return(call, "is", state.cause.empty() ? 0 : -19, state.cause.c_str());
}

int ownerChanged(sd_bus_message* signal, void*, sd_bus_error*) {
  const char* name = nullptr;
  const char* before = nullptr;
  const char* after = nullptr;
  checked(sd_bus_message_read(signal, "sss", &name, &before, &after), "signal");
  if (*after == '\0' && sessions.erase(name) > 0) writeGains();
  return 0;
}

const sd_bus_vtable kAudio[] = {
    SD_BUS_VTABLE_START(0),
    SD_BUS_METHOD("Applications", nullptr, "ays", applications, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("SetGain", "day", "s", setGain, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_METHOD("Stop", nullptr, "", stop, SD_BUS_VTABLE_UNPRIVILEGED), SD_BUS_VTABLE_END};
const sd_bus_vtable kDiagnostics[] = {
    SD_BUS_VTABLE_START(0), SD_BUS_METHOD("LastCause", nullptr, "is", lastCause, SD_BUS_VTABLE_UNPRIVILEGED),
    SD_BUS_VTABLE_END};

int serve() {
  sd_bus* raw = nullptr;
  checked(sd_bus_open_user(&raw), "bus");
  const platform::Bus bus(raw);
  checked(sd_bus_add_object_vtable(raw, nullptr, kPath, "app.vesk.native.MonitorAudio", kAudio, nullptr),
          "audio");
  checked(sd_bus_add_object_vtable(raw, nullptr, kPath, "app.vesk.native.MonitorAudio.Diagnostics",
                                   kDiagnostics, nullptr),
          "diagnostics");
  checked(sd_bus_match_signal(raw, nullptr, "org.freedesktop.DBus", "/org/freedesktop/DBus",
                              "org.freedesktop.DBus", "NameOwnerChanged", ownerChanged, nullptr),
          "match");
  writeGains();
  checked(sd_bus_request_name(raw, kName, 0), "name");
  for (;;) {
    const int processed = sd_bus_process(raw, nullptr);
    if (processed < 0) return 0;  // the bus has ended, and the test with it
    if (processed == 0 && sd_bus_wait(raw, UINT64_MAX) < 0) return 0;
  }
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 3) return EXIT_FAILURE;
  stateFile = argv[1];
  gainsFile = argv[2];
  return serve();
}
