// SPDX-License-Identifier: MIT
#include "Tools/Demo/LevelPlot.h"

#include <cairo.h>
#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <memory>
#include <string>
#include <vector>

#include "Tools/AudioLab/Analyser.h"
#include "Tools/AudioLab/LabError.h"

#if defined(__SANITIZE_ADDRESS__)
// Fontconfig, which finds the font, keeps some of its pointers as differences, so that the leak check does
// not see that the memory is still in use.
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_suppressions() {
  return "leak:libfontconfig";
}
extern "C" __attribute__((visibility("default"))) const char* __lsan_default_options() {
  return "print_suppressions=0";
}
#endif

namespace monitor::demo {
namespace {

struct Colour {
  double red, green, blue;
};

constexpr Colour kRouted{0.00, 0.38, 0.70};
constexpr Colour kOther{0.95, 0.65, 0.25};
constexpr Colour kText{0.15, 0.15, 0.15};
constexpr Colour kFaint{0.88, 0.88, 0.88};
constexpr Colour kEvent{0.45, 0.45, 0.45};
constexpr int kWidth = 1200;
constexpr int kHeight = 800;
constexpr double kTopLevel = 1.15;

struct Rectangle {
  double left, top, width, height;
};

struct Curve {
  Colour colour;
  double width;  // of the line
  std::string name;
  std::vector<double> levels;
};

// What one panel shows. Times are in `unit`s, 0 where the caller puts it.
struct Panel {
  Rectangle area;
  std::string title, axis;
  double first = 0.0, last = 1.0, step = 1.0;  // of the time axis
  double blockLength = 1.0;                    // time that one value of a curve covers
  double firstBlock = 0.0;                     // time of the curves' first value
  std::vector<std::pair<double, std::string>> events;
};

class Canvas {
 public:
  Canvas()
      : surface_(cairo_image_surface_create(CAIRO_FORMAT_RGB24, kWidth, kHeight)),
        context_(cairo_create(surface_)) {
    cairo_set_source_rgb(context_, 1, 1, 1);
    cairo_paint(context_);
    cairo_select_font_face(context_, "DejaVu Sans", CAIRO_FONT_SLANT_NORMAL, CAIRO_FONT_WEIGHT_NORMAL);
  }
  ~Canvas() {
    cairo_destroy(context_);
    cairo_surface_destroy(surface_);
  }
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  void line(double fromX, double fromY, double toX, double toY, const Colour& colour, double width = 1.0) {
    use(colour);
    cairo_set_line_width(context_, width);
    cairo_move_to(context_, fromX, fromY);
    cairo_line_to(context_, toX, toY);
    cairo_stroke(context_);
  }

  void dashedLine(double fromX, double fromY, double toX, double toY, const Colour& colour) {
    const std::array<double, 2> dashes{4.0, 3.0};
    cairo_set_dash(context_, dashes.data(), static_cast<int>(dashes.size()), 0.0);
    line(fromX, fromY, toX, toY, colour);
    cairo_set_dash(context_, nullptr, 0, 0.0);
  }

  // `anchor`: 0 puts the text's left end at x, 0.5 its middle, 1 its right end.
  void text(double x, double y, const std::string& words, double size, const Colour& colour,
            double anchor = 0.0) {
    use(colour);
    cairo_set_font_size(context_, size);
    cairo_move_to(context_, x - anchor * textWidth(words, size), y);
    cairo_show_text(context_, words.c_str());
  }

  void textUpwards(double x, double y, const std::string& words, double size, const Colour& colour) {
    cairo_save(context_);
    cairo_translate(context_, x, y);
    cairo_rotate(context_, -M_PI / 2.0);
    text(0, 0, words, size, colour, 0.5);
    cairo_restore(context_);
  }

  [[nodiscard]] double textWidth(const std::string& words, double size) {
    cairo_set_font_size(context_, size);
    cairo_text_extents_t extents;
    cairo_text_extents(context_, words.c_str(), &extents);
    return extents.x_advance;
  }

