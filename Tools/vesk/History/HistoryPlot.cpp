// SPDX-License-Identifier: MIT
#include "Tools/vesk/History/HistoryPlot.h"

#include <cairo.h>
#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <memory>

#include "Tools/vesk/ExitCode.h"
#include "Tools/vesk/History/HistoryAxes.h"
#include "Tools/vesk/History/MetricText.h"
#include "Tools/vesk/TextWidth.h"
#include "Tools/vesk/TimeText.h"

#if defined(__SANITIZE_ADDRESS__)
// Fontconfig, which finds the font, keeps what it has read in a way that the leak check cannot follow.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libfontconfig";
}
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_options() {
  return "print_suppressions=0";
}
#endif

namespace monitor::vesk {
namespace {

// In units of the drawing; the picture has twice as many pixels, for sharp screens.
constexpr double kScale = 2.0;
constexpr double kWidth = 960.0;
constexpr double kHeight = 420.0;
constexpr double kLeft = 84.0;
constexpr double kRight = kWidth - 24.0;
constexpr double kTop = 74.0;
constexpr double kBottom = kHeight - 54.0;
constexpr std::size_t kValueTicks = 7;
constexpr std::size_t kTimeTicks = 11;
constexpr std::int64_t kLongResolution = 900;

struct Ink {
  double red, green, blue, alpha = 1.0;
};
constexpr Ink kPaper{1.0, 1.0, 1.0};
constexpr Ink kText{0.13, 0.15, 0.18};
constexpr Ink kFaintText{0.40, 0.43, 0.47};
constexpr Ink kGrid{0.88, 0.89, 0.91};
constexpr Ink kAxis{0.60, 0.62, 0.66};
constexpr Ink kMean{0.05, 0.38, 0.70};
constexpr Ink kPeak{0.05, 0.38, 0.70};
constexpr double kPeakAlpha = 0.25;
constexpr Ink kPeakSample{0.05, 0.38, 0.70, kPeakAlpha};
constexpr Ink kLongShade{0.955, 0.96, 0.97};

enum class Anchor { Left, Centre, Right };

// A cairo surface and its context, in drawing units.
class Canvas {
 public:
  Canvas()
      : surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, static_cast<int>(kWidth * kScale),
                                            static_cast<int>(kHeight * kScale))),
        context_(cairo_create(surface_.get())) {
    cairo_scale(context_.get(), kScale, kScale);
    cairo_select_font_face(context_.get(), "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  }

  [[nodiscard]] cairo_t* get() const { return context_.get(); }
  void use(const Ink& ink) const { cairo_set_source_rgba(get(), ink.red, ink.green, ink.blue, ink.alpha); }

  void rectangle(double left, double top, double right, double bottom, const Ink& ink) const {
    use(ink);
    cairo_rectangle(get(), left, top, right - left, bottom - top);
    cairo_fill(get());
  }

  void line(double x1, double y1, double x2, double y2, const Ink& ink) const {
    use(ink);
    cairo_set_line_width(get(), 1.0);
    cairo_move_to(get(), x1, y1);
    cairo_line_to(get(), x2, y2);
    cairo_stroke(get());
  }

  // `y` is the baseline. Returns where the text ends.
  double text(double x, double y, const std::string& words, const Ink& ink, double size, Anchor anchor,
              bool bold = false) const {
    cairo_select_font_face(get(), "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL,
                           bold ? CAIRO_FONT_WEIGHT_BOLD : CAIRO_FONT_WEIGHT_NORMAL);
    cairo_set_font_size(get(), size);
    cairo_text_extents_t extents;
    cairo_text_extents(get(), words.c_str(), &extents);
    const double left = anchor == Anchor::Left     ? x
                        : anchor == Anchor::Centre ? x - extents.x_advance / 2
                                                   : x - extents.x_advance;
    use(ink);
    cairo_move_to(get(), left, y);
    cairo_show_text(get(), words.c_str());
    return left + extents.x_advance;
  }

  [[nodiscard]] cairo_status_t write(const std::filesystem::path& file) const {
    const auto status = cairo_status(get());
    return status == CAIRO_STATUS_SUCCESS ? cairo_surface_write_to_png(surface_.get(), file.c_str()) : status;
  }

 private:
  struct Release {
    void operator()(cairo_surface_t* surface) const { cairo_surface_destroy(surface); }
    void operator()(cairo_t* context) const { cairo_destroy(context); }
  };
  std::unique_ptr<cairo_surface_t, Release> surface_;
  std::unique_ptr<cairo_t, Release> context_;
};

class Drawing {
 public:
  Drawing(const HistoryPlot& plot, const TimeZone& zone)
      : plot_(plot),
        zone_(zone),
        unit_(unitOf(plot.metric)),
        axis_(valueAxis(plot.points, unit_, kValueTicks)) {}

  void write(const std::filesystem::path& file) {
    canvas_.rectangle(0, 0, kWidth, kHeight, kPaper);
    shadeLongBuckets();
    grid();
    // Below the series: what is at zero and what is a gap must look different.
    canvas_.line(kLeft, kBottom, kRight, kBottom, kAxis);
    // Buckets that the range cuts end at its edge.
    cairo_save(canvas_.get());
    cairo_rectangle(canvas_.get(), kLeft, kTop - 2, kRight - kLeft, kBottom - kTop + 4);
    cairo_clip(canvas_.get());
    for (const HistoryRun& run : contiguousRuns(plot_.points)) series(run);
    cairo_restore(canvas_.get());
    titles();
    legend();
    const auto status = canvas_.write(file);
    if (status != CAIRO_STATUS_SUCCESS) {
      throw CommandError(ExitCode::Failed, fmt::format("{}: the plot cannot be written: {}.", file.string(),
                                                       cairo_status_to_string(status)));
    }
  }

 private:
  [[nodiscard]] double x(Date moment) const {
    return kLeft +
           moment.secondsSince(plot_.from) / plot_.through.secondsSince(plot_.from) * (kRight - kLeft);
  }
  [[nodiscard]] double y(double value) const {
    const double share = (value - axis_.low) / (axis_.high - axis_.low);
    return kBottom - std::clamp(std::isfinite(share) ? share : 1.0, 0.0, 1.0) * (kBottom - kTop);
  }
  [[nodiscard]] double inside(double position) const { return std::clamp(position, kLeft, kRight); }
  [[nodiscard]] static Date endOf(const HistoryPoint& point) {
    return point.date.addingSeconds(static_cast<double>(point.resolution));
  }

  void shadeLongBuckets() {
    for (const HistoryRun& run : contiguousRuns(plot_.points)) {
      const HistoryPoint& first = plot_.points[run.first];
      if (first.resolution != kLongResolution) continue;
      hasLong_ = true;
      canvas_.rectangle(inside(x(first.date)), kTop,
                        inside(x(endOf(plot_.points[run.first + run.count - 1]))), kBottom, kLongShade);
    }
  }

  void grid() const {
    for (const double tick : axis_.ticks) {
      const double level = std::round(y(tick)) + 0.5;
      canvas_.line(kLeft, level, kRight, level, kGrid);
      canvas_.text(kLeft - 8, level + 4, tickText(tick, unit_), kFaintText, 11, Anchor::Right);
    }
    for (const TimeTick& tick : timeTicks(plot_.from, plot_.through, zone_, kTimeTicks)) {
      const double place = std::round(x(tick.moment)) + 0.5;
      canvas_.line(place, kTop, place, kBottom + 4, kGrid);
      canvas_.text(place, kBottom + 18, tick.label, kFaintText, 11, Anchor::Centre);
      canvas_.text(place, kBottom + 33, tick.second, kText, 11, Anchor::Centre);
    }
  }

  void stepsAlong(const HistoryRun& run, double HistoryPoint::*value) const {
    for (std::size_t index = run.first; index < run.first + run.count; ++index) {
      const HistoryPoint& point = plot_.points[index];
      cairo_line_to(canvas_.get(), x(point.date), y(point.*value));
      cairo_line_to(canvas_.get(), x(endOf(point)), y(point.*value));
    }
  }

  // Mean and band of one run. Both have a least width, so that buckets narrower than a pixel are still seen.
  void series(const HistoryRun& run) const {
    cairo_t* context = canvas_.get();
    cairo_push_group(context);
    cairo_new_path(context);
    stepsAlong(run, &HistoryPoint::peak);
    for (std::size_t index = run.first + run.count; index-- > run.first;) {
      const HistoryPoint& point = plot_.points[index];
      cairo_line_to(context, x(endOf(point)), y(point.value));
      cairo_line_to(context, x(point.date), y(point.value));
    }
    cairo_close_path(context);
    canvas_.use(kPeak);
    cairo_fill_preserve(context);
    cairo_set_line_width(context, 0.5);
    cairo_stroke(context);
    cairo_pop_group_to_source(context);
    cairo_paint_with_alpha(context, kPeakAlpha);

    const HistoryPoint& first = plot_.points[run.first];
    const bool narrow = x(endOf(first)) - x(first.date) < 2.0;
    cairo_new_path(context);
    stepsAlong(run, &HistoryPoint::value);
    cairo_set_line_width(context, narrow ? 0.9 : 1.5);
    cairo_set_line_join(context, CAIRO_LINE_JOIN_ROUND);
    canvas_.use(kMean);
    cairo_stroke(context);
  }

  void titles() const {
    const std::string of = plot_.app.empty() ? "" : " of " + printable(plot_.app);
    canvas_.text(kLeft, 28, shortened(metricTitle(plot_.metric) + of, 80), kText, 17, Anchor::Left, true);
    const std::string range = timeText(plot_.from, zone_) + "  to  " + timeText(plot_.through, zone_);
    canvas_.text(kLeft, 50, range, kFaintText, 12, Anchor::Left);
    if (plot_.points.empty()) {
      canvas_.text((kLeft + kRight) / 2, (kTop + kBottom) / 2, "nothing recorded", kFaintText, 15,
                   Anchor::Centre);
    }
  }

  // From the right edge leftwards.
  void legend() const {
    double right = kRight;
    const auto entry = [&](const std::string& words, const auto& sample) {
      canvas_.text(right, 50, words, kFaintText, 12, Anchor::Right);
      cairo_text_extents_t extents;
      cairo_text_extents(canvas_.get(), words.c_str(), &extents);
      right -= extents.x_advance + 28;
      sample(right);
      right -= 18;
    };
    if (hasLong_) {
      entry("15-minute buckets", [&](double left) {
        canvas_.rectangle(left, 40, left + 20, 52, kLongShade);
        canvas_.use(kAxis);
        cairo_set_line_width(canvas_.get(), 0.5);
        cairo_rectangle(canvas_.get(), left, 40, 20, 12);
        cairo_stroke(canvas_.get());
      });
    }
    entry("up to the peak", [&](double left) { canvas_.rectangle(left, 40, left + 20, 52, kPeakSample); });
    entry("mean", [&](double left) { canvas_.rectangle(left, 45, left + 20, 47, kMean); });
  }

  const HistoryPlot& plot_;
  const TimeZone& zone_;
  MetricUnit unit_;
  ValueAxis axis_;
  bool hasLong_ = false;
  Canvas canvas_;
};

}  // namespace

void writePlot(const HistoryPlot& plot, const TimeZone& zone, const std::filesystem::path& file) {
  Drawing(plot, zone).write(file);
}

}  // namespace monitor::vesk
