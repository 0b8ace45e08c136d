#pragma once

#include <cstdint>
#include <string>

#include "platform/FormatDirective.h"

namespace platform {

// How a directive prints a number, with sign, prefix and the zeros that precision and width ask
// for, but not yet filled up with spaces to the width. Under a directive for something else, a
// number is printed as what it is: an integer with all its decimals, a floating-point number with
// as many as tell it from its neighbours. In the C locale.

// `number` is the two's complement of a negative one.
std::string formatInteger(const FormatDirective& directive, bool negative, std::uint64_t number);

std::string formatDouble(const FormatDirective& directive, double number);

}  // namespace platform