  void steps(const std::vector<std::pair<double, double>>& points, const Rectangle& clip,
             const Colour& colour, double width) {
    cairo_save(context_);
    cairo_rectangle(context_, clip.left, clip.top, clip.width, clip.height);
    cairo_clip(context_);
    use(colour);
    cairo_set_line_width(context_, width);
    cairo_set_line_join(context_, CAIRO_LINE_JOIN_ROUND);
    for (const auto& [x, y] : points) cairo_line_to(context_, x, y);
    cairo_stroke(context_);
    cairo_restore(context_);
  }

  void write(const std::filesystem::path& file) {
    const auto status = cairo_surface_write_to_png(surface_, file.c_str());
    if (status != CAIRO_STATUS_SUCCESS) {
      throw lab::LabError("cannot write " + file.string() + ": " + cairo_status_to_string(status));
    }
  }

 private:
  void use(const Colour& colour) { cairo_set_source_rgb(context_, colour.red, colour.green, colour.blue); }
  cairo_surface_t* surface_;
  cairo_t* context_;
};

class PanelPainter {
 public:
  PanelPainter(Canvas& canvas, const Panel& panel) : canvas_(canvas), panel_(panel) {}

  void paint(const std::vector<Curve>& curves) {
    axes();
    for (const auto& [time, label] : panel_.events) {
      canvas_.dashedLine(x(time), panel_.area.top, x(time), bottom(), kEvent);
    }
    for (const auto& curve : curves) draw(curve);
    labels();
  }

 private:
  [[nodiscard]] double x(double time) const {
    return panel_.area.left + (time - panel_.first) / (panel_.last - panel_.first) * panel_.area.width;
  }
  [[nodiscard]] double y(double level) const { return bottom() - level / kTopLevel * panel_.area.height; }
  [[nodiscard]] double bottom() const { return panel_.area.top + panel_.area.height; }

  void axes() {
    const auto& area = panel_.area;
    for (int percent = 0; percent <= 100; percent += 20) {
      const double height = y(percent / 100.0);
      canvas_.line(area.left, height, area.left + area.width, height, percent == 0 ? kText : kFaint);
      canvas_.text(area.left - 8, height + 4, fmt::format("{} %", percent), 12, kText, 1.0);
    }
    // By count, since adding up steps would drift off the last one.
    const int count = static_cast<int>(std::floor((panel_.last - panel_.first) / panel_.step + 1e-6));
    for (int i = 0; i <= count; ++i) {
      const double time = panel_.first + i * panel_.step;
      canvas_.line(x(time), bottom(), x(time), bottom() + 4, kText);
      canvas_.text(x(time), bottom() + 18, fmt::format("{:g}", time), 12, kText, 0.5);
    }
    canvas_.text(area.left + area.width / 2, bottom() + 36, panel_.axis, 12, kText, 0.5);
    canvas_.textUpwards(area.left - 52, area.top + area.height / 2, "level, of what the program plays", 12,
                        kText);
    canvas_.text(area.left, area.top - 40, panel_.title, 14, kText);
  }

  void draw(const Curve& curve) {
    std::vector<std::pair<double, double>> points;
    for (std::size_t i = 0; i < curve.levels.size(); ++i) {
      const double from = panel_.firstBlock + static_cast<double>(i) * panel_.blockLength;
      if (from + panel_.blockLength < panel_.first || from > panel_.last) continue;
      points.emplace_back(x(from), y(curve.levels[i]));
      points.emplace_back(x(from + panel_.blockLength), y(curve.levels[i]));
    }
    canvas_.steps(points, panel_.area, curve.colour, curve.width);
  }

