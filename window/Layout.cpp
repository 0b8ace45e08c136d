#include "window/Layout.h"

#include "window/ApplicationIcon.h"

namespace window::layout {

GtkWidget* newIconRow(GtkWidget* column) {
  GtkWidget* icon = application_icon::newWidget(kIconSize);
  AtkObject* accessible = gtk_widget_get_accessible(icon);
  atk_object_set_role(accessible, ATK_ROLE_ICON);
  atk_object_set_name(accessible, kWindowTitle);
  GtkWidget* row = gtk_box_new(GTK_ORIENTATION_HORIZONTAL, kMargin);
  g_object_set(row, "margin", kMargin, nullptr);
  gtk_box_pack_start(GTK_BOX(row), icon, FALSE, FALSE, 0);
  gtk_box_pack_start(GTK_BOX(row), column, TRUE, TRUE, 0);
  return row;
}

GtkWidget* newLabel(const char* text) {
  GtkWidget* label = gtk_label_new(text);
  gtk_label_set_xalign(GTK_LABEL(label), 0);
  return label;
}

GtkWidget* newHeading(const char* text) {
  GtkWidget* label = newLabel(text);
  PangoAttrList* attributes = pango_attr_list_new();
  pango_attr_list_insert(attributes, pango_attr_weight_new(PANGO_WEIGHT_BOLD));
  pango_attr_list_insert(attributes, pango_attr_scale_new(PANGO_SCALE_LARGE));
  gtk_label_set_attributes(GTK_LABEL(label), attributes);
  pango_attr_list_unref(attributes);
  return label;
}

}  // namespace window::layout
