// The drawing layer on offscreen surfaces: device scale, text placement,
// panel shadows, embedded fonts, gradients and the PNG, SVG and PDF outputs.
#include "graphics/tgraphics.h"

#include <cairo.h>
#include <gtest/gtest.h>

#include <cstdio>
#include <memory>
#include <string>

#include "GraphicsTestUtil.h"
#include "graphics/tgraphics_panel_shadow.h"
#include "graphics/tgraphics_surface.h"
#include "graphics/tgraphics_text.h"

namespace {

constexpr uint32_t kWhite = 0xffffffff;

// The same scene whatever the scale: a frame, a rounded panel, a curve and text.
void DrawScene(tgraphics& g) {
  g.set_color(1, 1, 1);
  g.paint();
  g.set_antialias(CAIRO_ANTIALIAS_NONE);
  g.set_color(0.1, 0.2, 0.7);
  g.rounded_rectangle(20, 10, 60, 30, 6);
  g.fill();
  tg_array_path path;
  for (int i = 0; i <= 10; ++i) path.add(100 + i * 4, 50 - (i % 2) * 20);
  g.set_line_style(2.0, CAIRO_LINE_CAP_SQUARE, CAIRO_LINE_JOIN_MITER);
  g.set_color(0.8, 0.1, 0.1);
  g.array_path(path);
  g.stroke();
}

std::string ReadFile(const std::string& path) {
  std::string out;
  if (FILE* f = std::fopen(path.c_str(), "rb")) {
    char buf[65536];
    size_t n;
    while ((n = std::fread(buf, 1, sizeof buf, f)) > 0) out.append(buf, n);
    std::fclose(f);
  }
  return out;
}

struct Surface {
  cairo_surface_t* s;
  Surface(double w, double h, double scale) : s(tg_create_image_surface(w, h, scale)) {}
  ~Surface() { cairo_surface_destroy(s); }
};

}  // namespace

TEST(tgraphics, DeviceScaleTwoDoublesEveryDimension) {
  Surface one(160, 60, 1.0), two(160, 60, 2.0);
  ASSERT_EQ(cairo_surface_status(two.s), CAIRO_STATUS_SUCCESS);
  EXPECT_EQ(cairo_image_surface_get_width(one.s), 160);
  EXPECT_EQ(cairo_image_surface_get_width(two.s), 320);
  EXPECT_EQ(cairo_image_surface_get_height(two.s), 120);
  {
    tgraphics g1(one.s, 160, 60, 1.0), g2(two.s, 160, 60, 2.0);
    DrawScene(g1);
    DrawScene(g2);
    EXPECT_TRUE(g2.ok());
  }
  ASSERT_TRUE(tg_write_png(one.s, OutputPath("tgraphics_scale1.png")));
  ASSERT_TRUE(tg_write_png(two.s, OutputPath("tgraphics_scale2.png")));
  const InkBox a = FindInk(one.s, kWhite), b = FindInk(two.s, kWhite);
  ASSERT_FALSE(a.empty());
  EXPECT_EQ(b.left, 2 * a.left);
  EXPECT_EQ(b.top, 2 * a.top);
  EXPECT_NEAR(b.width(), 2 * a.width(), 2);
  EXPECT_NEAR(b.height(), 2 * a.height(), 2);
  EXPECT_NEAR(double(b.count) / double(a.count), 4.0, 0.25);
  // The panel's colour sits at the doubled position.
  EXPECT_EQ(PixelAt(two.s, 2 * 50, 2 * 25), PixelAt(one.s, 50, 25));
}

TEST(tgraphics, TextLandsInsideItsRectangleInBothModes) {
  const tg_align aligns[] = {tg_align::left, tg_align::center, tg_align::right};
  const tg_valign valigns[] = {tg_valign::top, tg_valign::middle, tg_valign::bottom};
  for (bool imageMode : {false, true}) {
    for (double scale : {1.0, 2.0}) {
      for (tg_align a : aligns) {
        for (tg_valign v : valigns) {
          Surface s(300, 100, scale);
          const tg_rect rect{40, 20, 220, 40};
          {
            tgraphics g(s.s, 300, 100, scale);
            g.set_text_image_mode(imageMode);
            g.set_color(1, 1, 1);
            g.paint();
            g.draw_text("Short-term -23.0 LUFS", rect, "OpenSans-SemiBold", 20.0, {0, 0, 0, 1}, a, v);
          }
          const InkBox ink = FindInk(s.s, kWhite);
          SCOPED_TRACE(testing::Message() << "image " << imageMode << " scale " << scale << " align "
                                          << int(a) << " valign " << int(v));
          ASSERT_GT(ink.count, 100);
          EXPECT_GE(ink.left, rect.x * scale);
          EXPECT_LE(ink.right, (rect.x + rect.w) * scale);
          EXPECT_GE(ink.top, rect.y * scale);
          EXPECT_LE(ink.bottom, (rect.y + rect.h) * scale);
          if (a == tg_align::left) {
            EXPECT_LT(ink.left, rect.x * scale + 4 * scale);
          } else if (a == tg_align::right) {
            EXPECT_GT(ink.right, (rect.x + rect.w) * scale - 4 * scale);
          } else {
            EXPECT_NEAR((ink.left + ink.right) / 2.0, (rect.x + rect.w / 2) * scale, 3 * scale);
          }
        }
      }
    }
  }
}

