#include "window/StatusView.h"

#include <gdk/gdkx.h>

#include <initializer_list>

#include "window/ApplicationIcon.h"
#include "window/Layout.h"

namespace window::status_view {
namespace {

constexpr char kHeading[] = "Installing the update";
constexpr char kFirstStatus[] = "Putting the new version in place...";

constexpr int kColumnWidth = 360;
constexpr int kRowSpacing = 12;
// The bar crosses its trough in about a second and a half.
constexpr guint kPulseMilliseconds = 150;
constexpr double kPulseStep = 0.1;

// All null until the window is made; it is never destroyed.
GtkWidget* theWindow = nullptr;
GtkWidget* theBar = nullptr;
GtkWidget* theStatus = nullptr;
guint pulseTimer = 0;

gboolean pulse(gpointer /*data*/) {
  gtk_progress_bar_pulse(GTK_PROGRESS_BAR(theBar));
  return G_SOURCE_CONTINUE;
}

// The themes' bars are as thin as a line; one that is alone in a window may be seen from afar.
void thicken(GtkWidget* bar) {
  GtkCssProvider* style = gtk_css_provider_new();
  gtk_css_provider_load_from_data(style, "trough, progress { min-height: 7px; }", -1, nullptr);
  gtk_style_context_add_provider(gtk_widget_get_style_context(bar), GTK_STYLE_PROVIDER(style),
                                 GTK_STYLE_PROVIDER_PRIORITY_APPLICATION);
  g_object_unref(style);
}

GtkWidget* newBar(GtkWidget* heading) {
  GtkWidget* bar = gtk_progress_bar_new();
  thicken(bar);
  gtk_widget_set_size_request(bar, kColumnWidth, -1);
  gtk_progress_bar_set_pulse_step(GTK_PROGRESS_BAR(bar), kPulseStep);
  AtkObject* accessible = gtk_widget_get_accessible(bar);
  atk_object_set_name(accessible, "Installation in progress");
  atk_object_add_relationship(accessible, ATK_RELATION_LABELLED_BY,
                              gtk_widget_get_accessible(heading));
  return bar;
}

// A line that is cut where the window ends, for the window does not grow with it.
GtkWidget* newStatus(const char* text) {
  GtkWidget* label = layout::newLabel(text);
  gtk_label_set_single_line_mode(GTK_LABEL(label), TRUE);
  gtk_label_set_ellipsize(GTK_LABEL(label), PANGO_ELLIPSIZE_END);
  gtk_label_set_max_width_chars(GTK_LABEL(label), 1);
  return label;
}

GtkWidget* newColumn() {
  GtkWidget* heading = layout::newHeading(kHeading);
  theBar = newBar(heading);
  theStatus = newStatus(kFirstStatus);
  GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, kRowSpacing);
  gtk_widget_set_valign(column, GTK_ALIGN_CENTER);
  for (GtkWidget* row : {heading, theBar, theStatus}) {
    gtk_box_pack_start(GTK_BOX(column), row, FALSE, FALSE, 0);
  }
  return column;
}

void make() {
  theWindow = gtk_window_new(GTK_WINDOW_TOPLEVEL);
  GtkWindow* window = GTK_WINDOW(theWindow);
  gtk_window_set_title(window, layout::kWindowTitle);
  gtk_window_set_resizable(window, FALSE);
  gtk_window_set_position(window, GTK_WIN_POS_CENTER);
  // There is nothing to cancel: neither the title bar nor the keyboard closes the window.
  gtk_window_set_deletable(window, FALSE);
  g_signal_connect(window, "delete-event", G_CALLBACK(gtk_true), nullptr);
  application_icon::setFor(window);
  GtkWidget* row = layout::newIconRow(newColumn());
  gtk_container_add(GTK_CONTAINER(window), row);
  gtk_widget_show_all(row);
}

void makeOnce() {
  if (theWindow == nullptr) make();
}

}  // namespace

void show() {
  makeOnce();
  gtk_window_present(GTK_WINDOW(theWindow));
}

// With the server's own time of now, or a window manager that guards the keyboard's focus would
// leave the window behind those that the person used last.
void activate() {
  if (visibleWindow() == nullptr) return;
  GdkWindow* window = gtk_widget_get_window(theWindow);
  const guint32 now = GDK_IS_X11_WINDOW(window) ? gdk_x11_get_server_time(window) : 0;
  gtk_window_present_with_time(GTK_WINDOW(theWindow), now);
}

void startAnimation() {
  if (pulseTimer != 0) return;
  makeOnce();
  pulse(nullptr);
  pulseTimer = g_timeout_add(kPulseMilliseconds, pulse, nullptr);
}

void setStatus(const char* status) {
  makeOnce();
  char* line = g_strdelimit(g_strdup(status), "\r\n", ' ');
  gtk_label_set_text(GTK_LABEL(theStatus), line);
  g_free(line);
}

void hide() {
  if (theWindow != nullptr) gtk_widget_hide(theWindow);
}

GtkWindow* visibleWindow() {
  if (theWindow == nullptr || gtk_widget_get_visible(theWindow) == FALSE) return nullptr;
  return GTK_WINDOW(theWindow);
}

}  // namespace window::status_view
