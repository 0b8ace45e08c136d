#include "tests/support/Notes.h"

#include <mutex>
#include <sstream>
#include <utility>

namespace test {
namespace {

struct Taken {
  std::mutex mutex;  // guards texts
  std::vector<std::string> texts;
};

// Never destroyed: a thread that outlives the test may still note something.
Taken& taken() {
  static auto* const instance = new Taken;
  return *instance;
}

}  // namespace

void note(std::string what) {
  const std::lock_guard lock(taken().mutex);
  taken().texts.push_back(std::move(what));
}

std::vector<std::string> notes() {
  const std::lock_guard lock(taken().mutex);
  return taken().texts;
}

void notePause(const char* how, double seconds) {
  std::ostringstream text;
  text << how << " " << seconds << " s";
  note(text.str());
}

}  // namespace test
