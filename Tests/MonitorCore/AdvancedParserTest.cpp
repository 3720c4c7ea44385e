// SPDX-License-Identifier: MIT
#include "MonitorCore/AdvancedParser.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <fstream>
#include <sstream>

#include "MonitorCore/MonitorError.h"
#include "Tests/MonitorCore/Support/RandomProcesses.h"

namespace monitor {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr Date kAt{786'000'000.0};
constexpr const char* kNothingRecognized = "This Mac did not report a recognized advanced hardware reading.";

std::string document(const std::string& entries) {
  return "<?xml version=\"1.0\" encoding=\"UTF-8\"?>\n<plist version=\"1.0\">\n<dict>" + entries +
         "</dict>\n</plist>\n";
}

std::string entry(const std::string& key, const std::string& value) {
  return "<key>" + key + "</key>" + value;
}
std::string integer(const std::string& number) {
  return "<integer>" + number + "</integer>";
}
std::string real(const std::string& number) {
  return "<real>" + number + "</real>";
}
std::string dict(const std::string& entries) {
  return "<dict>" + entries + "</dict>";
}
std::string array(const std::string& elements) {
  return "<array>" + elements + "</array>";
}

AdvancedSample parse(const std::string& output) {
  return AdvancedParser::parse(output,
                               {{7, {7, 100}}, {8, {8, 200}}, {1, {1, 1}}, {0, {0, 1}}, {-3, {-3, 1}}}, kAt);
}

AdvancedSample parseEntries(const std::string& entries) {
  return parse(document(entries));
}

std::optional<double> value(const AdvancedSample& sample, MetricID metric) {
  const auto found = sample.readings.find(metric);
  return found == sample.readings.end() ? std::nullopt : found->second.value;
}

// The value of `metric` from one number under `key` in `section`.
std::optional<double> valueOf(const char* section, const char* key, const std::string& element,
                              MetricID metric) {
  return value(parseEntries(entry(section, dict(entry(key, element)))), metric);
}

std::int64_t errorCode(const std::string& output) {
  try {
    parse(output);
  } catch (const MonitorError& error) {
    EXPECT_EQ(error.domain(), MonitorError::kCocoaDomain);
    return error.code();
  }
  return 0;
}

std::string task(const std::string& pid, const std::string& entries) {
  return dict(entry("pid", pid) + entries);
}

std::vector<AdvancedProcessReading> processes(const std::string& tasks,
                                              const std::string& elapsed = "1000000000") {
  return parseEntries(entry("elapsed_ns", integer(elapsed)) + entry("tasks", array(tasks))).processes;
}

TEST(AdvancedParserTest, LastOfSeveralDocumentsCounts) {
  const std::string first = document(entry("gpu", dict(entry("idle_ratio", real("0.1")))));
  const std::string second = document(entry("gpu", dict(entry("idle_ratio", real("0.25")))));
  const std::string zero(1, '\0');
  EXPECT_EQ(value(parse(first + zero + second), MetricID::Gpu), 75.0);
  EXPECT_EQ(value(parse(zero + zero + first + zero + zero + second + zero + zero), MetricID::Gpu), 75.0);
  EXPECT_EQ(value(parse("junk" + zero + second), MetricID::Gpu), 75.0);
  EXPECT_EQ(errorCode(second + zero + "junk"), MonitorError::kPropertyListReadCorrupt);
  EXPECT_EQ(errorCode(second + zero + "\n"), MonitorError::kPropertyListReadCorrupt);
}

TEST(AdvancedParserTest, OutputWithoutADocumentIsCorrupt) {
  EXPECT_EQ(errorCode(""), MonitorError::kPropertyListReadCorrupt);
  EXPECT_EQ(errorCode(std::string(3, '\0')), MonitorError::kPropertyListReadCorrupt);
  try {
    parse("");
  } catch (const MonitorError& error) {
    EXPECT_STREQ(error.what(), "The data could not be read because it is not in the correct format.");
  }
}

TEST(AdvancedParserTest, TopLevelMustBeADictionary) {
  for (const char* root :
       {"<array/>", "<string>a</string>", "<integer>1</integer>", "<true/>", "<date/>", "<data/>"}) {
    EXPECT_EQ(errorCode("<plist version=\"1.0\">" + std::string(root) + "</plist>"),
              MonitorError::kPropertyListReadCorrupt)
        << root;
  }
}

TEST(AdvancedParserTest, BinaryListIsCorrupt) {
  const std::string binary(
      "bplist00\xd1\x01\x02Sgpu\xd0\x08\x0b\x0f\0\0\0\0\0\0\x01\x01\0\0\0\0\0\0\0\x03\0\0\0\0\0\0\0"
      "\0\0\0\0\0\0\0\0\x10",
      47);
  EXPECT_EQ(errorCode(binary), MonitorError::kPropertyListReadCorrupt);
}

TEST(AdvancedParserTest, EveryTruncationOfADocumentIsAnError) {
  std::string whole = document(entry("gpu", dict(entry("idle_ratio", real("0.5")))) +
                               entry("tasks", array(task(integer("7"), entry("energy_impact", real("1"))))));
  whole.pop_back();  // the line break after the last tag
  EXPECT_NO_THROW(parse(whole));
  for (std::size_t length = 0; length < whole.size(); ++length) {
    EXPECT_EQ(errorCode(whole.substr(0, length)), MonitorError::kPropertyListReadCorrupt) << length;
  }
}

TEST(AdvancedParserTest, ReadingsCarrySourceUnitTimeAndDetail) {
  const AdvancedSample sample =
      parseEntries(entry("gpu", dict(entry("idle_ratio", real("0.25")))) +
                   entry("processor", dict(entry("combined_power", integer("12345")))) +
                   entry("smc", dict(entry("cpu_die", real("55.5")) + entry("gpu_die", integer("-20")) +
                                     entry("fans", array(dict(entry("speed", integer("2500"))))))));
  const std::string source = "Apple powermetrics";
  const auto expect = [&](MetricID metric, double number, MetricUnit unit, const char* detail) {
    EXPECT_EQ(sample.readings.at(metric),
              MetricReading(number, unit, source, MetricState::Available, kAt, std::string(detail)));
  };
  expect(MetricID::Gpu, 75.0, MetricUnit::Percent, "GPU active residency reported by macOS");
  expect(MetricID::PowerWatts, 12.345, MetricUnit::Watts,
         "Estimated CPU, GPU and neural-engine power; not total wall power");
  expect(MetricID::CpuTemperature, 55.5, MetricUnit::Celsius, "CPU die sensor on supported hardware");
  expect(MetricID::GpuTemperature, -20.0, MetricUnit::Celsius, "GPU die sensor on supported hardware");
  expect(MetricID::FanRPM, 2500.0, MetricUnit::Rpm, "Fastest reported fan \xC2\xB7 read only");
  EXPECT_EQ(sample.readings.size(), 5U);
  EXPECT_THAT(sample.notes, IsEmpty());
  EXPECT_EQ(sample.timestamp, kAt);
  EXPECT_EQ(sample.interval, 1.0);
}

TEST(AdvancedParserTest, DetailsAreThoseOfThePlatformWhileTheSourceIsOne) {
  const std::string output =
      document(entry("gpu", dict(entry("idle_ratio", real("0.25")))) +
               entry("processor", dict(entry("combined_power", integer("12345")))) +
               entry("smc", dict(entry("cpu_die", real("55.5")) + entry("gpu_die", real("50")) +
                                 entry("fans", array(dict(entry("speed", integer("2500"))))))));
  const AdvancedSample sample = AdvancedParser::parse(output, {}, kAt, kLinuxAdvancedDetails);
  const auto detail = [&](MetricID metric) { return sample.readings.at(metric).detail.value_or(""); };
  EXPECT_EQ(detail(MetricID::Gpu), "Busiest engine of the busiest graphics card");
  EXPECT_EQ(detail(MetricID::PowerWatts),
            "Processor packages with their integrated graphics; not total wall power");
  EXPECT_EQ(detail(MetricID::CpuTemperature), "Hottest processor package");
  EXPECT_EQ(detail(MetricID::GpuTemperature), "Hottest graphics card");
  EXPECT_EQ(detail(MetricID::FanRPM), "Fastest reported fan \xC2\xB7 read only");
  for (const auto& [metric, reading] : sample.readings) EXPECT_EQ(reading.source, "Apple powermetrics");
}

TEST(AdvancedParserTest, IdleRatioWinsOverActiveRatioWhenBothAreValid) {
  const auto gpu = [](const std::string& idle, const std::string& active) {
    return value(parseEntries(entry("gpu", dict(entry("idle_ratio", idle) + entry("active_ratio", active)))),
                 MetricID::Gpu);
  };
  EXPECT_EQ(gpu(real("0.25"), real("0.4")), 75.0);
  EXPECT_EQ(gpu(real("1.5"), real("0.4")), 40.0);
  EXPECT_EQ(gpu("<true/>", real("0.4")), 40.0);
  EXPECT_EQ(gpu(real("nan"), real("0.4")), 40.0);
  EXPECT_EQ(gpu(integer("1"), real("0.4")), 0.0);
  EXPECT_EQ(gpu(integer("0"), real("0.4")), 100.0);
  EXPECT_EQ(gpu(real("1.0000001"), real("-0.0000001")), std::nullopt);
}

TEST(AdvancedParserTest, CombinedPowerIsInMilliwatts) {
  const auto watts = [](const std::string& element) {
    return valueOf("processor", "combined_power", element, MetricID::PowerWatts);
  };
  EXPECT_EQ(watts(integer("12345")), 12.345);
  EXPECT_EQ(watts(integer("0")), 0.0);
  EXPECT_EQ(watts(integer("1000000")), 1000.0);
  EXPECT_EQ(watts(real("1000000.5")), std::nullopt);
  EXPECT_EQ(watts(integer("-1")), std::nullopt);
  EXPECT_EQ(watts("<true/>"), std::nullopt);
  EXPECT_EQ(watts("<string>5</string>"), std::nullopt);
  EXPECT_EQ(watts(integer("99999999999999999999999")), std::nullopt);
  EXPECT_EQ(watts(integer("-99999999999999999999999")), std::nullopt);
  EXPECT_EQ(watts(integer("12x")), std::nullopt);
}

TEST(AdvancedParserTest, TemperaturesIncludeBothBounds) {
  const auto celsius = [](const std::string& number) {
    return valueOf("smc", "cpu_die", real(number), MetricID::CpuTemperature);
  };
  EXPECT_EQ(celsius("-20"), -20.0);
  EXPECT_EQ(celsius("-20.001"), std::nullopt);
  EXPECT_EQ(celsius("150"), 150.0);
  EXPECT_EQ(celsius("151"), std::nullopt);
  EXPECT_EQ(valueOf("smc", "gpu_die", integer("-5"), MetricID::GpuTemperature), -5.0);
  EXPECT_EQ(valueOf("smc", "gpu_die", integer("-21"), MetricID::GpuTemperature), std::nullopt);
  EXPECT_EQ(celsius("1e999"), std::nullopt);
}

TEST(AdvancedParserTest, FastestValidFanCounts) {
  const auto rpm = [](const std::string& fans) {
    return value(parseEntries(entry("smc", dict(entry("fans", fans)))), MetricID::FanRPM);
  };
  const auto fan = [](const std::string& speed) { return dict(entry("speed", speed)); };
  EXPECT_EQ(rpm(array(fan(integer("0")) + fan(integer("2500")) + fan(integer("25000")))), 2500.0);
  EXPECT_EQ(rpm(array(fan(integer("0")))), 0.0);
  EXPECT_EQ(rpm(array(fan(integer("20000")))), 20000.0);
  EXPECT_EQ(rpm(array(fan(integer("20001")))), std::nullopt);
  EXPECT_EQ(rpm(array(fan("<true/>") + dict(""))), std::nullopt);
  EXPECT_EQ(rpm(array("")), std::nullopt);
}

TEST(AdvancedParserTest, FansThatAreNotAllDictionariesCountAsMissing) {
  const std::string fan = dict(entry("speed", integer("2500")));
  for (const std::string& fans :
       {array(fan + integer("3000")), array("<string/>" + fan), fan, integer("2500"), array(array(fan))}) {
    const AdvancedSample sample =
        parseEntries(entry("smc", dict(entry("fans", fans) + entry("cpu_die", real("50")))));
    EXPECT_EQ(value(sample, MetricID::FanRPM), std::nullopt) << fans;
    EXPECT_EQ(value(sample, MetricID::CpuTemperature), 50.0) << fans;
  }
}

TEST(AdvancedParserTest, SectionsOfTheWrongTypeYieldNothing) {
  for (const char* section : {"gpu", "processor", "smc", "tasks", "elapsed_ns"}) {
    for (const char* other :
         {"<array/>", "<string>x</string>", "<integer>5</integer>", "<true/>", "<date/>"}) {
      const AdvancedSample sample = parseEntries(entry(section, other));
      EXPECT_TRUE(sample.readings.empty()) << section << other;
      EXPECT_TRUE(sample.processes.empty()) << section << other;
    }
  }
}

TEST(AdvancedParserTest, DuplicateKeysTakeTheLastValue) {
  EXPECT_EQ(
      value(parseEntries(entry("smc", dict(entry("cpu_die", real("10")))) +
                         entry("smc", dict(entry("cpu_die", real("20")) + entry("cpu_die", real("30"))))),
            MetricID::CpuTemperature),
      30.0);
}

TEST(AdvancedParserTest, BytesBecomeRatesOverTheMeasuredInterval) {
  const AdvancedSample sample =
      parseEntries(entry("elapsed_ns", integer("500000000")) +
                   entry("tasks", array(task(integer("7"), entry("network_recv_bytes", integer("1000")) +
                                                               entry("network_send_bytes", integer("250")) +
                                                               entry("energy_impact", real("12.5"))))));
  EXPECT_EQ(sample.interval, 0.5);
  EXPECT_THAT(sample.processes, ElementsAre(AdvancedProcessReading{{7, 100}, 2000.0, 500.0, 12.5}));
}

TEST(AdvancedParserTest, BytesWithoutAMeasuredIntervalAreNoRates) {
  const std::string tasks =
      entry("tasks", array(task(integer("7"), entry("network_recv_bytes", integer("1000")) +
                                                  entry("energy_impact", real("1")))));
  for (const std::string& elapsed :
       {std::string(), entry("elapsed_ns", integer("0")), entry("elapsed_ns", integer("90000000001")),
        entry("elapsed_ns", "<true/>"), entry("elapsed_ns", real("0.5"))}) {
    const AdvancedSample sample = parseEntries(elapsed + tasks);
    EXPECT_EQ(sample.interval, 1.0) << elapsed;
    EXPECT_THAT(sample.processes,
                ElementsAre(AdvancedProcessReading{{7, 100}, std::nullopt, std::nullopt, 1.0}));
  }
  EXPECT_EQ(parseEntries(entry("elapsed_ns", integer("1"))).interval, 1e-9);
  EXPECT_EQ(parseEntries(entry("elapsed_ns", integer("90000000000"))).interval, 90.0);
}

TEST(AdvancedParserTest, BytesRangeToTwoToThePowerOfSixtyFour) {
  const auto download = [](const std::string& bytes) -> std::optional<double> {
    const auto list = processes(task(integer("7"), entry("network_recv_bytes", bytes)));
    return list.empty() ? std::nullopt : list[0].download;
  };
  EXPECT_EQ(download(integer("0")), 0.0);
  EXPECT_EQ(download(integer("18446744073709551611")), 18446744073709551611.0);
  EXPECT_EQ(download(integer("18446744073709551616")), 0x1p64);
  EXPECT_EQ(download(integer("36893488147419103232")), std::nullopt);
  EXPECT_EQ(download(integer("-5")), std::nullopt);
  EXPECT_EQ(download("<true/>"), std::nullopt);
}

TEST(AdvancedParserTest, EnergyIsBetweenZeroAndAMillion) {
  const auto energy = [](const std::string& number) -> std::optional<double> {
    const auto list = processes(task(integer("7"), entry("energy_impact", real(number))));
    return list.empty() ? std::nullopt : list[0].energy;
  };
  EXPECT_EQ(energy("0"), 0.0);
  EXPECT_EQ(energy("1000000"), 1e6);
  EXPECT_EQ(energy("1000000.5"), std::nullopt);
  EXPECT_EQ(energy("-0.5"), std::nullopt);
}

TEST(AdvancedParserTest, TasksOfUnknownProcessesAreSkipped) {
  const std::string energy = entry("energy_impact", real("1"));
  EXPECT_THAT(processes(task(integer("9"), energy)), IsEmpty());
  EXPECT_THAT(processes(dict(energy)), IsEmpty());
  EXPECT_THAT(processes(task("<string>7</string>", energy)), IsEmpty());
  EXPECT_EQ(processes(task(integer("9"), energy) + task(integer("8"), energy)).size(), 1U);
}

TEST(AdvancedParserTest, PidIsTheIntegerOfAnyNumber) {
  const std::string energy = entry("energy_impact", real("1"));
  const auto key = [&](const std::string& pid) -> std::optional<ProcessKey> {
    const auto list = processes(task(pid, energy));
    return list.empty() ? std::nullopt : std::optional(list[0].key);
  };
  EXPECT_EQ(key(integer("7")), (ProcessKey{7, 100}));
  EXPECT_EQ(key(integer("-3")), (ProcessKey{-3, 1}));
  EXPECT_EQ(key(real("7.9")), (ProcessKey{7, 100}));
  EXPECT_EQ(key("<true/>"), (ProcessKey{1, 1}));
  EXPECT_EQ(key("<false/>"), (ProcessKey{0, 1}));
  EXPECT_EQ(key(integer("4294967303")), std::nullopt);  // 7 beyond 32 bits
  EXPECT_EQ(key(real("1e300")), std::nullopt);
  EXPECT_EQ(key(real("nan")), std::nullopt);
}

TEST(AdvancedParserTest, TaskWithoutAnyFigureIsSkipped) {
  EXPECT_THAT(processes(task(integer("7"), "")), IsEmpty());
  EXPECT_THAT(processes(task(integer("7"), entry("energy_impact", "<true/>"))), IsEmpty());
}

TEST(AdvancedParserTest, TasksKeepTheirOrderAndMayRepeat) {
  const auto list = processes(task(integer("8"), entry("energy_impact", real("1"))) +
                              task(integer("7"), entry("energy_impact", real("2"))) +
                              task(integer("8"), entry("energy_impact", real("3"))));
  EXPECT_THAT(list, ElementsAre(AdvancedProcessReading{{8, 200}, std::nullopt, std::nullopt, 1.0},
                                AdvancedProcessReading{{7, 100}, std::nullopt, std::nullopt, 2.0},
                                AdvancedProcessReading{{8, 200}, std::nullopt, std::nullopt, 3.0}));
}

TEST(AdvancedParserTest, TasksThatAreNotAllDictionariesCountAsMissing) {
  const std::string good = task(integer("7"), entry("energy_impact", real("1")));
  EXPECT_THAT(processes(good + integer("1")), IsEmpty());
  EXPECT_THAT(processes(good + "<array/>"), IsEmpty());
  EXPECT_THAT(parseEntries(entry("tasks", good)).processes, IsEmpty());
}

TEST(AdvancedParserTest, OnlyTasksLeaveTheNoteAndTheProcesses) {
  const AdvancedSample sample =
      parseEntries(entry("tasks", array(task(integer("7"), entry("energy_impact", real("1"))))));
  EXPECT_TRUE(sample.readings.empty());
  EXPECT_THAT(sample.notes, ElementsAre(kNothingRecognized));
  EXPECT_EQ(sample.processes.size(), 1U);
}

TEST(AdvancedParserTest, EmptyDictionaryGivesOnlyTheNote) {
  const AdvancedSample sample = parseEntries("");
  EXPECT_EQ(sample, (AdvancedSample{kAt, 1.0, {}, {}, {kNothingRecognized}}));
}

TEST(AdvancedParserTest, RecordedOutputOfTheToolIsUnderstood) {
  std::ifstream file(VESK_FIXTURES "/power/sample.plist", std::ios::binary);
  ASSERT_TRUE(file) << "Tests/Fixtures/power/sample.plist";
  std::ostringstream bytes;
  bytes << file.rdbuf();
  const AdvancedSample sample =
      AdvancedParser::parse(bytes.str(), {{812, {812, 1731712345123456}}, {90, {90, 5}}}, kAt);
  EXPECT_EQ(value(sample, MetricID::Gpu), (1.0 - 0.953125) * 100.0);
  EXPECT_EQ(value(sample, MetricID::PowerWatts), 4.381);
  EXPECT_EQ(value(sample, MetricID::CpuTemperature), 52.75);
  EXPECT_EQ(value(sample, MetricID::FanRPM), 1842.0);
  EXPECT_EQ(sample.interval, 1.000976562);
  ASSERT_EQ(sample.processes.size(), 1U);
  EXPECT_EQ(sample.processes[0].key, (ProcessKey{812, 1731712345123456}));
  EXPECT_EQ(sample.processes[0].download, 40960.0 / 1.000976562);
  EXPECT_EQ(sample.processes[0].energy, 3.25);
  EXPECT_EQ(sample.statusDescription(), "Connected \xC2\xB7 4 hardware readings available.");
}

// Random documents from the keys that count, mostly in their places, and values of every type: whatever comes
// out obeys the ranges.
class RandomDocument {
 public:
  explicit RandomDocument(testing::Chance& chance) : chance_(chance) {}

