#pragma once

#include <chrono>

namespace platform {

// Whether the authority that grants administrator's rights is on the system bus, started if need
// be, and answers within `limit`.
bool polkitAnswers(std::chrono::milliseconds limit);

}  // namespace platform
