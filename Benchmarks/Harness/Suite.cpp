// SPDX-License-Identifier: MIT
#include "Benchmarks/Harness/Suite.h"

#include <algorithm>
#include <utility>

namespace monitor::bench {
namespace {

// Within a function, so that it exists before the first registration of whichever file.
std::vector<Subject>& registry() {
  static std::vector<Subject> subjects;
  return subjects;
}

}  // namespace

Registration::Registration(std::string subject, std::function<void(Suite&)> fill) {
  registry().push_back({std::move(subject), std::move(fill)});
}

std::vector<Subject> registeredSubjects() {
  std::vector<Subject> subjects = registry();
  std::sort(subjects.begin(), subjects.end(),
            [](const Subject& one, const Subject& other) { return one.name < other.name; });
  return subjects;
}

}  // namespace monitor::bench