  std::string entries() {
    return entry("gpu", section({"idle_ratio", "active_ratio"})) +
           entry("processor", section({"combined_power"})) +
           entry("smc", orOther(dict(figures({"cpu_die", "gpu_die"}) + entry("fans", list({"speed"}))))) +
           entry("elapsed_ns", figure()) +
           entry("tasks", list({"pid", "network_recv_bytes", "network_send_bytes", "energy_impact"}));
  }

 private:
  using Keys = std::vector<std::string>;

  std::string figure() {
    static const Keys kNumbers{"0",    "1",   "0.5", "-1",   "-20", "150",   "7",          "8",  "1e9",
                               "2500", "nan", "",    "1e19", "x",   "1e300", "1000000000", "1e6"};
    return chance_.oneIn(8)   ? other()
           : chance_.oneIn(2) ? real(chance_.of(kNumbers))
                              : integer(chance_.of(kNumbers));
  }
  std::string other() {
    static const Keys kOthers{"<true/>", "<string>1</string>", "<array/>", "<dict/>", "<date/>"};
    return chance_.of(kOthers);
  }
  std::string orOther(const std::string& usual) { return chance_.oneIn(12) ? other() : usual; }
  std::string figures(const Keys& keys) {
    std::string text;
    for (const std::string& key : keys) {
      if (!chance_.oneIn(4)) text += entry(key, figure());
    }
    return text;
  }
  std::string section(const Keys& keys) { return orOther(dict(figures(keys))); }
  std::string list(const Keys& keys) {
    std::string elements;
    for (std::uint64_t count = chance_.below(4); count > 0; --count) elements += section(keys);
    return orOther(array(elements));
  }

  testing::Chance& chance_;
};

TEST(AdvancedParserTest, ReadingsOfRandomDocumentsStayInTheirRanges) {
  testing::Chance chance(77);
  std::size_t readings = 0;
  std::size_t tasks = 0;
  for (int round = 0; round < testing::rounds(2000); ++round) {
    const AdvancedSample sample = parseEntries(RandomDocument(chance).entries());
    readings += sample.readings.size();
    tasks += sample.processes.size();
    EXPECT_EQ(sample.readings.empty(), !sample.notes.empty());
    EXPECT_GE(sample.interval, 1e-9);
    EXPECT_LE(sample.interval, 90.0);
    for (const auto& [metric, reading] : sample.readings) {
      EXPECT_EQ(reading.state, MetricState::Available);
      EXPECT_GE(*reading.value, -20.0);
      EXPECT_LE(*reading.value, 20'000.0);
    }
  }
  EXPECT_GT(readings, 1000U);
  EXPECT_GT(tasks, 100U);
}

}  // namespace
}  // namespace monitor
