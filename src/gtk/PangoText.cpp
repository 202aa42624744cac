#include "gtk/PangoText.h"

#include <gtk/gtk.h>
#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>

namespace lumerix::gtk {

namespace {

std::string folded(const char* name) {
  gchar* f = g_utf8_casefold(name, -1);
  std::string out(f);
  g_free(f);
  return out;
}

}  // namespace

TextEngine::TextEngine(std::string systemFamily)
    : system(std::move(systemFamily)),
      fontMap(pango_cairo_font_map_get_default()),
      context(pango_font_map_create_context(fontMap)) {
  // Grey antialiasing: sub-pixel colour fringes show on a see-through bar.
  // Unhinted metrics, so a line measures the same at every position.
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_GRAY);
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_OFF);
  pango_cairo_context_set_font_options(context, options);
  cairo_font_options_destroy(options);
}

TextEngine::~TextEngine() {
  g_object_unref(context);
}

bool TextEngine::installed(const std::string& family) {
  if (families.empty()) {
    PangoFontFamily** list = nullptr;
    int n = 0;
    pango_font_map_list_families(fontMap, &list, &n);
    for (int i = 0; i < n; ++i) families.insert(folded(pango_font_family_get_name(list[i])));
    g_free(list);
  }
  return families.contains(folded(family.c_str()));
}

PangoFontDescription* TextEngine::describe(const FontRequest& font) {
  PangoFontDescription* d = pango_font_description_new();
  const auto named = std::find_if(font.families.begin(), font.families.end(),
                                  [this](const std::string& family) { return installed(family); });
  if (named != font.families.end()) {
    pango_font_description_set_family(d, named->c_str());
  } else {
    pango_font_description_set_family(d, system.c_str());
    pango_font_description_set_weight(
        d, font.fallback == FontRequest::SystemWeight::black ? PANGO_WEIGHT_HEAVY : PANGO_WEIGHT_BOLD);
  }
  pango_font_description_set_absolute_size(d, font.size * PANGO_SCALE);
  return d;
}

PangoFontDescription* TextEngine::systemFont(double size) {
  PangoFontDescription* d = pango_font_description_new();
  pango_font_description_set_family(d, system.c_str());
  pango_font_description_set_absolute_size(d, size * PANGO_SCALE);
  return d;
}

PangoLayout* TextEngine::statusLayout(double size, double width) {
  PangoLayout* l = pango_layout_new(context);
  PangoFontDescription* font = systemFont(size);
  pango_layout_set_font_description(l, font);
  pango_font_description_free(font);
  pango_layout_set_alignment(l, PANGO_ALIGN_CENTER);
  pango_layout_set_width(l, static_cast<int>(width * PANGO_SCALE));
  pango_layout_set_ellipsize(l, PANGO_ELLIPSIZE_END);
  pango_layout_set_single_paragraph_mode(l, TRUE);
  return l;
}

PangoLayout* TextEngine::layout(const TextLayer& layer, double width) {
  PangoLayout* l = pango_layout_new(context);
  PangoFontDescription* d = describe(layer.font);
  pango_layout_set_font_description(l, d);
  pango_font_description_free(d);
  if (layer.kerning != 0) {
    PangoAttrList* attrs = pango_attr_list_new();
    pango_attr_list_insert(attrs, pango_attr_letter_spacing_new(static_cast<int>(layer.kerning * PANGO_SCALE)));
    pango_layout_set_attributes(l, attrs);
    pango_attr_list_unref(attrs);
  }
  pango_layout_set_alignment(l, PANGO_ALIGN_CENTER);
  if (width > 0) {
    pango_layout_set_width(l, static_cast<int>(width * PANGO_SCALE));
    pango_layout_set_wrap(l, PANGO_WRAP_WORD_CHAR);
  }
  pango_layout_set_text(l, layer.text.data(), static_cast<int>(layer.text.size()));
  return l;
}

Size TextEngine::measure(const TextLayer& layer, Size bounds) {
  PangoLayout* l = layout(layer, bounds.width);
  PangoRectangle logical;
  pango_layout_get_extents(l, nullptr, &logical);
  g_object_unref(l);
  return {static_cast<double>(logical.width) / PANGO_SCALE,
          std::min(static_cast<double>(logical.height) / PANGO_SCALE, bounds.height)};
}

std::string desktopFontFamily() {
  gchar* name = nullptr;
  if (GtkSettings* settings = gtk_settings_get_default()) g_object_get(settings, "gtk-font-name", &name, nullptr);
  PangoFontDescription* font = pango_font_description_from_string(name ? name : "");
  g_free(name);
  const char* family = pango_font_description_get_family(font);
  std::string out = family && *family ? family : "Sans";
  pango_font_description_free(font);
  return out;
}

}  // namespace lumerix::gtk
