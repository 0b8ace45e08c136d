#pragma once

#include <string>

#include "Shared/QVVELMErrorCallbackProtocol.h"

// Tells the host application that started this process how its task is going. The host is looked up
// anew at each post, first as "QVProClientCallback", then as "QVVELMClientCallback"; without one a
// post does nothing and returns at once. With one it sends the message if the host answers it, and
// then pauses 15 milliseconds in any case.
//
// Any thread. A post blocks for the pause and for what the host's bus takes, which is bounded: a
// host that hangs costs at most a second (two as superuser) more. No post fails: a platform
// exception on the way is reported by QVException::logException; others pass on.
class QVTaskNotification {
 public:
  QVTaskNotification() = delete;

  // Sends incrementRemoteProgress.
  static void postIncrementProgress();
  // Sends postFinishedTask.
  static void postTaskFinished();
  // Sends the error with this process's name, or, where the host does not answer that, without.
  static void postTaskError(const QVTaskError& error);
  // Sends the text with this process's name under "appName", or, where the host does not answer
  // that, without.
  static void postTaskErrorString(const std::string& error);
  // Sends postDisconnect.
  static void postDisconnect();
};
