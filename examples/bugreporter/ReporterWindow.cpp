#include "examples/bugreporter/ReporterWindow.h"

namespace bug_reporter {
namespace {

constexpr int kMargin = 18;
constexpr int kSpacing = 12;
constexpr int kTextMargin = 6;
constexpr int kWidth = 720;
constexpr int kHeight = 480;
constexpr double kHeadingScale = 1.2;

GtkWidget* makeHeading(const CrashLogText& log) {
  const std::string application =
      log.application.empty() ? "An application" : "\u201C" + log.application + "\u201D";
  GtkWidget* heading = gtk_label_new((application + " quit unexpectedly.").c_str());
  gtk_label_set_xalign(GTK_LABEL(heading), 0);
  gtk_label_set_line_wrap(GTK_LABEL(heading), TRUE);
  PangoAttrList* style = pango_attr_list_new();
  pango_attr_list_insert(style, pango_attr_weight_new(PANGO_WEIGHT_BOLD));
  pango_attr_list_insert(style, pango_attr_scale_new(kHeadingScale));
  gtk_label_set_attributes(GTK_LABEL(heading), style);
  pango_attr_list_unref(style);
  return heading;
}

GtkWidget* makePath(const CrashLogText& log) {
  GtkWidget* path = gtk_label_new(log.path.c_str());
  gtk_label_set_xalign(GTK_LABEL(path), 0);
  gtk_label_set_ellipsize(GTK_LABEL(path), PANGO_ELLIPSIZE_MIDDLE);
  gtk_widget_set_tooltip_text(path, log.path.c_str());
  return path;
}

void setMargins(GtkTextView* view) {
  gtk_text_view_set_left_margin(view, kTextMargin);
  gtk_text_view_set_right_margin(view, kTextMargin);
  gtk_text_view_set_top_margin(view, kTextMargin);
}

GtkWidget* makeTextView(const std::string& text) {
  GtkWidget* widget = gtk_text_view_new();
  auto* view = GTK_TEXT_VIEW(widget);
  gtk_text_view_set_editable(view, FALSE);
  gtk_text_view_set_cursor_visible(view, FALSE);
  gtk_text_view_set_monospace(view, TRUE);
  // The keyboard moves on from here.
  gtk_text_view_set_accepts_tab(view, FALSE);
  setMargins(view);
  gtk_text_buffer_set_text(gtk_text_view_get_buffer(view), text.data(),
                           static_cast<int>(text.size()));
  atk_object_set_name(gtk_widget_get_accessible(widget), "Crash log");
  return widget;
}

GtkWidget* makeScrolled(GtkWidget* view) {
  GtkWidget* scrolled = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_scrolled_window_set_shadow_type(GTK_SCROLLED_WINDOW(scrolled), GTK_SHADOW_IN);
  gtk_container_add(GTK_CONTAINER(scrolled), view);
  return scrolled;
}

}  // namespace

ReporterWindow::ReporterWindow(const CrashLogText& log)
    : text_(log.text), window_(gtk_window_new(GTK_WINDOW_TOPLEVEL)) {
  gtk_window_set_title(GTK_WINDOW(window_), "Bug Reporter");
  gtk_window_set_default_size(GTK_WINDOW(window_), kWidth, kHeight);
  gtk_container_set_border_width(GTK_CONTAINER(window_), kMargin);
  GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, kSpacing);
  gtk_container_add(GTK_CONTAINER(window_), column);
  gtk_box_pack_start(GTK_BOX(column), makeHeading(log), FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(column), makePath(log), FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(column), makeScrolled(makeTextView(text_)), TRUE, TRUE, 0);
  gtk_box_pack_start(GTK_BOX(column), makeButtons(), FALSE, FALSE, 0);
  g_signal_connect(window_, "key-press-event", G_CALLBACK(keyPressed), nullptr);
  g_signal_connect(window_, "destroy", G_CALLBACK(gtk_main_quit), nullptr);
  gtk_widget_show_all(window_);
}

GtkWidget* ReporterWindow::makeButtons() {
  GtkWidget* buttons = gtk_button_box_new(GTK_ORIENTATION_HORIZONTAL);
  gtk_button_box_set_layout(GTK_BUTTON_BOX(buttons), GTK_BUTTONBOX_END);
  gtk_box_set_spacing(GTK_BOX(buttons), kSpacing);
  GtkWidget* copyButton = gtk_button_new_with_mnemonic("_Copy");
  g_signal_connect(copyButton, "clicked", G_CALLBACK(copy), this);
  GtkWidget* closeButton = gtk_button_new_with_mnemonic("C_lose");
  g_signal_connect_swapped(closeButton, "clicked", G_CALLBACK(gtk_widget_destroy), window_);
  gtk_container_add(GTK_CONTAINER(buttons), copyButton);
  gtk_container_add(GTK_CONTAINER(buttons), closeButton);
  return buttons;
}

void ReporterWindow::copy(GtkButton*, gpointer self) {
  const std::string& text = static_cast<ReporterWindow*>(self)->text_;
  gtk_clipboard_set_text(gtk_clipboard_get(GDK_SELECTION_CLIPBOARD), text.data(),
                         static_cast<int>(text.size()));
}

gboolean ReporterWindow::keyPressed(GtkWidget* window, GdkEventKey* key, gpointer) {
  if (key->keyval != GDK_KEY_Escape) return GDK_EVENT_PROPAGATE;
  gtk_widget_destroy(window);
  return GDK_EVENT_STOP;
}

}  // namespace bug_reporter
