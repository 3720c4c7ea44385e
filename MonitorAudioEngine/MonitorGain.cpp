/* SPDX-License-Identifier: MIT */
#include "MonitorAudioEngine/MonitorGain.h"

#include <atomic>
#include <cmath>
#include <cstddef>
#include <cstring>
#include <new>
#include <span>

#include "MonitorAudioEngine/MonitorGainKernel.h"

using monitor::gain::Kernel;
using monitor::gain::Ramp;
using monitor::gain::Sample;
using monitor::gain::Steady;

struct MonitorGainState {
  std::atomic<float> target{1.0F};
  float current = 1.0F;  // render thread only
  std::atomic<std::uint8_t> failed{0};
  std::atomic<std::uint64_t> frames{0};
  const Kernel* kernel = nullptr;  // chosen once, so that a render asks nobody
};

static_assert(std::atomic<float>::is_always_lock_free);
static_assert(std::atomic<std::uint8_t>::is_always_lock_free);
static_assert(std::atomic<std::uint64_t>::is_always_lock_free);

namespace {

using Buffers = std::span<const MonitorAudioBuffer>;

// Above this many buffers comparing every output with every input would cost more than it saves.
constexpr std::size_t kMostBuffersCompared = 32;

// Buffers of one shape that a ramp takes together.
constexpr std::size_t kMostBuffersTogether = 8;

bool fits(const MonitorAudioBuffer& input, const MonitorAudioBuffer& output) noexcept {
  return input.mNumberChannels == output.mNumberChannels && input.mDataByteSize == output.mDataByteSize &&
         input.mData != nullptr && input.mNumberChannels != 0 && output.mData != nullptr;
}

Buffers buffersOf(const MonitorAudioBufferList& list) noexcept {
  return {list.mBuffers, list.mNumberBuffers};
}

bool allFit(Buffers inputs, Buffers outputs) noexcept {
  if (inputs.size() != outputs.size()) return false;
  for (std::size_t index = 0; index < outputs.size(); ++index) {
    if (!fits(inputs[index], outputs[index])) return false;
  }
  return true;
}

bool overlap(const MonitorAudioBuffer& one, const MonitorAudioBuffer& other) noexcept {
  const auto first = reinterpret_cast<std::uintptr_t>(one.mData);
  const auto second = reinterpret_cast<std::uintptr_t>(other.mData);
  return first < second + other.mDataByteSize && second < first + one.mDataByteSize;
}

bool mayOverlap(Buffers inputs, Buffers outputs) noexcept {
  if (outputs.size() > kMostBuffersCompared) return true;
  for (const MonitorAudioBuffer& output : outputs) {
    for (const MonitorAudioBuffer& input : inputs) {
      if (overlap(input, output)) return true;
    }
  }
  return false;
}

void silence(Buffers outputs) noexcept {
  for (const MonitorAudioBuffer& buffer : outputs) {
    if (buffer.mData != nullptr) std::memset(buffer.mData, 0, buffer.mDataByteSize);
  }
}

// Only what no sample covers: the bytes behind the last whole one.
void silenceRest(Buffers outputs) noexcept {
  for (const MonitorAudioBuffer& buffer : outputs) {
    auto* bytes = static_cast<unsigned char*>(buffer.mData);
    for (std::size_t byte = buffer.mDataByteSize & ~std::size_t{3}; byte < buffer.mDataByteSize; ++byte) {
      bytes[byte] = 0;
    }
  }
}

const Sample* samplesIn(const MonitorAudioBuffer& buffer) noexcept {
  return static_cast<const Sample*>(buffer.mData);
}
Sample* samplesOut(const MonitorAudioBuffer& buffer) noexcept {
  return static_cast<Sample*>(buffer.mData);
}

std::size_t countOf(const MonitorAudioBuffer& buffer) noexcept {
  return buffer.mDataByteSize / sizeof(float);
}

void renderSteady(const Kernel& kernel, Buffers inputs, Buffers outputs, float gain) noexcept {
  std::size_t total = 0;
  for (const MonitorAudioBuffer& output : outputs) total += countOf(output);
  for (std::size_t index = 0; index < outputs.size(); ++index) {
    const Steady steady{countOf(outputs[index]), total, gain};
    kernel.steady(steady, samplesIn(inputs[index]), samplesOut(outputs[index]));
  }
}

// Whether two outputs may be written in any order.
bool mayGoTogether(const MonitorAudioBuffer& one, const MonitorAudioBuffer& other) noexcept {
  return one.mNumberChannels == other.mNumberChannels && one.mDataByteSize == other.mDataByteSize &&
         !overlap(one, other);
}

// How many outputs from the first on can be taken together.
std::size_t sizeOfGroup(Buffers outputs) noexcept {
  std::size_t size = 1;
  while (size < outputs.size() && size < kMostBuffersTogether) {
    for (std::size_t earlier = 0; earlier < size; ++earlier) {
      if (!mayGoTogether(outputs[earlier], outputs[size])) return size;
    }
    ++size;
  }
  return size;
}

void rampGroup(const Kernel& kernel, Buffers inputs, Buffers outputs, float from, float to) noexcept {
  const Ramp ramp{countOf(outputs[0]), outputs[0].mNumberChannels, from, to};
  if (ramp.channels > ramp.count) {
    renderSteady(kernel, inputs, outputs, (to - from) + from);  // not even one frame: the position is 1
    return;
  }
  const Sample* in[kMostBuffersTogether];
  Sample* out[kMostBuffersTogether];
  for (std::size_t index = 0; index < outputs.size(); ++index) {
    in[index] = samplesIn(inputs[index]);
    out[index] = samplesOut(outputs[index]);
  }
  kernel.ramp(ramp, in, out, outputs.size());
}

void renderRamp(const Kernel& kernel, Buffers inputs, Buffers outputs, float from, float to) noexcept {
  while (!outputs.empty()) {
    // Portable code is also the one for shared memory, where one buffer comes strictly after the other.
    const std::size_t group = &kernel == &monitor::gain::kPortableKernel ? 1 : sizeOfGroup(outputs);
    rampGroup(kernel, inputs.first(group), outputs.first(group), from, to);
    inputs = inputs.subspan(group);
    outputs = outputs.subspan(group);
  }
}

void fail(MonitorGainState& state) noexcept {
  state.failed.store(1, std::memory_order_release);
}

}  // namespace

