#pragma once

namespace platform {

// A colour in calibrated colour space; every part lies between 0 and 1. A plain value.
struct Colour {
  double hue = 0;
  double saturation = 0;
  double brightness = 0;
  double alpha = 1;

  bool operator==(const Colour&) const = default;
};

}  // namespace platform
