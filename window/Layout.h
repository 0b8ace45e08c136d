#pragma once

#include <gtk/gtk.h>

// What the status window and alerts have in common.
namespace window::layout {

inline constexpr char kWindowTitle[] = "Quorvale Software Update";
inline constexpr int kMargin = 24;
inline constexpr int kIconSize = 64;

// A new row of the application's icon, named for those who do not see it, and `column`.
GtkWidget* newIconRow(GtkWidget* column);

// A new label at the left, in the usual font or as a heading.
GtkWidget* newLabel(const char* text);
GtkWidget* newHeading(const char* text);

}  // namespace window::layout
