// SPDX-License-Identifier: MIT
#include "Platform/Linux/Audio/PipeWireAudioHardware.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <cstring>
#include <utility>

#include "Platform/Linux/Audio/AudioHardwareProvider.h"
#include "Platform/Linux/Audio/PropertyReading.h"

namespace monitor::platform {

namespace {

using std::chrono::milliseconds;
using std::chrono::steady_clock;

constexpr milliseconds kDeadline{1000};
// A sink that is just being configured has no ports for a moment.
constexpr milliseconds kPortsDeadline{300};
// A string property's value is a reference to the text.
constexpr std::uint32_t kReferenceBytes = sizeof(void*);

std::string addressText(const AudioObjectAddress& address) {
  std::string text;
  for (const std::uint32_t code : {address.selector, address.scope}) {
    for (int shift = 24; shift >= 0; shift -= 8) {
      const auto character = static_cast<unsigned char>(code >> static_cast<unsigned>(shift));
      text += character >= 0x20 && character < 0x7F ? static_cast<char>(character) : '?';
    }
    text += '/';
  }
  return text + std::to_string(address.element);
}

std::string executablePath(std::int32_t pid) {
  std::array<char, 4096> target{};
  const ssize_t length = readlink(fmt::format("/proc/{}/exe", pid).c_str(), target.data(), target.size());
  return length > 0 ? std::string{target.data(), static_cast<std::size_t>(length)} : std::string{};
}

AudioOutcome wrongSize(const AudioObjectAddress& address, std::size_t given, std::size_t expected) {
  return AudioOutcome::failure(
      audiostatus::kInvalidArgument,
      fmt::format("The property {} has {} bytes, not {}.", addressText(address), expected, given));
}

class PipeWireProvider final : public AudioHardwareProvider {
 public:
  explicit PipeWireProvider(std::shared_ptr<ApplicationBundles> bundles)
      : system_(std::make_shared<AudioSystem>()), bundles_(std::move(bundles)) {}

  std::shared_ptr<AudioHardware> openView() override {
    return std::make_shared<PipeWireAudioHardware>(system_, bundles_);
  }

