#include "sessionhelper/Verbs.h"

int main(int argc, char** argv) {
  return session_helper::perform({argv + (argc > 0 ? 1 : 0), argv + argc});
}
