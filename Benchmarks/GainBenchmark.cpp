// SPDX-License-Identifier: MIT
// The gain render against copying the same samples and silencing them once.
#include <fmt/format.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "Benchmarks/Harness/Suite.h"
#include "MonitorAudioEngine/MonitorGain.h"
#include "MonitorAudioEngine/MonitorGainKernel.h"

namespace monitor::bench {
namespace {

constexpr std::size_t kCacheLineSamples = 16;

// Between two buffers. A distance of nearly a page would make loads wait for stores that only look like
// theirs, in a copy most of all.
constexpr std::size_t kGapSamples = 17 * kCacheLineSamples;

// A list of one buffer or two, laid out as the interface's list of any length.
struct BufferList {
  std::uint32_t count = 0;
  std::array<MonitorAudioBuffer, 2> buffers{};

  [[nodiscard]] MonitorAudioBufferList* get() { return reinterpret_cast<MonitorAudioBufferList*>(this); }
};
static_assert(offsetof(BufferList, buffers) == offsetof(MonitorAudioBufferList, mBuffers));

// Stereo frames, either interleaved in one buffer or as two buffers of one channel.
enum class Layout { Interleaved, TwoBuffers };

// Input and output of one render, and a state to render with. All buffers begin on a cache line, as an audio
// server's memory does: that is where copying is fastest and the bounds are hardest to keep.
class Render {
 public:
  Render(std::size_t frames, Layout layout, const gain::Kernel& kernel)
      : buffers_(layout == Layout::Interleaved ? 1 : 2),
        samples_(2 * frames / buffers_),
        memory_(2 * buffers_ * stride() + kCacheLineSamples, 0.3F),
        input_(list(0, ins_)),
        output_(list(buffers_, outs_)),
        state_(gain::createState(kernel), MonitorGainDestroy) {
    MonitorGainSet(state_.get(), 0.4F);
    render();
  }

  void render() { MonitorGainRender(state_.get(), input_.get(), output_.get()); }
  void renderRamp() {
    high_ = !high_;
    MonitorGainSet(state_.get(), high_ ? 0.8F : 0.4F);
    render();
  }
  void copy() {
    for (std::size_t buffer = 0; buffer < buffers_; ++buffer)
      std::memcpy(outs_[buffer], ins_[buffer], bytes());
  }
  void silence() {
    for (std::size_t buffer = 0; buffer < buffers_; ++buffer) std::memset(outs_[buffer], 0, bytes());
  }

 private:
  [[nodiscard]] std::size_t stride() const { return samples_ + kGapSamples; }
  [[nodiscard]] std::size_t bytes() const { return samples_ * sizeof(float); }
  // The memory of the n-th buffer, the inputs before the outputs. `samples_` is a multiple of a cache line.
  [[nodiscard]] float* place(std::size_t index) {
    void* at = memory_.data();
    std::size_t space = memory_.size() * sizeof(float);
    return static_cast<float*>(std::align(kCacheLineSamples * sizeof(float), bytes(), at, space)) +
           index * stride();
  }
  [[nodiscard]] BufferList list(std::size_t first, std::array<float*, 2>& places) {
    BufferList list{static_cast<std::uint32_t>(buffers_), {}};
    for (std::size_t buffer = 0; buffer < buffers_; ++buffer) {
      places[buffer] = place(first + buffer);
      list.buffers[buffer] = {buffers_ == 1 ? 2U : 1U, static_cast<std::uint32_t>(bytes()), places[buffer]};
    }
    return list;
  }

  std::size_t buffers_;
  std::size_t samples_;  // of each buffer
  std::vector<float> memory_;
  std::array<float*, 2> ins_{};
  std::array<float*, 2> outs_{};
  BufferList input_;
  BufferList output_;
  std::unique_ptr<MonitorGainState, void (*)(MonitorGainState*)> state_;
  bool high_ = false;
};

using SharedRender = std::shared_ptr<Render>;

Work steady(const SharedRender& render) {
  return {"render", [render] { render->render(); }, {}};
}
Work ramp(const SharedRender& render) {
  return {"render", [render] { render->renderRamp(); }, {}};
}
Work copy(const SharedRender& render) {
  return {"memcpy", [render] { render->copy(); }, {}};
}
Work silence(const SharedRender& render) {
  return {"memset", [render] { render->silence(); }, {}};
}

// Short buffers stay in the first-level cache. One silencing is allowed for, as zeroing first is part of the
// rules.
void addShort(Suite& suite, const SharedRender& render, const std::string& shape, bool bounded) {
  const std::optional<double> bound = bounded ? std::optional(1.0) : std::nullopt;
  suite.add({"steady, " + shape, steady(render), {{1.5, copy(render)}, {1.0, silence(render)}}, bound});
  suite.add({"ramp, " + shape, ramp(render), {{3.0, copy(render)}, {1.0, silence(render)}}, bound});
}

// A long one is bound by memory and takes hardly more than the copy.
void addLong(Suite& suite, const SharedRender& render, const std::string& shape) {
  suite.add({"steady, " + shape, steady(render), {{1.0, copy(render)}}, 1.2});
  suite.add({"ramp, " + shape, ramp(render), {{1.0, copy(render)}}, 1.2});
}

void addGainComparisons(Suite& suite) {
  const gain::Kernel& kernel = gain::fastestKernel(gain::cpuFeatures());
  for (const Layout layout : {Layout::Interleaved, Layout::TwoBuffers}) {
    const std::string shape = layout == Layout::Interleaved ? "stereo frames" : "frames in two buffers";
    for (const std::size_t frames : {128U, 256U, 512U, 1024U}) {
      addShort(suite, std::make_shared<Render>(frames, layout, kernel), fmt::format("{} {}", frames, shape),
               frames == 512);
    }
    for (const std::size_t frames : {4096U, 8192U, 32768U}) {
      addLong(suite, std::make_shared<Render>(frames, layout, kernel), fmt::format("{} {}", frames, shape));
    }
  }
  const gain::Kernel& plain = gain::fastestKernel({});
  const auto render = std::make_shared<Render>(512, Layout::Interleaved, plain);
  suite.add(
      {fmt::format("ramp, 512 stereo frames, {}", plain.name), ramp(render), {{1.0, copy(render)}}, 25.0});
}

const Registration kRegistration("gain", addGainComparisons);

}  // namespace
}  // namespace monitor::bench
