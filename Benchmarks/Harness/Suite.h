// SPDX-License-Identifier: MIT
#pragma once

#include <concepts>
#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <type_traits>
#include <utility>
#include <vector>

// What is measured: a product against a floor, in pairs that are run in turn, so that whatever the machine
// does meanwhile happens to both. Ratios hold from machine to machine, times do not.
namespace monitor::bench {

inline constexpr std::size_t kFewestPairs = 15;

// A function without arguments that is run many times. The loop is compiled around the function itself: of
// work that takes nanoseconds, a call through a pointer for each run would be a part of what is measured.
class Repeated {
 public:
  Repeated() = default;
  template <class Function>
  requires std::invocable<Function&> &&(!std::same_as<std::remove_cvref_t<Function>, Repeated>)
      Repeated(Function function)  // NOLINT(google-explicit-constructor): written as a lambda
      : runs_([function = std::move(function)](std::size_t runs) mutable {
          for (std::size_t run = 0; run < runs; ++run) {
            function();
            asm volatile("" : : : "memory");  // what a run wrote counts as used
          }
        }) {}

  void operator()(std::size_t runs) const { runs_(runs); }
  [[nodiscard]] explicit operator bool() const { return runs_ != nullptr; }

 private:
  std::function<void(std::size_t)> runs_;
};

// Something to measure, by one of the two functions.
struct Work {
  std::string name;
  Repeated repeat;  // run often enough to fill a sample, and timed by the harness; seconds are of one run
  std::function<double()>
      sample;  // does and times one sample itself, e.g. in another process; returns seconds
};

// Elapsed time, or the time that this process had on any processor.
enum class Clock { Wall, Cpu };

// One part of what a product is compared with.
struct Floor {
  double weight = 1.0;
  Work work;
};

// The product takes at most `bound` times the weighted sum of its floors. Without a bound the ratio is only
// printed.
struct Comparison {
  std::string name;  // unique within its subject
  Work product;
  std::vector<Floor> floors;
  std::optional<double> bound;
  Clock clock = Clock::Wall;
  std::optional<std::size_t> pairs =
      std::nullopt;  // for runs of many seconds: so many, whatever is asked of the others
};

// A figure that must not exceed a bound as it is: a request's milliseconds, a process's megabytes.
struct Limit {
  std::string name;
  std::string unit;
  std::function<double()> sample;
  double bound = 0.0;
};

// What a subject adds its measurements to. Objects that a measurement needs are kept by its functions.
class Suite {
 public:
  void add(Comparison comparison) { comparisons_.push_back(std::move(comparison)); }
  void add(Limit limit) { limits_.push_back(std::move(limit)); }
  [[nodiscard]] const std::vector<Comparison>& comparisons() const { return comparisons_; }
  [[nodiscard]] const std::vector<Limit>& limits() const { return limits_; }

 private:
  std::vector<Comparison> comparisons_;
  std::vector<Limit> limits_;
};

struct Subject {
  std::string name;
  std::function<void(Suite&)> fill;  // called right before the subject is measured
};

// Subjects in order of their names, as registered by the files of the program.
[[nodiscard]] std::vector<Subject> registeredSubjects();

// A namespace-scope object of this type registers a subject:
//
//   const monitor::bench::Registration kRegistration("gain", addGainComparisons);
class Registration {
 public:
  Registration(std::string subject, std::function<void(Suite&)> fill);
};

}  // namespace monitor::bench
