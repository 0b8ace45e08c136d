#include "app/AppController.h"
#include "platform/Application.h"
#include "platform/Privilege.h"

int main(int argc, char** argv) {
  platform::privilege::protectProcess();
  AppController controller;
  return platform::application::run(argc, argv, controller);
}
