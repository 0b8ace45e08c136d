#include "followup/Verbs.h"

int main(int argc, char** argv) {
  return followup::perform({argv + (argc > 0 ? 1 : 0), argv + argc});
}
