// Draws the application icon, the core's status icon, at the sizes the
// desktop's icon theme wants: lumerix-icons OUTDIR NAME SIZE... writes
// OUTDIR/hicolor/SIZExSIZE/apps/NAME.png. Run by the build.
#include <cairo.h>
#include <glib.h>

#include <cstdlib>
#include <iostream>
#include <string>

#include "gtk/CairoCanvas.h"

int main(int argc, char** argv) {
  if (argc < 4) {
    std::cerr << "usage: lumerix-icons OUTDIR NAME SIZE...\n";
    return 2;
  }
  lumerix::gtk::TextEngine text("Sans");
  for (int i = 3; i < argc; ++i) {
    const int size = std::atoi(argv[i]);
    if (size <= 0) {
      std::cerr << "lumerix-icons: not a size: " << argv[i] << '\n';
      return 2;
    }
    const std::string dir = std::string(argv[1]) + "/hicolor/" + argv[i] + "x" + argv[i] + "/apps";
    if (g_mkdir_with_parents(dir.c_str(), 0755) != 0) {
      std::cerr << "lumerix-icons: cannot make " << dir << '\n';
      return 1;
    }
    cairo_surface_t* icon = lumerix::gtk::drawIconSurface(size, text);
    const std::string file = dir + "/" + argv[2] + ".png";
    const cairo_status_t status = cairo_surface_write_to_png(icon, file.c_str());
    cairo_surface_destroy(icon);
    if (status != CAIRO_STATUS_SUCCESS) {
      std::cerr << "lumerix-icons: " << file << ": " << cairo_status_to_string(status) << '\n';
      return 1;
    }
  }
  return 0;
}
