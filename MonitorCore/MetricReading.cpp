// SPDX-License-Identifier: MIT
#include "MonitorCore/MetricReading.h"

#include <cmath>
#include <utility>

namespace monitor {

MetricReading::MetricReading(std::optional<double> value, MetricUnit unit, std::string source,
                             MetricState state, Date timestamp, std::optional<std::string> detail)
    : value(value),
      unit(unit),
      source(std::move(source)),
      state(state),
      timestamp(timestamp),
      detail(std::move(detail)) {
  if (this->value && std::isfinite(*this->value)) return;
  this->value.reset();
  if (this->state == MetricState::Available) this->state = MetricState::WarmingUp;
}

}  // namespace monitor
