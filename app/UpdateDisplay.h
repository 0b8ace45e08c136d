#pragma once

#include <string>

// Where an installation shows how it is going. Main thread.
class UpdateDisplay {
 public:
  virtual ~UpdateDisplay() = default;

  virtual void updateStatusText(const std::string& text) = 0;
  virtual void hideMainWindow() = 0;
};
