#include <gtk/gtk.h>

// The least that shows a window with a line of text and a moving bar.
namespace {

gboolean pulse(gpointer bar) {
  gtk_progress_bar_pulse(GTK_PROGRESS_BAR(bar));
  return G_SOURCE_CONTINUE;
}

}  // namespace

int main() {
  if (gtk_init_check(nullptr, nullptr) == FALSE) return 1;
  GtkWidget* window = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  gtk_window_set_title(GTK_WINDOW(window), "Peer");
  GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, 12);
  GtkWidget* bar = gtk_progress_bar_new();
  gtk_widget_set_size_request(bar, 360, -1);
  gtk_container_add(GTK_CONTAINER(column), bar);
  gtk_container_add(GTK_CONTAINER(column), gtk_label_new("Putting the new version in place..."));
  gtk_container_add(GTK_CONTAINER(window), column);
  gtk_widget_show_all(window);
  g_timeout_add(150, pulse, bar);
  gtk_main();
}
