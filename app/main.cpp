#include "Shared/CrashLogs.h"
#include "app/AppController.h"
#include "platform/Application.h"
#include "platform/Privilege.h"

int main(int argc, char** argv) {
  platform::privilege::protectProcess();
  crash_logs::startWriting();
  AppController controller;
  return platform::application::run(argc, argv, controller);
}
