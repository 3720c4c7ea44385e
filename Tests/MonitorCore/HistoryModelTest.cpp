// SPDX-License-Identifier: MIT
// Random days of life of a history, against a model in memory that knows the same rules in other words.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <map>
#include <random>
#include <set>
#include <tuple>

#include "MonitorCore/MonitorHistoryStore.h"
#include "Tests/MonitorCore/HistoryTestSupport.h"

namespace monitor {
namespace {

using fakes::StoredRow;

constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

class Model {
 public:
  void append(const MonitorSnapshot& snapshot) {
    if (std::isnan(snapshot.interval) || snapshot.interval <= 0 || snapshot.interval > 90) return;
    const double now = snapshot.timestamp.secondsSince1970();
    if (!std::isfinite(now)) return;
    const bool fresh = snapshot.advancedTimestamp.has_value() && snapshot.advancedTimestamp != last_;
    for (const auto& [metric, reading] : snapshot.readings) {
      if (reading.state != MetricState::Available) continue;
      if (reading.source == "Apple powermetrics") {
        if (fresh) {
          add("", metric, reading.value, reading.timestamp.secondsSince1970(), snapshot.advancedInterval);
        }
      } else {
        add("", metric, reading.value, now, snapshot.interval);
      }
    }
    for (const auto& app : snapshot.apps) {
      add(app.id, MetricID::Cpu, app.cpu, now, snapshot.interval);
      add(app.id, MetricID::MemoryUsed, static_cast<double>(app.memory), now, snapshot.interval);
      add(app.id, MetricID::DiskRead, app.diskRead, now, snapshot.interval);
      add(app.id, MetricID::DiskWrite, app.diskWrite, now, snapshot.interval);
      if (!fresh) continue;
      const double helper = snapshot.advancedTimestamp->secondsSince1970();
      add(app.id, MetricID::Download, app.download, helper, snapshot.advancedInterval);
      add(app.id, MetricID::Upload, app.upload, helper, snapshot.advancedInterval);
      add(app.id, MetricID::EnergyImpact, app.energy, helper, snapshot.advancedInterval);
    }
    if (fresh) last_ = snapshot.advancedTimestamp;
  }

