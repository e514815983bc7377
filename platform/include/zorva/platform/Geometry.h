#pragma once

namespace zorva::platform {

struct Point {
  double x = 0;
  double y = 0;
  friend bool operator==(const Point&, const Point&) = default;
};

/// A width and height in points.
struct Size {
  double width = 0;
  double height = 0;
  friend bool operator==(const Size&, const Size&) = default;
};

struct Rect {
  Point origin;
  Size size;

  Rect() = default;
  Rect(double x, double y, double width, double height) : origin{x, y}, size{width, height} {}
  friend bool operator==(const Rect&, const Rect&) = default;
};

}  // namespace zorva::platform