TEST(tgraphics, ImageModeDrawsTheSameGlyphsAsDirectMode) {
  long ink[2] = {0, 0};  // summed darkness
  InkBox boxes[2];
  for (int mode = 0; mode < 2; ++mode) {
    Surface s(200, 40, 1.5);
    {
      tgraphics g(s.s, 200, 40, 1.5);
      g.set_text_image_mode(mode == 1);
      g.set_color(1, 1, 1);
      g.paint();
      g.draw_text("Roboto 0123", {5, 5, 190, 30}, "Roboto-Regular", 18, {0.2, 0.2, 0.2, 1});
    }
    boxes[mode] = FindInk(s.s, kWhite);
    for (int y = 0; y < 60; ++y)
      for (int x = 0; x < 300; ++x) ink[mode] += 255 - Red(PixelAt(s.s, x, y));
    if (mode == 1) tg_write_png(s.s, OutputPath("tgraphics_text_image_mode.png"));
  }
  EXPECT_NEAR(boxes[1].left, boxes[0].left, 2);
  EXPECT_NEAR(boxes[1].right, boxes[0].right, 2);
  EXPECT_NEAR(boxes[1].top, boxes[0].top, 2);
  EXPECT_NEAR(double(ink[1]) / double(ink[0]), 1.0, 0.1);
}

TEST(tgraphics, PanelShadowDarkensOnlyAroundItsPanel) {
  Surface s(200, 140, 1.0);
  {
    tgraphics g(s.s, 200, 140, 1.0);
    g.set_color(1, 1, 1);
    g.paint();
    tgraphics_panel_shadow shadow;
    shadow.alpha = 0.6;
    shadow.offset_y = 4.0;
    shadow.softness = 6.0;
    g.rounded_rectangle(50, 40, 100, 60, 8);
    shadow.draw(g);
    // The panel's path is current again: fill it half transparent, so that
    // any shadow inside it would show through.
    g.set_color(0.9, 0.9, 0.9, 0.5);
    g.fill();
  }
  tg_write_png(s.s, OutputPath("tgraphics_panel_shadow.png"));
  // Inside the panel: white under the half-transparent panel colour, no shadow.
  const uint32_t inside = PixelAt(s.s, 100, 70);
  EXPECT_EQ(Red(inside), Red(PixelAt(s.s, 60, 50)));
  EXPECT_GE(Red(inside), 0xf0);
  // Just below the panel (the shadow's offset side): darker than the background.
  EXPECT_LT(Red(PixelAt(s.s, 100, 102)), 0xe0);
  // Beside the panel, within the soft edge: somewhat darkened.
  EXPECT_LT(Red(PixelAt(s.s, 152, 72)), 0xff);
  // Far from the panel: untouched.
  EXPECT_EQ(PixelAt(s.s, 10, 10), kWhite);
  EXPECT_EQ(PixelAt(s.s, 190, 130), kWhite);
  EXPECT_EQ(PixelAt(s.s, 100, 25), kWhite);  // above: the shadow is offset downwards
}

TEST(tgraphics, GradientsGroupsAndClipping) {
  Surface s(100, 20, 1.0);
  {
    tgraphics g(s.s, 100, 20, 1.0);
    g.set_linear_gradient(0, 0, 100, 0, {{0.0, {1, 0, 0, 1}}, {1.0, {0, 0, 1, 1}}});
    g.paint();
    g.save();
    g.clip_rect(0, 0, 50, 20);
    g.push_group();
    g.set_color(0, 1, 0, 1);
    g.paint();
    g.pop_group_to_source();
    g.paint_with_alpha(1.0);
    g.restore();
  }
  EXPECT_EQ(PixelAt(s.s, 10, 10), 0xff00ff00u);  // the group, inside the clip
  EXPECT_GT(Blue(PixelAt(s.s, 99, 10)), 0xf0);   // gradient end
  EXPECT_GT(Red(PixelAt(s.s, 60, 10)), Blue(PixelAt(s.s, 60, 10)) - 60);
  EXPECT_GT(Blue(PixelAt(s.s, 90, 10)), Red(PixelAt(s.s, 90, 10)));
}