  void rollUp(double now, std::int64_t days) {
    const auto rollUpCut = static_cast<std::int64_t>(std::floor((now - 86'400) / 900)) * 900;
    const double kept = days < 1 ? 1 : days > 30 ? 30 : static_cast<double>(days);
    const auto retentionCut = static_cast<std::int64_t>(std::trunc(now - kept * 86'400));
    std::erase_if(buckets_, [&](const auto& entry) { return std::get<0>(entry.first) < retentionCut; });
    std::map<Key, Bucket> rolled;
    for (const auto& [key, bucket] : buckets_) {
      const auto& [t, res, app, metric] = key;
      const bool old = res == 60 && t < rollUpCut;
      merge(rolled[old ? Key{t / 900 * 900, 900, app, metric} : key], bucket);
    }
    buckets_ = std::move(rolled);
  }

  void deleteSixtyOldestMoments() {
    std::set<std::int64_t> moments;
    for (const auto& entry : buckets_) {
      if (moments.size() < 60) moments.insert(std::get<0>(entry.first));
    }
    std::erase_if(buckets_, [&](const auto& entry) { return moments.contains(std::get<0>(entry.first)); });
  }

  void clear() {
    buckets_.clear();
    last_.reset();
  }
  void restart() { last_.reset(); }

  [[nodiscard]] std::vector<StoredRow> rows() const {
    std::vector<StoredRow> rows;
    for (const auto& [key, bucket] : buckets_) {
      const auto& [t, res, app, metric] = key;
      rows.push_back({t, res, app, metric, bucket.total, bucket.weight, bucket.peak});
    }
    return rows;
  }

  [[nodiscard]] std::vector<HistoryPoint> query(MetricID metric, const std::string& app, double from,
                                                double through) const {
    std::vector<HistoryPoint> points;
    for (const auto& row : rows()) {  // ordered by time already
      if (row.app != app || row.metric != rawValue(metric)) continue;
      if (static_cast<double>(row.t) < from || static_cast<double>(row.t) > through) continue;
      points.push_back({Date::since1970(static_cast<double>(row.t)), row.total / row.weight, row.peak,
                        row.weight, row.res});
    }
    return points;
  }

 private:
  using Key = std::tuple<std::int64_t, std::int64_t, std::string, std::string>;
  struct Bucket {
    double total = 0;
    double weight = 0;
    double peak = -std::numeric_limits<double>::infinity();
  };

  static void merge(Bucket& into, const Bucket& from) {
    into.total += from.total;
    into.weight += from.weight;
    into.peak = std::max(into.peak, from.peak);
  }

  // Every minute that [end - weight, end] overlaps gets its share.
  void add(const std::string& app, MetricID metric, std::optional<double> value, double end, double weight) {
    if (!value || !std::isfinite(*value) || !std::isfinite(end)) return;
    if (std::isnan(weight) || weight <= 0 || weight > 90) return;
    const double start = end - weight;
    const auto first = static_cast<std::int64_t>(std::floor(start / 60)) * 60;
    for (std::int64_t t = first; static_cast<double>(t) < end; t += 60) {
      const double share =
          std::min(end, static_cast<double>(t + 60)) - std::max(start, static_cast<double>(t));
      merge(buckets_[{t, 60, app, std::string(rawValue(metric))}], {*value * share, share, *value});
    }
  }

  std::map<Key, Bucket> buckets_;
  std::optional<Date> last_;
};

// One random life. Times are multiples of an eighth of a second, which binary fractions hold exactly.
class Life {
 public:
  explicit Life(unsigned seed) : random_(seed), now_(pick({0.0, 86'400.0 * 3, 1'731'758'400.0})) {}

  void live(int operations) {
    for (int index = 0; index < operations && !testing::Test::HasFailure(); ++index) {
      const int kind = number(0, 99);
      if (kind < 84) {
        append();
      } else if (kind < 87) {
        for (int minute = 0; minute < 100; ++minute) append();
      } else if (kind < 93) {
        maintain();
      } else if (kind < 97) {
        query();
      } else if (kind < 99) {
        reopen();
      } else {
        store_->clear();
        model_.clear();
      }
      expectEqual(fakes::storedRows(file_), model_.rows());
    }
    EXPECT_EQ(fakes::integrity(file_), "ok");
  }

 private:
  int number(int low, int high) { return std::uniform_int_distribution<int>(low, high)(random_); }
  double eighths(int low, int high) { return number(low * 8, high * 8) / 8.0; }
  bool chance(int percent) { return number(1, 100) <= percent; }
  template <class T>
  T pick(std::initializer_list<T> choices) {
    return choices.begin()[number(0, static_cast<int>(choices.size()) - 1)];
  }
  double value() {
    if (chance(5)) return kNaN;
    if (chance(5)) return pick({0.0, -1.0, 1e18, std::numeric_limits<double>::infinity()});
    return eighths(0, 100);
  }
  std::optional<double> figure() { return chance(20) ? std::nullopt : std::optional(value()); }

  void advance() {
    if (chance(95)) {
      now_ += eighths(0, 90);
    } else if (chance(80)) {
      now_ += eighths(0, 40'000);
    } else {
      now_ -= eighths(0, 4'000);
    }
  }

  MonitorSnapshot snapshot() {
    auto made =
        fakes::snapshotAt(chance(2) ? kNaN : now_, chance(15) ? pick({0.0, -1.0, 90.125})
                                                              : pick({90.0, eighths(0, 90), eighths(0, 4)}));
    for (const MetricID metric : {MetricID::Cpu, MetricID::Gpu, MetricID::PowerWatts}) {
      if (chance(40)) continue;
      auto entry =
          fakes::reading(metric, 1.0, chance(30) ? "Apple powermetrics" : "kernel", now_ - eighths(0, 200));
      entry.second.value = figure();
      entry.second.state = chance(80) ? MetricState::Available : MetricState::Stale;
      made.readings.insert(entry);
    }
    for (const char* id : {"a", "b", "process:7:1"}) {
      if (chance(40)) continue;
      AppUsage app;
      app.id = id;
      app.cpu = figure();
      app.memory = static_cast<std::uint64_t>(number(0, 1'000'000));
      app.diskRead = figure();
      app.diskWrite = figure();
      app.download = figure();
      app.upload = figure();
      app.energy = figure();
      made.apps.push_back(app);
    }
    if (chance(40)) helper_ = now_ - eighths(0, 100);
    if (chance(80)) made.advancedTimestamp = Date::since1970(helper_);
    made.advancedInterval = pick({1.0, 5.0, 0.0, 90.0, 91.0, eighths(0, 90)});
    return made;
  }

  void append() {
    advance();
    const auto made = snapshot();
    store_->append(made);
    model_.append(made);
  }

  void maintain() {
    const double now = now_ + pick({0.0, 0.125, 900.0, 86'400.0, -3'600.0});
    const std::int64_t days = pick({-1, 1, 2, 7, 30, 30, 30, 365});
    constexpr std::int64_t kNoLimit = 1'000'000'000;
    const std::int64_t bytes = chance(40) ? kNoLimit : chance(10) ? 0 : usedBytes() * number(60, 105) / 100;
    store_->maintain(Date::since1970(now), days, bytes);
    model_.rollUp(now, days);
    const auto rows = fakes::storedRows(file_);
    // How many rounds the cap took depends on SQLite's pages; each round is the model's.
    while (bytes < kNoLimit && model_.rows().size() > rows.size()) model_.deleteSixtyOldestMoments();
    if (!rows.empty()) {
      EXPECT_LE(usedBytes(), bytes);
    }
  }

  std::int64_t usedBytes() {
    return std::stoll(fakes::textOf(file_,
                                    "SELECT (page_count-freelist_count)*page_size FROM "
                                    "pragma_page_count(),pragma_freelist_count(),pragma_page_size()"));
  }

  void query() {
    const double from = now_ - eighths(0, 90'000);
    const double through = from + eighths(0, 90'000);
    for (const std::string app : {"", "a"}) {
      auto points = store_->query(MetricID::Cpu, app, Date::since1970(from), Date::since1970(through));
      EXPECT_TRUE(std::is_sorted(points.begin(), points.end(),
                                 [](const auto& a, const auto& b) { return a.date < b.date; }));
      // A quarter hour and the minute it begins with may come in either order.
      std::sort(points.begin(), points.end(), [](const auto& a, const auto& b) {
        return std::pair(a.date, a.resolution) < std::pair(b.date, b.resolution);
      });
      const auto expected = model_.query(MetricID::Cpu, app, from, through);
      ASSERT_EQ(points.size(), expected.size());
      for (std::size_t index = 0; index < points.size(); ++index) {
        EXPECT_EQ(points[index].id(), expected[index].id());
        expectNear(points[index].value, expected[index].value);
        expectNear(points[index].coverage, expected[index].coverage);
        EXPECT_EQ(points[index].peak, expected[index].peak);
      }
    }
  }

  void reopen() {
    store_.reset();
    store_ = std::make_unique<MonitorHistoryStore>(file_);
    model_.restart();
  }

  // Sums may be built in another order.
  static void expectNear(double actual, double expected) {
    EXPECT_NEAR(actual, expected, 1e-9 * std::max(1.0, std::abs(expected)));
  }

  static void expectEqual(const std::vector<StoredRow>& actual, const std::vector<StoredRow>& expected) {
    ASSERT_EQ(actual.size(), expected.size());
    for (std::size_t index = 0; index < actual.size(); ++index) {
      SCOPED_TRACE(testing::Message() << actual[index] << " against " << expected[index]);
      EXPECT_EQ(actual[index].t, expected[index].t);
      EXPECT_EQ(actual[index].res, expected[index].res);
      EXPECT_EQ(actual[index].app, expected[index].app);
      EXPECT_EQ(actual[index].metric, expected[index].metric);
      EXPECT_EQ(actual[index].peak, expected[index].peak);
      expectNear(actual[index].total, expected[index].total);
      expectNear(actual[index].weight, expected[index].weight);
      if (testing::Test::HasFailure()) return;
    }
  }

  std::mt19937 random_;
  double now_;
  double helper_ = 0.0;
  fakes::TemporaryFolder folder_;
  std::filesystem::path file_ = folder_ / "history.sqlite";
  std::unique_ptr<MonitorHistoryStore> store_ = std::make_unique<MonitorHistoryStore>(file_);
  Model model_;
};

TEST(HistoryModelTest, RandomLivesAgreeWithTheModelRowByRow) {
  const unsigned lives = std::getenv("VESK_LONG") == nullptr ? 5 : 60;
  for (unsigned seed = 1; seed <= lives; ++seed) {
    SCOPED_TRACE(testing::Message() << "seed " << seed);
    Life(seed).live(100);
    if (HasFailure()) return;
  }
}

}  // namespace
}  // namespace monitor
