#include "app/AlertOfRun.h"

#include "platform/Alert.h"
#include "platform/Application.h"

void showAlertOfRun(std::string_view title, std::string_view messageFormat) {
  platform::application::heedTerminationRequests();
  platform::alert::run(title, messageFormat);
  platform::application::ignoreTerminationRequests();
}
