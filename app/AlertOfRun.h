#pragma once

#include <string_view>

// Shows an alert of the run and waits until it is dismissed, see platform/Alert.h. Nothing is under
// way meanwhile: a session that ends, or a request to end, ends the application. On the worker.
void showAlertOfRun(std::string_view title, std::string_view messageFormat);
