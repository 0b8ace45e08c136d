#include "window/AlertView.h"

#include <gtk/gtk.h>

#include "window/ApplicationIcon.h"
#include "window/Layout.h"
#include "window/StatusView.h"

namespace window::alert_view {
namespace {

constexpr int kRowSpacing = 12;
constexpr int kCharactersInLine = 48;
// A longer message is scrolled, so that the button stays on the screen.
constexpr int kLongestMessageHeight = 320;

struct Dismissal {
  void (*call)(std::uint32_t number);
  std::uint32_t number;
};

// The button, Return, Escape and the title bar all end here.
void dismiss(GtkDialog* dialog, gint /*response*/, gpointer data) {
  auto* dismissal = static_cast<Dismissal*>(data);
  gtk_widget_destroy(GTK_WIDGET(dialog));
  dismissal->call(dismissal->number);
  delete dismissal;
}

void wrap(GtkWidget* label) {
  gtk_label_set_line_wrap(GTK_LABEL(label), TRUE);
  gtk_label_set_line_wrap_mode(GTK_LABEL(label), PANGO_WRAP_WORD_CHAR);
  gtk_label_set_width_chars(GTK_LABEL(label), kCharactersInLine);
  gtk_label_set_max_width_chars(GTK_LABEL(label), kCharactersInLine);
}

// The text can be selected, for a letter to those who can help.
GtkWidget* newMessage(const char* text) {
  GtkWidget* label = layout::newLabel(text);
  wrap(label);
  gtk_label_set_selectable(GTK_LABEL(label), TRUE);
  gtk_label_set_yalign(GTK_LABEL(label), 0);
  GtkWidget* scroller = gtk_scrolled_window_new(nullptr, nullptr);
  gtk_scrolled_window_set_policy(GTK_SCROLLED_WINDOW(scroller), GTK_POLICY_NEVER,
                                 GTK_POLICY_AUTOMATIC);
  gtk_scrolled_window_set_propagate_natural_height(GTK_SCROLLED_WINDOW(scroller), TRUE);
  gtk_scrolled_window_set_max_content_height(GTK_SCROLLED_WINDOW(scroller), kLongestMessageHeight);
  gtk_container_add(GTK_CONTAINER(scroller), label);
  return scroller;
}

GtkWidget* newColumn(const char* title, const char* message) {
  GtkWidget* heading = layout::newHeading(title);
  wrap(heading);
  GtkWidget* column = gtk_box_new(GTK_ORIENTATION_VERTICAL, kRowSpacing);
  gtk_box_pack_start(GTK_BOX(column), heading, FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(column), newMessage(message), TRUE, TRUE, 0);
  return column;
}

void describe(GtkWidget* dialog, const char* title, const char* message) {
  AtkObject* accessible = gtk_widget_get_accessible(dialog);
  atk_object_set_role(accessible, ATK_ROLE_ALERT);
  atk_object_set_name(accessible, title);
  atk_object_set_description(accessible, message);
}

void addButton(GtkDialog* dialog) {
  GtkWidget* button = gtk_dialog_add_button(dialog, "_OK", GTK_RESPONSE_OK);
  gtk_dialog_set_default_response(dialog, GTK_RESPONSE_OK);
  gtk_style_context_add_class(gtk_widget_get_style_context(button), "suggested-action");
  gtk_widget_grab_focus(button);
  GtkWidget* area = gtk_widget_get_parent(button);
  g_object_set(area, "margin", layout::kMargin, "margin-top", 0, nullptr);
}

GtkWidget* newDialog() {
  GtkWidget* dialog = gtk_dialog_new();
  GtkWindow* window = GTK_WINDOW(dialog);
  gtk_window_set_title(window, layout::kWindowTitle);
  gtk_window_set_resizable(window, FALSE);
  gtk_window_set_modal(window, TRUE);
  GtkWindow* parent = status_view::visibleWindow();
  gtk_window_set_transient_for(window, parent);
  gtk_window_set_position(window, parent ? GTK_WIN_POS_CENTER_ON_PARENT : GTK_WIN_POS_CENTER);
  application_icon::setFor(window);
  return dialog;
}

}  // namespace

void show(const ShowAlert& alert, void (*dismissed)(std::uint32_t number)) {
  const char* title = alert.title.c_str();
  const char* message = alert.message.c_str();
  GtkWidget* dialog = newDialog();
  GtkWidget* row = layout::newIconRow(newColumn(title, message));
  GtkWidget* content = gtk_dialog_get_content_area(GTK_DIALOG(dialog));
  gtk_widget_set_margin_bottom(row, kRowSpacing);
  gtk_box_pack_start(GTK_BOX(content), row, TRUE, TRUE, 0);
  gtk_widget_show_all(row);
  addButton(GTK_DIALOG(dialog));
  describe(dialog, title, message);
  auto* dismissal = new Dismissal{dismissed, alert.number};
  g_signal_connect(dialog, "response", G_CALLBACK(dismiss), dismissal);
  gtk_window_present(GTK_WINDOW(dialog));
}

}  // namespace window::alert_view