 private:
  std::shared_ptr<AudioSystem> system_;
  std::shared_ptr<ApplicationBundles> bundles_;
};

}  // namespace

std::shared_ptr<AudioHardwareProvider> makeAudioHardwareProvider(
    std::shared_ptr<ApplicationBundles> bundles) {
  return std::make_shared<PipeWireProvider>(std::move(bundles));
}

PipeWireAudioHardware::PipeWireAudioHardware(std::shared_ptr<AudioSystem> system,
                                             std::shared_ptr<ApplicationBundles> bundles)
    : system_(std::move(system)), bundles_(std::move(bundles)) {}

PipeWireAudioHardware::~PipeWireAudioHardware() {
  system_->closeView(this);
}

AudioStatus PipeWireAudioHardware::conclude(const AudioOutcome& outcome) {
  if (!outcome.ok()) {
    const std::lock_guard lock{failureMutex_};
    failure_ = {outcome.status, outcome.text};
  }
  return outcome.status;
}

AudioFailure PipeWireAudioHardware::lastFailure() const {
  const std::lock_guard lock{failureMutex_};
  return failure_;
}

AudioOutcome PipeWireAudioHardware::readTable(PublishedTable::Table& table, AudioObjectID object,
                                              const AudioObjectAddress& address) const {
  using State = PipeWireConnection::State;
  const auto begin = steady_clock::now();
  table = system_->table().waitFor([](const ObjectTable& each) { return each.state != State::Connecting; },
                                   begin + kDeadline);
  if (table->state == State::Connecting) {
    return AudioOutcome::failure(audiostatus::kTimedOut, "The audio server does not answer.");
  }
  if (table->state == State::Ready && address == audio::kStreamFormat) {
    table = system_->table().waitFor(
        [object](const ObjectTable& each) {
          const auto device = each.devices.find(object);
          return device == each.devices.end() || device->second.format.channelsPerFrame > 0;
        },
        std::min(steady_clock::now() + kPortsDeadline, begin + kDeadline));
  }
  if (table->state != State::Ready) {
    return AudioOutcome::failure(audiostatus::kServerGone, "There is no connection to the audio server.");
  }
  if (propertyKind(*table, object, address) == PropertyKind::Unknown) {
    return AudioOutcome::failure(
        audiostatus::kUnknownObject,
        table->exists(object)
            ? fmt::format("The audio object {} has no property {}.", object, addressText(address))
            : fmt::format("There is no audio object {}.", object));
  }
  return {};
}

AudioStatus PipeWireAudioHardware::propertyDataSize(AudioObjectID object, const AudioObjectAddress& address,
                                                    std::uint32_t& size) {
  PublishedTable::Table table;
  if (const auto outcome = readTable(table, object, address); !outcome.ok()) return conclude(outcome);
  size = propertyKind(*table, object, address) == PropertyKind::Text
             ? kReferenceBytes
             : static_cast<std::uint32_t>(propertyBytes(*table, object, address).size());
  return audiostatus::kOk;
}

AudioStatus PipeWireAudioHardware::propertyData(AudioObjectID object, const AudioObjectAddress& address,
                                                std::span<std::byte> data, std::uint32_t& size) {
  PublishedTable::Table table;
  if (const auto outcome = readTable(table, object, address); !outcome.ok()) return conclude(outcome);
  const PropertyKind kind = propertyKind(*table, object, address);
  if (kind == PropertyKind::Text) {
    return conclude(AudioOutcome::failure(audiostatus::kInvalidArgument,
                                          fmt::format("The property {} is a string.", addressText(address))));
  }
  const auto bytes = propertyBytes(*table, object, address);
  if (kind == PropertyKind::Fixed && data.size() < bytes.size()) {
    return conclude(wrongSize(address, data.size(), bytes.size()));
  }
  // A list may have grown since its size was asked for: as many whole ids as there is room for.
  std::size_t count = std::min(data.size(), bytes.size());
  count -= count % sizeof(AudioObjectID);
  std::copy_n(bytes.begin(), count, data.begin());
  size = static_cast<std::uint32_t>(count);
  return audiostatus::kOk;
}

AudioStatus PipeWireAudioHardware::propertyString(AudioObjectID object, const AudioObjectAddress& address,
                                                  std::optional<std::string>& value) {
  PublishedTable::Table table;
  if (const auto outcome = readTable(table, object, address); !outcome.ok()) return conclude(outcome);
  if (propertyKind(*table, object, address) != PropertyKind::Text) {
    return conclude(AudioOutcome::failure(
        audiostatus::kInvalidArgument, fmt::format("The property {} is no string.", addressText(address))));
  }
  if (const auto device = table->devices.find(object); device != table->devices.end()) {
    value = device->second.uid;
  } else if (const auto aggregate = table->aggregates.find(object); aggregate != table->aggregates.end()) {
    value = aggregate->second;
  } else {
    const std::int32_t pid = table->process(object)->pid;
    const auto bundle =
        bundles_ == nullptr ? std::nullopt : bundles_->bundleOfProcess(pid, executablePath(pid));
    value = bundle && bundle->identifier ? *bundle->identifier : std::string{};
  }
  return audiostatus::kOk;
}

AudioStatus PipeWireAudioHardware::addPropertyListener(
    AudioObjectID object, const AudioObjectAddress& address, std::shared_ptr<SerialQueue> queue,
    std::shared_ptr<const AudioPropertyListener> listener) {
  if (queue == nullptr || listener == nullptr || !*listener) {
    return conclude(AudioOutcome::failure(audiostatus::kInvalidArgument, "A listener needs a queue."));
  }
  // The system object is there even while the server is not; nothing else is.
  const bool system = object == audio::kSystemObject &&
                      (address == audio::kProcessObjectList || address == audio::kDefaultOutputDevice);
  PublishedTable::Table table;
  if (!system) {
    if (const auto outcome = readTable(table, object, address); !outcome.ok()) return conclude(outcome);
  }
  system_->listeners().add({this, object, address, std::move(queue), std::move(listener)});
  return audiostatus::kOk;
}

AudioStatus PipeWireAudioHardware::removePropertyListener(
    AudioObjectID object, const AudioObjectAddress& address, const std::shared_ptr<SerialQueue>& queue,
    const std::shared_ptr<const AudioPropertyListener>& listener) {
  if (!system_->listeners().remove({this, object, address, queue, listener})) {
    return conclude(
        AudioOutcome::failure(audiostatus::kUnknownObject,
                              fmt::format("No such listener of {} is registered.", addressText(address))));
  }
  return audiostatus::kOk;
}

AudioStatus PipeWireAudioHardware::createProcessTap(const ProcessTapDescription& description,
                                                    AudioObjectID& tap) {
  return conclude(system_->createProcessTap(this, description, tap));
}

AudioStatus PipeWireAudioHardware::destroyProcessTap(AudioObjectID tap) {
  return conclude(system_->destroyProcessTap(this, tap));
}

AudioStatus PipeWireAudioHardware::createAggregateDevice(const AggregateDeviceDescription& description,
                                                         AudioObjectID& device) {
  return conclude(system_->createAggregateDevice(this, description, device));
}

AudioStatus PipeWireAudioHardware::destroyAggregateDevice(AudioObjectID device) {
  return conclude(system_->destroyAggregateDevice(this, device));
}

AudioStatus PipeWireAudioHardware::createIOProc(AudioObjectID device, AudioIOBlock block,
                                                AudioIOProcID& procedure) {
  return conclude(system_->createIOProc(this, device, std::move(block), procedure));
}

AudioStatus PipeWireAudioHardware::destroyIOProc(AudioObjectID device, AudioIOProcID procedure) {
  return conclude(system_->destroyIOProc(this, device, procedure));
}

AudioStatus PipeWireAudioHardware::startDevice(AudioObjectID device, AudioIOProcID procedure) {
  return conclude(system_->startDevice(this, device, procedure));
}

AudioStatus PipeWireAudioHardware::stopDevice(AudioObjectID device, AudioIOProcID procedure) {
  return conclude(system_->stopDevice(this, device, procedure));
}

}  // namespace monitor::platform
