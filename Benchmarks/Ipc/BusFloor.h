// SPDX-License-Identifier: MIT
#pragma once

// What the program of BusFloor.cpp is called on the bus.
namespace monitor::bench::bus_floor {

inline constexpr const char* kName = "app.vesk.native.bench-floor";
inline constexpr const char* kPath = "/app/vesk/native/bench_floor";
inline constexpr const char* kInterface = "app.vesk.native.BenchFloor";

}  // namespace monitor::bench::bus_floor
