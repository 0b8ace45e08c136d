#pragma once

#include <sys/types.h>

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace test {

// A program that a test runs beside itself. What it prints on its standard output is read line by
// line.
class ChildProgram {
 public:
  // Starts a program with the environment of the test; throws when it cannot.
  explicit ChildProgram(const std::vector<std::string>& command);
  // The same for another user; the test must be root.
  ChildProgram(const std::vector<std::string>& command, unsigned userId);
  // Ends the program, whatever it does, and waits for that.
  ~ChildProgram();
  ChildProgram(const ChildProgram&) = delete;
  ChildProgram& operator=(const ChildProgram&) = delete;

  pid_t id() const { return id_; }
  bool isRunning() const;
  // Whether a signal has stopped it.
  bool isStopped() const;
  void signal(int number) const;
  // Waits for its end and answers its status as waitpid(2) does; none when it still runs after
  // twenty seconds. Answered once.
  std::optional<int> waitForEnd();

  // The whole lines that have arrived up to now.
  const std::vector<std::string>& lines();
  // Waits until a line that begins with `beginning` has arrived; answers whether one did.
  bool waitForLine(std::string_view beginning);
  bool waitForLines(std::size_t count);

 private:
  void start(const std::vector<std::string>& command, const std::function<bool()>& prepare);

  pid_t id_ = -1;
  int output_ = -1;
  std::string partialLine_;
  std::vector<std::string> lines_;
};

}  // namespace test