TEST(tgraphics, EmbeddedFontsOpenFromMemory) {
  const char* names[] = {"Roboto-Regular",    "OpenSans-Regular",        "OpenSans-Bold",
                         "OpenSans-SemiBold", "OpenSans-SemiBoldItalic", "OpenSans-ExtraBold"};
  ASSERT_EQ(tgraphics_text::font_names().size(), 6u);
  for (const char* n : names) {
    SCOPED_TRACE(n);
    const unsigned char* data = nullptr;
    std::size_t size = 0;
    ASSERT_TRUE(tgraphics_text::font_bytes(n, data, size));
    EXPECT_GT(size, 50000u);
    EXPECT_EQ(data[0], 0x00);  // TrueType version 1.0
    EXPECT_EQ(data[1], 0x01);
    EXPECT_NE(tgraphics_text::face(n), nullptr);
    tg_font_info info;
    ASSERT_TRUE(tgraphics_text::info(n, info));
    EXPECT_EQ(info.units_per_em, 2048);
    EXPECT_GT(info.ascender, 0);
    EXPECT_LT(info.descender, 0);
  }
  tg_font_info roboto, bold, italic;
  tgraphics_text::info("Roboto-Regular", roboto);
  tgraphics_text::info("OpenSans-Bold", bold);
  tgraphics_text::info("OpenSans-SemiBoldItalic", italic);
  EXPECT_EQ(roboto.family, "Roboto");
  EXPECT_TRUE(roboto.regular);
  EXPECT_EQ(bold.family.substr(0, 9), "Open Sans");
  EXPECT_TRUE(bold.bold);
  EXPECT_TRUE(italic.italic);
  const unsigned char* none = nullptr;
  std::size_t noneSize = 0;
  EXPECT_FALSE(tgraphics_text::font_bytes("Comic-Sans", none, noneSize));
  EXPECT_EQ(tgraphics_text::face("Comic-Sans"), nullptr);

  // Wider strokes take more room.
  Surface s(10, 10, 1.0);
  tgraphics g(s.s, 10, 10, 1.0);
  g.set_font("OpenSans-Regular", 20);
  const double regular = g.text_extents("LOUDNESS").x_advance;
  g.set_font("OpenSans-ExtraBold", 20);
  EXPECT_GT(g.text_extents("LOUDNESS").x_advance, regular * 1.05);
  const tg_font_extents fe = g.font_extents();
  EXPECT_GT(fe.ascent, 15.0);
  EXPECT_GT(fe.height, fe.ascent);
}

TEST(tgraphics, PngWrittenAndReadBack) {
  Surface s(64, 32, 2.0);
  {
    tgraphics g(s.s, 64, 32, 2.0);
    DrawScene(g);
  }
  const std::string path = OutputPath("tgraphics_roundtrip.png");
  ASSERT_TRUE(tg_write_png(s.s, path));
  cairo_surface_t* back = cairo_image_surface_create_from_png(path.c_str());
  ASSERT_EQ(cairo_surface_status(back), CAIRO_STATUS_SUCCESS);
  EXPECT_EQ(cairo_image_surface_get_width(back), 128);
  EXPECT_EQ(cairo_image_surface_get_height(back), 64);
  EXPECT_EQ(PixelAt(back, 60, 40), PixelAt(s.s, 60, 40));
  cairo_surface_destroy(back);
  // A surface that cannot exist is reported, not crashed on.
  cairo_surface_t* huge = tg_create_image_surface(1e9, 10, 1.0);
  EXPECT_NE(cairo_surface_status(huge), CAIRO_STATUS_SUCCESS);
  cairo_surface_destroy(huge);
}

TEST(tgraphics, SvgAndPdfHoldTheDrawnText) {
  const std::string svg = OutputPath("tgraphics_export.svg"), pdf = OutputPath("tgraphics_export.pdf");
  for (int kind = 0; kind < 2; ++kind) {
    cairo_surface_t* s =
        kind == 0 ? tg_create_svg_surface(svg, 300, 80) : tg_create_pdf_surface(pdf, 300, 80);
    ASSERT_EQ(cairo_surface_status(s), CAIRO_STATUS_SUCCESS);
    {
      tgraphics g(s, 300, 80, 1.0);
      g.set_text_image_mode(true);  // vector targets keep text as glyphs anyway
      DrawScene(g);
      g.draw_text("Integrated -23.0 LUFS", {10, 10, 280, 40}, "OpenSans-Bold", 18, {0, 0, 0, 1});
    }
    tg_destroy_surface(s);
  }
  const std::string svgText = ReadFile(svg);
  EXPECT_NE(svgText.find("<svg"), std::string::npos);
  EXPECT_NE(svgText.find("width=\"300pt\""), std::string::npos);
  // Text becomes glyph symbols: one per distinct character of the string.
  size_t glyphs = 0;
  for (size_t p = svgText.find("<symbol"); p != std::string::npos; p = svgText.find("<symbol", p + 1))
    ++glyphs;
  EXPECT_GE(glyphs, 14u);

  const std::string pdfText = ReadFile(pdf);
  EXPECT_EQ(pdfText.substr(0, 5), "%PDF-");
  EXPECT_NE(pdfText.find("OpenSans-Bold"), std::string::npos);  // the embedded subset's name
#ifndef _WIN32
  // Re-read the text with poppler when it is installed.
  if (std::system("command -v pdftotext >/dev/null 2>&1") == 0) {
    const std::string txt = OutputPath("tgraphics_export.txt");
    ASSERT_EQ(std::system(("pdftotext '" + pdf + "' '" + txt + "'").c_str()), 0);
    EXPECT_NE(ReadFile(txt).find("Integrated -23.0 LUFS"), std::string::npos);
  }
#endif
}
