#include "window/ApplicationIcon.h"

#include <initializer_list>

namespace window::application_icon {
namespace {

// All of it is drawn in a square of 64 units.
constexpr double kUnits = 64;

void roundedSquare(cairo_t* cairo, double margin, double radius) {
  const double low = margin + radius;
  const double high = kUnits - margin - radius;
  cairo_new_sub_path(cairo);
  cairo_arc(cairo, high, low, radius, -G_PI_2, 0);
  cairo_arc(cairo, high, high, radius, 0, G_PI_2);
  cairo_arc(cairo, low, high, radius, G_PI_2, G_PI);
  cairo_arc(cairo, low, low, radius, G_PI, 3 * G_PI_2);
  cairo_close_path(cairo);
}

void drawTile(cairo_t* cairo) {
  cairo_pattern_t* shade = cairo_pattern_create_linear(0, 0, 0, kUnits);
  cairo_pattern_add_color_stop_rgb(shade, 0, 0.29, 0.56, 0.89);
  cairo_pattern_add_color_stop_rgb(shade, 1, 0.11, 0.34, 0.69);
  roundedSquare(cairo, 2, 13);
  cairo_set_source(cairo, shade);
  cairo_fill(cairo);
  cairo_pattern_destroy(shade);
}

// An arrow that comes down into a tray: something is being put in place.
void drawArrow(cairo_t* cairo) {
  cairo_set_source_rgb(cairo, 1, 1, 1);
  cairo_rectangle(cairo, 28, 13, 8, 16);
  cairo_fill(cairo);
  cairo_move_to(cairo, 18, 28);
  cairo_line_to(cairo, 46, 28);
  cairo_line_to(cairo, 32, 42);
  cairo_close_path(cairo);
  cairo_fill(cairo);
  cairo_set_line_width(cairo, 5);
  cairo_set_line_cap(cairo, CAIRO_LINE_CAP_ROUND);
  cairo_set_line_join(cairo, CAIRO_LINE_JOIN_ROUND);
  cairo_move_to(cairo, 15.5, 41);
  cairo_line_to(cairo, 15.5, 49.5);
  cairo_line_to(cairo, 48.5, 49.5);
  cairo_line_to(cairo, 48.5, 41);
  cairo_stroke(cairo);
}

void draw(cairo_t* cairo, double size) {
  cairo_scale(cairo, size / kUnits, size / kUnits);
  drawTile(cairo);
  drawArrow(cairo);
}

gboolean drawWidget(GtkWidget* widget, cairo_t* cairo, gpointer /*data*/) {
  draw(cairo, gtk_widget_get_allocated_width(widget));
  return TRUE;
}

GdkPixbuf* newImage(int size) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, size, size);
  cairo_t* cairo = cairo_create(surface);
  draw(cairo, size);
  cairo_destroy(cairo);
  GdkPixbuf* image = gdk_pixbuf_get_from_surface(surface, 0, 0, size, size);
  cairo_surface_destroy(surface);
  return image;
}

}  // namespace

GtkWidget* newWidget(int size) {
  GtkWidget* area = gtk_drawing_area_new();
  gtk_widget_set_size_request(area, size, size);
  gtk_widget_set_valign(area, GTK_ALIGN_START);
  g_signal_connect(area, "draw", G_CALLBACK(drawWidget), nullptr);
  return area;
}

void setFor(GtkWindow* window) {
  GList* images = nullptr;
  for (const int size : {16, 32, 48}) images = g_list_prepend(images, newImage(size));
  gtk_window_set_icon_list(window, images);
  g_list_free_full(images, g_object_unref);
}

}  // namespace window::application_icon
