#include "gtk/CairoCanvas.h"

#include <pango/pangocairo.h>

#include <algorithm>
#include <cmath>
#include <cstring>

#include "gtk/Blur.h"
#include "ui/StatusIcon.h"

namespace lumerix::gtk {

LineCache::~LineCache() {
  if (cached) g_object_unref(cached);
  if (outline) cairo_path_destroy(outline);
}

PangoLayout* LineCache::layoutFor(const TextLayer& line) {
  if (cached && key == line) return cached;
  if (cached) g_object_unref(cached);
  if (outline) cairo_path_destroy(outline);
  outline = nullptr;
  cached = engine.layout(line, 0);
  key = line;
  return cached;
}

void LineCache::appendOutline(cairo_t* cr, const TextLayer& line) {
  PangoLayoutLine* l = pango_layout_get_line_readonly(layoutFor(line), 0);
  cairo_matrix_t m;
  cairo_get_matrix(cr, &m);
  cairo_new_path(cr);
  if (!l) return;
  if (outline && std::memcmp(&m, &outlineMatrix, sizeof m) == 0) {
    cairo_append_path(cr, outline);
    return;
  }
  cairo_move_to(cr, 0, 0);
  pango_cairo_layout_line_path(cr, l);
  if (outline) cairo_path_destroy(outline);
  outline = cairo_copy_path(cr);
  outlineMatrix = m;
}

CairoCanvas::CairoCanvas(cairo_t* cr, double viewHeight, LineCache& lines) : cr(cr), lines(lines) {
  cairo_save(cr);
  cairo_translate(cr, 0, viewHeight);
  cairo_scale(cr, 1, -1);
}

CairoCanvas::~CairoCanvas() {
  // Saves the drawing left open are closed with the canvas.
  for (std::size_t open = state.size(); open > 1; --open) cairo_restore(cr);
  cairo_restore(cr);
}

void CairoCanvas::save() {
  cairo_save(cr);
  state.push_back(state.back());
}

void CairoCanvas::restore() {
  if (state.size() == 1) return;  // unbalanced: nothing of the caller's to undo
  cairo_restore(cr);
  state.pop_back();
}

void CairoCanvas::setLineWidth(double width) {
  cairo_set_line_width(cr, width);
}

void CairoCanvas::setLineJoin(LineJoin join) {
  cairo_set_line_join(cr, join == LineJoin::round ? CAIRO_LINE_JOIN_ROUND : CAIRO_LINE_JOIN_MITER);
}

void CairoCanvas::setShadow(double dx, double dy, double blur, const RGBA& color) {
  State& s = state.back();
  s.shadowed = color.a > 0;
  s.shadowDx = dx;
  s.shadowDy = dy;
  s.shadowBlur = blur;
  s.shadowColor = color;
}

void CairoCanvas::setBlendMode(BlendMode mode) {
  cairo_set_operator(cr, mode == BlendMode::plusLighter ? CAIRO_OPERATOR_ADD : CAIRO_OPERATOR_OVER);
}

void CairoCanvas::clipToRect(const Rect& r) {
  cairo_new_path(cr);
  cairo_rectangle(cr, r.x, r.y, r.width, r.height);
  cairo_clip(cr);
}

void CairoCanvas::fillRect(const Rect& r) {
  cairo_new_path(cr);
  cairo_rectangle(cr, r.x, r.y, r.width, r.height);
  paintPath(false, state.back().fill);
}

void CairoCanvas::fillPath(const Path& path) {
  appendPath(path);
  paintPath(false, state.back().fill);
}

void CairoCanvas::strokePath(const Path& path) {
  appendPath(path);
  paintPath(true, state.back().stroke);
}

void CairoCanvas::appendPath(const Path& path) {
  cairo_new_path(cr);
  for (const Path::Element& e : path.elements()) {
    switch (e.kind) {
      case Path::Element::Kind::moveTo:
        cairo_move_to(cr, e.point.x, e.point.y);
        break;
      case Path::Element::Kind::lineTo:
        cairo_line_to(cr, e.point.x, e.point.y);
        break;
      case Path::Element::Kind::close:
        cairo_close_path(cr);
        break;
      case Path::Element::Kind::roundedRect:
        roundedRectPath(cr, e.rect, e.radius);
        break;
    }
  }
}

void roundedRectPath(cairo_t* cr, const Rect& r, double radius) {
  radius = std::clamp(radius, 0.0, std::min(r.width, r.height) / 2);
  cairo_new_sub_path(cr);
  cairo_arc(cr, r.maxX() - radius, r.minY() + radius, radius, -M_PI / 2, 0);
  cairo_arc(cr, r.maxX() - radius, r.maxY() - radius, radius, 0, M_PI / 2);
  cairo_arc(cr, r.minX() + radius, r.maxY() - radius, radius, M_PI / 2, M_PI);
  cairo_arc(cr, r.minX() + radius, r.minY() + radius, radius, M_PI, 3 * M_PI / 2);
  cairo_close_path(cr);
}

void CairoCanvas::setSource(cairo_t* c, const RGBA& color) {
  cairo_set_source_rgba(c, color.r, color.g, color.b, color.a);
}

void CairoCanvas::paintPath(bool stroke, const RGBA& color) {
  if (state.back().shadowed) paintShadow(stroke);
  setSource(cr, color);
  stroke ? cairo_stroke(cr) : cairo_fill(cr);
}

void CairoCanvas::paintShadow(bool stroke) {
  const State& s = state.back();
  // The shape's extent and the clip's, in device space (before the
  // surface's own scale), widened by the blur's reach.
  double x1, y1, x2, y2;
  stroke ? cairo_stroke_extents(cr, &x1, &y1, &x2, &y2) : cairo_fill_extents(cr, &x1, &y1, &x2, &y2);
  auto deviceBox = [this](double ax, double ay, double bx, double by) {
    double xs[4] = {ax, bx, ax, bx}, ys[4] = {ay, ay, by, by};
    for (int i = 0; i < 4; ++i) cairo_user_to_device(cr, &xs[i], &ys[i]);
    return Rect{*std::min_element(xs, xs + 4), *std::min_element(ys, ys + 4),
                *std::max_element(xs, xs + 4) - *std::min_element(xs, xs + 4),
                *std::max_element(ys, ys + 4) - *std::min_element(ys, ys + 4)};
  };
  const double reach = 1.5 * s.shadowBlur + 2;
  Rect shape = deviceBox(x1, y1, x2, y2);
  // Where the blurred copy lands, and what of it the clip lets through.
  Rect box{shape.x + s.shadowDx - reach, shape.y - s.shadowDy - reach, shape.width + 2 * reach,
           shape.height + 2 * reach};
  cairo_clip_extents(cr, &x1, &y1, &x2, &y2);
  const Rect clip = deviceBox(x1, y1, x2, y2);
  const double left = std::max(box.minX(), clip.minX()), top = std::max(box.minY(), clip.minY());
  const double right = std::min(box.maxX(), clip.maxX()), bottom = std::min(box.maxY(), clip.maxY());
  if (!(right > left) || !(bottom > top)) return;
  // The mask covers the landing area plus the blur's reach beyond it, so
  // the blur near the clip's edge reads real shape, not a cut.
  box = {std::floor(left - reach), std::floor(top - reach), 0, 0};
  box.width = std::ceil(right + reach) - box.x;
  box.height = std::ceil(bottom + reach) - box.y;

  double sx = 1, sy = 1;
  cairo_surface_get_device_scale(cairo_get_target(cr), &sx, &sy);
  const int pw = static_cast<int>(std::ceil(box.width * sx)), ph = static_cast<int>(std::ceil(box.height * sy));
  cairo_surface_t* mask = cairo_image_surface_create(CAIRO_FORMAT_A8, pw, ph);
  cairo_surface_set_device_scale(mask, sx, sy);
  cairo_t* m = cairo_create(mask);
  cairo_matrix_t ctm;
  cairo_get_matrix(cr, &ctm);
  // The shape drawn where it will land: moved by the offset (device space).
  ctm.x0 += s.shadowDx - box.x;
  ctm.y0 += -s.shadowDy - box.y;
  cairo_set_matrix(m, &ctm);
  cairo_path_t* path = cairo_copy_path(cr);
  cairo_append_path(m, path);
  cairo_path_destroy(path);
  if (stroke) {
    cairo_set_line_width(m, cairo_get_line_width(cr));
    cairo_set_line_join(m, cairo_get_line_join(cr));
    cairo_stroke(m);
  } else {
    cairo_fill(m);
  }
  cairo_destroy(m);
  cairo_surface_flush(mask);
  // A blur of b spreads about as far as a Gaussian of deviation b / 2.
  blurAlpha(cairo_image_surface_get_data(mask), pw, ph, cairo_image_surface_get_stride(mask), s.shadowBlur / 2 * sx);
  cairo_surface_mark_dirty(mask);

  cairo_save(cr);
  cairo_identity_matrix(cr);
  setSource(cr, s.shadowColor);
  cairo_mask_surface(cr, mask, box.x, box.y);
  cairo_restore(cr);
  cairo_surface_destroy(mask);
}

void CairoCanvas::drawLinearGradient(const std::vector<GradientStop>& stops, Point start, Point end) {
  cairo_pattern_t* p = cairo_pattern_create_linear(start.x, start.y, end.x, end.y);
  for (const GradientStop& stop : stops) {
    cairo_pattern_add_color_stop_rgba(p, stop.location, stop.color.r, stop.color.g, stop.color.b, stop.color.a);
  }
  cairo_pattern_set_extend(p, CAIRO_EXTEND_NONE);
  cairo_set_source(cr, p);
  cairo_paint(cr);
  cairo_pattern_destroy(p);
}

Rect CairoCanvas::textLineBounds(const TextLayer& line) {
  PangoLayoutLine* l = pango_layout_get_line_readonly(lines.layoutFor(line), 0);
  if (!l) return {};
  PangoRectangle ink;
  pango_layout_line_get_extents(l, &ink, nullptr);
  const double s = PANGO_SCALE;
  return {ink.x / s, -(ink.y + ink.height) / s, ink.width / s, ink.height / s};
}

void CairoCanvas::drawTextLine(const TextLayer& line, Point origin, TextDrawingMode mode) {
  // The path is built upright at the baseline's left end; it stays when
  // the transformation is undone.
  cairo_save(cr);
  cairo_translate(cr, origin.x, origin.y);
  cairo_scale(cr, 1, -1);
  lines.appendOutline(cr, line);
  cairo_restore(cr);
  switch (mode) {
    case TextDrawingMode::fill:
      paintPath(false, line.foreground.value_or(state.back().fill));
      break;
    case TextDrawingMode::stroke:
      paintPath(true, line.foreground.value_or(state.back().stroke));
      break;
    case TextDrawingMode::clip:
      cairo_clip(cr);
      break;
  }
}

void CairoCanvas::drawTextBlock(const TextLayer& layer, const Rect& frame) {
  PangoLayout* l = lines.text().layout(layer, frame.width);
  cairo_save(cr);
  cairo_new_path(cr);
  cairo_translate(cr, frame.x, frame.maxY());
  cairo_scale(cr, 1, -1);
  cairo_move_to(cr, 0, 0);
  pango_cairo_layout_path(cr, l);
  cairo_restore(cr);
  g_object_unref(l);

  save();
  if (layer.shadow) setShadow(layer.shadow->dx, layer.shadow->dy, layer.shadow->blur, layer.shadow->color);
  if (layer.strokeWidth > 0) {
    // The width is a percentage of the font size, centred on the outline.
    setLineWidth(layer.strokeWidth / 100 * layer.font.size);
    setLineJoin(LineJoin::round);
    paintPath(true, layer.strokeColor.value_or(state.back().stroke));
  } else {
    paintPath(false, layer.foreground.value_or(state.back().fill));
  }
  restore();
}

cairo_surface_t* drawIconSurface(int size, TextEngine& engine) {
  cairo_surface_t* surface = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, size, size);
  cairo_t* cr = cairo_create(surface);
  cairo_scale(cr, size / statusIconSize, size / statusIconSize);
  LineCache lines(engine);
  {
    CairoCanvas canvas(cr, statusIconSize, lines);
    drawStatusIcon(canvas);
  }
  cairo_destroy(cr);
  cairo_surface_flush(surface);
  return surface;
}

}  // namespace lumerix::gtk
