// SPDX-License-Identifier: MIT
#include "Tools/Demo/LevelPlot.h"

#include <cairo.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include <filesystem>
#include <memory>
#include <string>

#include "Tests/Tools/Demo/MadeUpRun.h"
#include "Tools/AudioLab/LabError.h"

namespace monitor::demo {
namespace {

Demonstration madeUp() {
  const MadeUpRun run;
  Demonstration result;
  result.recording = recordingOf(run.routed, run.other);
  result.figures = measure(result.recording, run.timeline, 0, 1);
  result.routedName = "Routed";
  result.otherName = "Other";
  result.events = {{"gain", run.timeline.takeovers.front().command}, {"stop", run.timeline.stopCommand}};
  result.takeover = {"request", run.timeline.takeovers.front().request};
  result.killed = {"kill", run.timeline.killed};
  return result;
}

class Picture {
 public:
  explicit Picture(const std::filesystem::path& file)
      : surface_(cairo_image_surface_create_from_png(file.c_str()), cairo_surface_destroy) {}
  [[nodiscard]] bool readable() const { return cairo_surface_status(surface_.get()) == CAIRO_STATUS_SUCCESS; }
  // How many pixels are clearly blue: the routed program's line.
  [[nodiscard]] int bluePixels() const {
    const auto* data = cairo_image_surface_get_data(surface_.get());
    const int stride = cairo_image_surface_get_stride(surface_.get());
    int count = 0;
    for (int row = 0; row < cairo_image_surface_get_height(surface_.get()); ++row) {
      for (int column = 0; column < cairo_image_surface_get_width(surface_.get()); ++column) {
        const auto* pixel = data + row * stride + column * 4;  // blue, green, red, unused
        if (pixel[0] > 150 && pixel[2] < 60) ++count;
      }
    }
    return count;
  }

 private:
  std::unique_ptr<cairo_surface_t, void (*)(cairo_surface_t*)> surface_;
};

TEST(LevelPlot, DrawsTheRoutedProgramIntoAReadablePicture) {
  const auto file =
      std::filesystem::temp_directory_path() / ("vesk-plot-" + std::to_string(::getpid()) + ".png");
  drawLevels(madeUp(), file);
  const Picture picture(file);
  ASSERT_TRUE(picture.readable());
  EXPECT_GT(picture.bluePixels(), 2000);  // two pixels broad, more than two thousand long in the three panels
  std::filesystem::remove(file);
}

TEST(LevelPlot, SaysWhereItCannotWrite) {
  try {
    drawLevels(madeUp(), "/nowhere/levels.png");
    FAIL() << "wrote into a folder that does not exist";
  } catch (const lab::LabError& error) {
    EXPECT_NE(std::string(error.what()).find("/nowhere/levels.png"), std::string::npos);
  }
}

}  // namespace
}  // namespace monitor::demo
