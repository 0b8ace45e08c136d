#include <gtk/gtk.h>

#include <cstdio>
#include <cstdlib>

#include "examples/host/HostWindow.h"
#include "examples/host/HostedUpdate.h"

// A host application as the maker's own are: it has the helper perform an update silently and shows
// the progress itself.
//
//     QuorvaleHost QVUpdateHelper -source NEW.app -destination OLD.app [-mountpath PATH]
int main(int argc, char** argv) {
  if (gtk_init_check(&argc, &argv) == FALSE) {
    std::fputs("QuorvaleHost: there is no display\n", stderr);
    return EXIT_FAILURE;
  }
  if (argc < 2) {
    std::fputs("usage: QuorvaleHost HELPER [ARGUMENT ...]\n", stderr);
    return 64;
  }
  host::HostWindow window;
  host::HostedUpdate update(window, {argv + 1, argv + argc});
  gtk_main();
  return EXIT_SUCCESS;
}
