#include "examples/host/HostWindow.h"

namespace host {
namespace {

constexpr int kMargin = 18;
constexpr int kSpacing = 12;
constexpr int kWidth = 380;

GtkWidget* makeStatus() {
  GtkWidget* status = gtk_label_new("");
  gtk_label_set_xalign(GTK_LABEL(status), 0);
  gtk_label_set_line_wrap(GTK_LABEL(status), TRUE);
  gtk_label_set_max_width_chars(GTK_LABEL(status), 50);
  return status;
}

GtkWidget* makeCloseButton() {
  GtkWidget* button = gtk_button_new_with_mnemonic("_Close");
  gtk_widget_set_halign(button, GTK_ALIGN_END);
  gtk_widget_set_sensitive(button, FALSE);
  g_signal_connect(button, "clicked", G_CALLBACK(gtk_main_quit), nullptr);
  return button;
}

}  // namespace

HostWindow::HostWindow()
    : window_(gtk_window_new(GTK_WINDOW_TOPLEVEL)),
      status_(makeStatus()),
      progress_(gtk_progress_bar_new()),
      close_(makeCloseButton()) {
  gtk_window_set_title(GTK_WINDOW(window_), "Quorvale Host");
  gtk_window_set_resizable(GTK_WINDOW(window_), FALSE);
  gtk_container_set_border_width(GTK_CONTAINER(window_), kMargin);
  GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, kSpacing);
  gtk_widget_set_size_request(column, kWidth, -1);
  for (GtkWidget* part : {status_, progress_, close_}) {
    gtk_box_pack_start(GTK_BOX(column), part, FALSE, FALSE, 0);
  }
  atk_object_set_name(gtk_widget_get_accessible(progress_), "Progress of the update");
  gtk_container_add(GTK_CONTAINER(window_), column);
  g_signal_connect(window_, "destroy", G_CALLBACK(gtk_main_quit), nullptr);
  gtk_widget_show_all(window_);
}

void HostWindow::showStatus(const std::string& text) {
  gtk_label_set_text(GTK_LABEL(status_), text.c_str());
}

void HostWindow::showProgress(double fraction) {
  gtk_progress_bar_set_fraction(GTK_PROGRESS_BAR(progress_), fraction);
}

void HostWindow::showEnd(const std::string& text) {
  showStatus(text);
  gtk_widget_set_sensitive(close_, TRUE);
  gtk_widget_grab_focus(close_);
}

}  // namespace host
