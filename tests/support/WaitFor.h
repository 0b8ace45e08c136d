#pragma once

#include <chrono>
#include <functional>

namespace test {

// Polls `condition` every millisecond until it holds or `limit` has passed; answers whether it
// held. Tests wait with this and never with a pause and a hope.
bool waitFor(const std::function<bool()>& condition,
             std::chrono::milliseconds limit = std::chrono::seconds(10));

}  // namespace test