  // Above the area, in two rows where they would run into each other.
  void labels() {
    std::array<double, 2> rowEnds{-1.0, -1.0};
    for (const auto& [time, label] : panel_.events) {
      const double width = canvas_.textWidth(label, 11);
      const double left = std::min(x(time) - 2, panel_.area.left + panel_.area.width - width);
      const std::size_t row = left > rowEnds[0] ? 0 : 1;
      canvas_.text(left, panel_.area.top - 6 - 14 * static_cast<double>(row), label, 11, kEvent);
      rowEnds[row] = left + width + 8;
    }
  }

  Canvas& canvas_;
  const Panel& panel_;
};

std::vector<Curve> curvesOf(const Demonstration& demonstration, std::size_t block) {
  const auto curve = [&](std::size_t index, const Colour& colour, double width, const std::string& name) {
    const auto& channel = demonstration.recording.channels[index];
    return Curve{colour, width, name, lab::levelCurve(channel, lab::findStretches(channel), block)};
  };
  // The routed program on top of a broad line, so that both are seen where they coincide.
  return {curve(demonstration.otherChannel, kOther, 6.0, demonstration.otherName),
          curve(demonstration.routedChannel, kRouted, 2.0, demonstration.routedName)};
}

void legend(Canvas& canvas, const std::vector<Curve>& curves) {
  double right = kWidth - 40.0;
  for (const auto& curve : curves) {
    canvas.text(right, 36, curve.name, 13, curve.colour, 1.0);
    right -= canvas.textWidth(curve.name, 13) + 8;
    canvas.line(right - 22, 32, right, 32, curve.colour, curve.width);
    right -= 44;
  }
}

Panel overview(const Demonstration& demonstration, std::size_t block) {
  const auto& recording = demonstration.recording;
  const double rate = recording.rate;
  Panel panel;
  panel.area = {90, 120, kWidth - 130.0, 270};
  panel.title = "The whole demonstration";
  panel.axis = "seconds";
  panel.last = static_cast<double>(recording.frames()) / rate;
  panel.step = 0.5;
  panel.blockLength = static_cast<double>(block) / rate;
  for (const auto& event : demonstration.events) {
    panel.events.emplace_back(static_cast<double>(recording.frameAt(event.nanoseconds)) / rate, event.label);
  }
  return panel;
}

// A few cycles around one event, which is time zero.
Panel closeUp(const Demonstration& demonstration, const Event& event, const Rectangle& area,
              const std::string& title, std::size_t block) {
  const auto& recording = demonstration.recording;
  const double perMillisecond = recording.rate / 1000.0;
  Panel panel;
  panel.area = area;
  panel.title = title;
  panel.axis = "milliseconds";
  panel.first = -10;
  panel.last = 50;
  panel.step = 10;
  panel.blockLength = static_cast<double>(block) / perMillisecond;
  panel.firstBlock = -static_cast<double>(recording.frameAt(event.nanoseconds)) / perMillisecond;
  panel.events.emplace_back(0.0, event.label);
  return panel;
}

}  // namespace

void drawLevels(const Demonstration& demonstration, const std::filesystem::path& file) {
  Canvas canvas;
  canvas.text(90, 38, "Level of two programs at the output device", 18, kText);
  // Fine enough for its steps not to be seen at the scale of each panel.
  const std::size_t coarse = demonstration.figures.quantum;
  const auto wide = curvesOf(demonstration, coarse);
  legend(canvas, wide);
  PanelPainter(canvas, overview(demonstration, coarse)).paint(wide);
  constexpr std::size_t kFine = 8;
  const auto narrow = curvesOf(demonstration, kFine);
  const double width = (kWidth - 130.0 - 110.0) / 2;
  PanelPainter(canvas, closeUp(demonstration, demonstration.takeover, {90, 510, width, 220},
                               "Takeover: 100 % to 40 %", kFine))
      .paint(narrow);
  PanelPainter(canvas, closeUp(demonstration, demonstration.killed, {90 + width + 110, 510, width, 220},
                               "Service killed: 40 % to 100 %", kFine))
      .paint(narrow);
  canvas.write(file);
}

}  // namespace monitor::demo