namespace monitor::gain {

MonitorGainState* createState(const Kernel& kernel) noexcept {
  auto* state = new (std::nothrow) MonitorGainState;
  if (state != nullptr) state->kernel = &kernel;
  return state;
}

}  // namespace monitor::gain

MonitorGainState* MonitorGainCreate(void) {
  return monitor::gain::createState(monitor::gain::fastestKernel(monitor::gain::cpuFeatures()));
}

void MonitorGainDestroy(MonitorGainState* state) {
  delete state;
}

void MonitorGainSet(MonitorGainState* state, float gain) {
  // Written so that -0 becomes +0: the shortcut for a steady gain would otherwise show its sign.
  const float notNegative = gain > 0.0F ? gain : 0.0F;
  const float clamped = notNegative < 1.0F ? notNegative : 1.0F;
  state->target.store(std::isfinite(gain) ? clamped : 1.0F, std::memory_order_relaxed);
}

bool MonitorGainFailed(const MonitorGainState* state) {
  return state->failed.load(std::memory_order_relaxed) != 0;
}

std::uint64_t MonitorGainFrames(const MonitorGainState* state) {
  return state->frames.load(std::memory_order_relaxed);
}

void MonitorGainRender(MonitorGainState* state, const MonitorAudioBufferList* input,
                       MonitorAudioBufferList* output) {
  const Buffers outputs = buffersOf(*output);
  if (outputs.empty()) return fail(*state);
  const Buffers inputs = buffersOf(*input);
  if (!allFit(inputs, outputs)) {
    silence(outputs);  // never stale or unscaled audio
    return fail(*state);
  }
  // Every output is silenced before any input is read. Where they share memory that is heard, and so it is
  // done; else each sample is about to be overwritten and zeroing it first would only cost time. Samples of
  // shared memory are rendered strictly in order, as each may be read again as input.
  const Kernel* kernel = state->kernel;
  if (mayOverlap(inputs, outputs)) {
    silence(outputs);
    kernel = &monitor::gain::kPortableKernel;
  } else {
    silenceRest(outputs);
  }
  const float target = state->target.load(std::memory_order_relaxed);
  if (target == state->current) {
    renderSteady(*kernel, inputs, outputs, target);  // fma(0, r, current) is current
  } else {
    renderRamp(*kernel, inputs, outputs, state->current, target);
  }
  state->current = target;
  state->frames.fetch_add(1, std::memory_order_relaxed);
}
