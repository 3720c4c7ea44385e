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

struct MonitorGainState {
  std::atomic<float> target{1.0F};
  float current = 1.0F;  // render thread only
  bool fromEnd = false;  // render thread only: the direction of the last render
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

void steadyGroup(const Kernel& kernel, Buffers inputs, Buffers outputs, float gain, bool fromEnd) noexcept {
  for (std::size_t step = 0; step < outputs.size(); ++step) {
    const std::size_t index = fromEnd ? outputs.size() - 1 - step : step;
    kernel.steady({countOf(outputs[index]), gain, fromEnd}, samplesIn(inputs[index]),
                  samplesOut(outputs[index]));
  }
}

void renderSteady(const Kernel& kernel, Buffers inputs, Buffers outputs, float gain, bool fromEnd) noexcept {
  while (!outputs.empty()) {
    const std::size_t group = fromEnd ? sizeOfGroup(outputs) : outputs.size();
    steadyGroup(kernel, inputs.first(group), outputs.first(group), gain, fromEnd);
    inputs = inputs.subspan(group);
    outputs = outputs.subspan(group);
  }
}

void rampGroup(const Kernel& kernel, Buffers inputs, Buffers outputs, float from, float to,
               bool fromEnd) noexcept {
  const Ramp ramp{countOf(outputs[0]), outputs[0].mNumberChannels, from, to, fromEnd};
  if (ramp.channels > ramp.count) {
    steadyGroup(kernel, inputs, outputs, (to - from) + from, false);  // not even one frame: the position is 1
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

void renderRamp(const Kernel& kernel, Buffers inputs, Buffers outputs, float from, float to,
                bool fromEnd) noexcept {
  while (!outputs.empty()) {
    // Portable code is also the one for shared memory, where one buffer comes strictly after the other.
    const std::size_t group = &kernel == &monitor::gain::kPortableKernel ? 1 : sizeOfGroup(outputs);
    rampGroup(kernel, inputs.first(group), outputs.first(group), from, to, fromEnd);
    inputs = inputs.subspan(group);
    outputs = outputs.subspan(group);
  }
}

// Whether the outputs and as many inputs are more than a first-level cache of 48 KB, a usual size, holds.
bool overflowCache(Buffers outputs) noexcept {
  constexpr std::size_t kCachedBytes = std::size_t{24} << 10U;
  std::size_t bytes = 0;
  for (const MonitorAudioBuffer& buffer : outputs) bytes += buffer.mDataByteSize;
  return bytes > kCachedBytes;
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
  const bool shared = mayOverlap(inputs, outputs);
  if (shared) {
    silence(outputs);
    kernel = &monitor::gain::kPortableKernel;
  } else {
    silenceRest(outputs);
  }
  // Every other render goes from the end to the beginning: where the same buffers come again, as an audio
  // server's few do, what the last render touched last is what the cache still holds of them. From the
  // beginning each time, the cache would lose every line shortly before its turn.
  state->fromEnd = !state->fromEnd && !shared && overflowCache(outputs);
  const float target = state->target.load(std::memory_order_relaxed);
  if (target == state->current) {
    renderSteady(*kernel, inputs, outputs, target, state->fromEnd);  // fma(0, r, current) is current
  } else {
    renderRamp(*kernel, inputs, outputs, state->current, target, state->fromEnd);
  }
  state->current = target;
  state->frames.fetch_add(1, std::memory_order_relaxed);
}
