#include <gtk/gtk.h>

#include <cstdio>
#include <cstdlib>

#include "examples/bugreporter/CrashLogText.h"
#include "examples/bugreporter/ReporterWindow.h"

// A bug-reporting application as the maker's own is: it is opened with a crash log and shows it.
//
//     BugReporter LOG.crash
int main(int argc, char** argv) {
  if (gtk_init_check(&argc, &argv) == FALSE) {
    std::fputs("BugReporter: there is no display\n", stderr);
    return EXIT_FAILURE;
  }
  if (argc != 2) {
    std::fputs("usage: BugReporter LOG.crash\n", stderr);
    return 64;
  }
  const bug_reporter::ReporterWindow window(bug_reporter::readCrashLog(argv[1]));
  gtk_main();
  return EXIT_SUCCESS;
}
