// The demo's whole tour on the real engines, as the README shows it: WebKit renders the pages,
// GStreamer plays the videos in real time, and the banner is saved as a PNG. Built when the
// demo has both engines (the build defines where its executable is).
#ifdef ZORVA_DEMO_EXECUTABLE

#include <gtest/gtest.h>
#include <zorva/platform/Value.h>

#include <cstdint>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "tools/Subprocess.h"
#include "zorva-demo/Tour.h"

namespace zorva::demo {
namespace {

using platform::Value;

std::uint32_t bigEndian(const std::string& bytes, std::size_t at) {
  std::uint32_t value = 0;
  for (std::size_t i = 0; i < 4; ++i)
    value = value << 8 | static_cast<unsigned char>(bytes[at + i]);
  return value;
}

TEST(DemoWithRealEngines, PlaysTheWholeTourRenderedAndDecodedAndSavesTheBanner) {
  const auto png = std::filesystem::temp_directory_path() /
                   ("zorva-demo-banner-" + std::to_string(getpid()) + ".png");
  test::Subprocess demo(ZORVA_DEMO_EXECUTABLE,
                        {"--engines", "real", "--json", "--snapshot", png.string()});
  ASSERT_EQ(demo.finish(), 0) << demo.out << demo.err;

  std::vector<Value> events;
  for (const auto& line : demo.outLines()) events.push_back(Value::parse(line));
  auto has = [&](const std::function<bool(const Value&)>& match) {
    return std::any_of(events.begin(), events.end(), match);
  };
  EXPECT_TRUE(has([](const Value& e) { return e.value("engines", "") == "real"; }));
  EXPECT_TRUE(has([](const Value& e) { return e.value("virtualClock", true) == false; }));
  std::vector<std::string> passed;
  for (const auto& e : events) {
    if (e["kind"] == "summary" && e["passed"] == true) passed.push_back(e["scenario"]);
  }
  EXPECT_EQ(passed, Tour::scenarioNames());
  // Decoded videos report progress up to their real end, 4 s into the embedded server's MP4.
  EXPECT_TRUE(has(
      [](const Value& e) { return e["kind"] == "progress" && e["position"].get<double>() > 3.9; }));

  std::ifstream file(png, std::ios::binary);
  const std::string bytes((std::istreambuf_iterator<char>(file)), std::istreambuf_iterator<char>());
  std::filesystem::remove(png);
  ASSERT_GT(bytes.size(), 24u);
  EXPECT_EQ(bytes.substr(0, 8), "\x89PNG\r\n\x1a\n");
  EXPECT_EQ(bytes.substr(12, 4), "IHDR");
  EXPECT_EQ(bigEndian(bytes, 16), 320u);
  EXPECT_EQ(bigEndian(bytes, 20), 50u);
}

}  // namespace
}  // namespace zorva::demo

#endif  // ZORVA_DEMO_EXECUTABLE
