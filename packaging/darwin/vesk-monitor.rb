# Builds the libraries and the non-audio commands of vesk. A formula cannot be signed by the team, and the audio service
# accepts no other client, so per-application volume is left out.
class VeskMonitor < Formula
  desc "Libraries and command-line of a system monitor: history, alerts, sampling"
  homepage "https://vesk.example"
  # Built from the repository until there is a release to name.
  license "MIT"
  head "https://vesk.example/vesk-monitor.git", branch: "main"

  depends_on "cmake" => :build
  depends_on "ninja" => :build
  depends_on "pkgconf" => :build
  depends_on "cairo"
  depends_on "cli11"
  depends_on "fmt"
  depends_on "icu4c"
  depends_on "libplist"
  depends_on macos: :sonoma
  depends_on "nlohmann-json"

  uses_from_macos "sqlite"

  def install
    args = %w[-DVESK_BUILD_TESTS=OFF -DVESK_BUILD_AUDIO_SERVICE=OFF]
    system "cmake", "-S", ".", "-B", "build", "-G", "Ninja", *args, *std_cmake_args
    system "cmake", "--build", "build"
    system "cmake", "--install", "build"
  end

  test do
    assert_match version.to_s, shell_output("#{bin}/vesk --version")
  end
end
