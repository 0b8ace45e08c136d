#include <gtk/gtk.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <thread>

// The application that the demonstration updates: a window that says which version it is.
namespace {

std::string versionOfBundle() {
  const auto contents = std::filesystem::read_symlink("/proc/self/exe").parent_path().parent_path();
  std::ifstream file(contents / "Resources/version.txt");
  std::string version;
  std::getline(file, version);
  return version;
}

void showWindow(const std::string& version) {
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(window), "Quorvale Sample");
  gtk_window_set_default_size(GTK_WINDOW(window), 320, 120);
  const std::string text = "Quorvale Sample, version " + version;
  gtk_container_add(GTK_CONTAINER(window), gtk_label_new(text.c_str()));
  g_signal_connect(window, "destroy", G_CALLBACK(gtk_main_quit), nullptr);
  gtk_widget_show_all(window);
  gtk_main();
}

}  // namespace

int main(int argc, char** argv) {
  const std::string version = versionOfBundle();
  if (gtk_init_check(&argc, &argv) != FALSE) {
    showWindow(version);
    return EXIT_SUCCESS;
  }
  // Without a display it stays open all the same, as an application that waits for its person.
  std::this_thread::sleep_for(std::chrono::hours(1));
  return EXIT_SUCCESS;
}
