#pragma once

namespace zorva::platform {

/// An sRGB colour with alpha, each component in 0...1.
struct Color {
  double red = 0;
  double green = 0;
  double blue = 0;
  double alpha = 1;

  static constexpr Color colorWithRed(double red, double green, double blue, double alpha) {
    return Color{red, green, blue, alpha};
  }
  static constexpr Color colorWithWhite(double white, double alpha) {
    return Color{white, white, white, alpha};
  }

  static constexpr Color whiteColor() { return colorWithWhite(1.0, 1.0); }
  static constexpr Color blackColor() { return colorWithWhite(0.0, 1.0); }
  static constexpr Color clearColor() { return colorWithWhite(0.0, 0.0); }
  static constexpr Color darkGrayColor() { return colorWithWhite(1.0 / 3.0, 1.0); }
  static constexpr Color grayColor() { return colorWithWhite(0.5, 1.0); }
  static constexpr Color lightGrayColor() { return colorWithWhite(2.0 / 3.0, 1.0); }
  static constexpr Color redColor() { return Color{1, 0, 0, 1}; }
  static constexpr Color greenColor() { return Color{0, 1, 0, 1}; }
  static constexpr Color blueColor() { return Color{0, 0, 1, 1}; }

  friend constexpr bool operator==(const Color&, const Color&) = default;
};

}  // namespace zorva::platform
