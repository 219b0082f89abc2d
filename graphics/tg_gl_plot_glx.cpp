// tg_gl_plot on X11: a GLX pbuffer context of its own display connection,
// with GL 3.2 core-profile functions through libepoxy.
#include <X11/Xlib.h>
#include <epoxy/gl.h>
#include <epoxy/glx.h>

#include <algorithm>
#include <atomic>
#include <cmath>
#include <cstring>

#include "graphics/tg_gl_plot.h"

namespace {

std::atomic<int> g_forced{0};

const char* const kSeriesVertex = R"(#version 150 core
uniform samplerBuffer values;
uniform int first;
uniform int mode;        // 0 line, 1 area
uniform vec2 size;       // frame in pixels
uniform vec2 xmap;       // pixel x of value `first`, pixels per value
uniform vec3 ymap;       // data y at the bottom, at the top, area floor
uniform float halfWidth;
void main() {
  int i = gl_VertexID / 6, k = gl_VertexID % 6;
  float a = texelFetch(values, first + i).r, b = texelFetch(values, first + i + 1).r;
  if (a < -1e29 || b < -1e29) { gl_Position = vec4(2.0, 2.0, 2.0, 1.0); return; }
  float scale = size.y / (ymap.y - ymap.x);
  // Values beyond the frame are drawn at its edge, as the cairo graphs do.
  vec2 p0 = vec2(xmap.x + float(i) * xmap.y, clamp((a - ymap.x) * scale, 0.0, size.y));
  vec2 p1 = vec2(xmap.x + float(i + 1) * xmap.y, clamp((b - ymap.x) * scale, 0.0, size.y));
  int corner = k < 3 ? k : (k == 3 ? 2 : (k == 4 ? 1 : 3));
  vec2 p;
  if (mode == 0) {
    vec2 d = p1 - p0;
    d = length(d) > 1e-6 ? normalize(d) : vec2(1.0, 0.0);
    vec2 n = vec2(-d.y, d.x) * halfWidth;
    p0 -= d * halfWidth * 0.5;
    p1 += d * halfWidth * 0.5;
    p = corner == 0 ? p0 - n : corner == 1 ? p0 + n : corner == 2 ? p1 - n : p1 + n;
  } else {
    float f = (ymap.z - ymap.x) * scale;
    p = corner == 0 ? vec2(p0.x, f) : corner == 1 ? p0 : corner == 2 ? vec2(p1.x, f) : p1;
  }
  gl_Position = vec4(p / size * 2.0 - 1.0, 0.0, 1.0);
}
)";

const char* const kRectVertex = R"(#version 150 core
in vec2 position;        // pixels from the top-left corner
uniform vec2 size;
void main() { gl_Position = vec4(position.x / size.x * 2.0 - 1.0, 1.0 - position.y / size.y * 2.0, 0.0, 1.0); }
)";

const char* const kFragment = R"(#version 150 core
uniform vec4 color;      // premultiplied
out vec4 fragment;
void main() { fragment = color; }
)";

int g_x_errors = 0;
int CountXError(Display*, XErrorEvent*) {
  ++g_x_errors;
  return 0;
}

struct Series {
  GLuint buffer = 0, texture = 0;
  size_t size = 0, capacity = 0;
};

class GlxPlot final : public tg_gl_plot {
 public:
  ~GlxPlot() override {
    if (dpy_ && ctx_ && bind()) {
      for (Series& s : series_) {
        glDeleteTextures(1, &s.texture);
        glDeleteBuffers(1, &s.buffer);
      }
      glDeleteProgram(seriesProgram_);
      glDeleteProgram(rectProgram_);
      glDeleteBuffers(1, &rectBuffer_);
      glDeleteVertexArrays(1, &vao_);
      deleteTargets();
      release();
    }
    if (dpy_) {
      if (ctx_) glXDestroyContext(dpy_, ctx_);
      if (pbuffer_) glXDestroyPbuffer(dpy_, pbuffer_);
      XCloseDisplay(dpy_);
    }
  }

  bool start(std::string& why) {
    dpy_ = XOpenDisplay(nullptr);
    if (!dpy_) return fail(why, "no X display");
    const int screen = DefaultScreen(dpy_);
    if (!epoxy_has_glx_extension(dpy_, screen, "GLX_ARB_create_context_profile"))
      return fail(why, "the GLX server cannot create core-profile contexts");
    const int fbAttribs[] = {GLX_DRAWABLE_TYPE,
                             GLX_PBUFFER_BIT,
                             GLX_RENDER_TYPE,
                             GLX_RGBA_BIT,
                             GLX_RED_SIZE,
                             8,
                             GLX_GREEN_SIZE,
                             8,
                             GLX_BLUE_SIZE,
                             8,
                             GLX_ALPHA_SIZE,
                             8,
                             None};
    int n = 0;
    GLXFBConfig* configs = glXChooseFBConfig(dpy_, screen, fbAttribs, &n);
    if (!configs || n < 1) {
      if (configs) XFree(configs);
      return fail(why, "no GLX frame-buffer configuration");
    }
    const GLXFBConfig config = configs[0];
    XFree(configs);
    const int ctxAttribs[] = {
        GLX_CONTEXT_MAJOR_VERSION_ARB,    3,   GLX_CONTEXT_MINOR_VERSION_ARB, 2, GLX_CONTEXT_PROFILE_MASK_ARB,
        GLX_CONTEXT_CORE_PROFILE_BIT_ARB, None};
    // A refused context arrives as an X error: count it instead of exiting.
    XSync(dpy_, False);
    g_x_errors = 0;
    XErrorHandler previous = XSetErrorHandler(&CountXError);
    ctx_ = glXCreateContextAttribsARB(dpy_, config, nullptr, True, ctxAttribs);
    const int pbAttribs[] = {GLX_PBUFFER_WIDTH, 16, GLX_PBUFFER_HEIGHT, 16, None};
    if (ctx_) pbuffer_ = glXCreatePbuffer(dpy_, config, pbAttribs);
    XSync(dpy_, False);
    XSetErrorHandler(previous);
    if (!ctx_ || !pbuffer_ || g_x_errors) return fail(why, "no OpenGL 3.2 core-profile context");
    if (!bind()) return fail(why, "the OpenGL context cannot be made current");
    const bool ok = build(why);
    release();
    return ok;
  }

  void append(int index, const float* values, size_t count) override {
    if (failed_ || count == 0 || index < 0) return;
    const bool outside = !inFrame_;
    if (outside && !bind()) return;
    if (size_t(index) >= series_.size()) series_.resize(size_t(index) + 1);
    Series& s = series_[size_t(index)];
    if (s.size + count > s.capacity) grow(s, std::max({s.capacity * 2, s.size + count, size_t(4096)}));
    if (!failed_) {
      glBindBuffer(GL_TEXTURE_BUFFER, s.buffer);
      glBufferSubData(GL_TEXTURE_BUFFER, GLintptr(s.size * sizeof(float)), GLsizeiptr(count * sizeof(float)),
                      values);
      s.size += count;
      if (glGetError() != GL_NO_ERROR) failed_ = true;
    }
    if (outside) release();
  }

  void clear(int index) override {
    if (index >= 0 && size_t(index) < series_.size()) series_[size_t(index)].size = 0;
  }

  size_t size(int index) const override {
    return index >= 0 && size_t(index) < series_.size() ? series_[size_t(index)].size : 0;
  }

  bool begin(int width, int height) override {
    if (g_forced.load() == int(failure::frame)) failed_ = true;
    if (failed_ || width < 1 || height < 1 || width > maxSize_ || height > maxSize_ || !bind()) return false;
    inFrame_ = true;
    if (width != width_ || height != height_) {
      deleteTargets();
      width_ = width;
      height_ = height;
      glGenFramebuffers(2, fbo_);
      glGenRenderbuffers(2, rbo_);
      for (int i = 0; i < 2; ++i) {
        glBindRenderbuffer(GL_RENDERBUFFER, rbo_[i]);
        if (i == 0)
          glRenderbufferStorageMultisample(GL_RENDERBUFFER, samples_, GL_RGBA8, width, height);
        else
          glRenderbufferStorage(GL_RENDERBUFFER, GL_RGBA8, width, height);
        glBindFramebuffer(GL_FRAMEBUFFER, fbo_[i]);
        glFramebufferRenderbuffer(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_RENDERBUFFER, rbo_[i]);
        if (glCheckFramebufferStatus(GL_FRAMEBUFFER) != GL_FRAMEBUFFER_COMPLETE) failed_ = true;
      }
    }
    glBindFramebuffer(GL_FRAMEBUFFER, fbo_[0]);
    glViewport(0, 0, width, height);
    glClearColor(0.f, 0.f, 0.f, 0.f);
    glClear(GL_COLOR_BUFFER_BIT);
    glEnable(GL_BLEND);
    glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
    glBindVertexArray(vao_);
    return !failed_;
  }

  void line(int index, size_t first, size_t count, double base, double step, const tg_gl_view& view,
            const tg_color& color, double width) override {
    drawSeries(index, first, count, base, step, view, 0, 0.0, color, width);
  }

  void area(int index, size_t first, size_t count, double base, double step, const tg_gl_view& view,
            double floor, const tg_color& color) override {
    drawSeries(index, first, count, base, step, view, 1, floor, color, 1.0);
  }

  void rects(const std::vector<float>& xywh, const tg_color& color) override {
    if (!inFrame_ || failed_ || xywh.size() < 4) return;
    std::vector<float> v;
    v.reserve(xywh.size() / 4 * 12);
    for (size_t i = 0; i + 3 < xywh.size(); i += 4) {
      const float x0 = xywh[i], y0 = xywh[i + 1], x1 = x0 + xywh[i + 2], y1 = y0 + xywh[i + 3];
      const float quad[12] = {x0, y0, x1, y0, x0, y1, x0, y1, x1, y0, x1, y1};
      v.insert(v.end(), quad, quad + 12);
    }
    glUseProgram(rectProgram_);
    glUniform2f(rectSize_, float(width_), float(height_));
    setColor(rectColor_, color);
    glBindBuffer(GL_ARRAY_BUFFER, rectBuffer_);
    glBufferData(GL_ARRAY_BUFFER, GLsizeiptr(v.size() * sizeof(float)), v.data(), GL_STREAM_DRAW);
    glEnableVertexAttribArray(0);
    glVertexAttribPointer(0, 2, GL_FLOAT, GL_FALSE, 0, nullptr);
    glDrawArrays(GL_TRIANGLES, 0, GLsizei(v.size() / 2));
    glDisableVertexAttribArray(0);
  }

  cairo_surface_t* end() override {
    if (!inFrame_) return nullptr;
    inFrame_ = false;
    cairo_surface_t* image = nullptr;
    if (!failed_) {
      glBindFramebuffer(GL_READ_FRAMEBUFFER, fbo_[0]);
      glBindFramebuffer(GL_DRAW_FRAMEBUFFER, fbo_[1]);
      glBlitFramebuffer(0, 0, width_, height_, 0, 0, width_, height_, GL_COLOR_BUFFER_BIT, GL_NEAREST);
      glBindFramebuffer(GL_READ_FRAMEBUFFER, fbo_[1]);
      image = cairo_image_surface_create(CAIRO_FORMAT_ARGB32, width_, height_);
      if (cairo_surface_status(image) == CAIRO_STATUS_SUCCESS) {
        cairo_surface_flush(image);
        unsigned char* data = cairo_image_surface_get_data(image);
        const int stride = cairo_image_surface_get_stride(image);
        glPixelStorei(GL_PACK_ALIGNMENT, 4);
        glPixelStorei(GL_PACK_ROW_LENGTH, stride / 4);
        glReadPixels(0, 0, width_, height_, GL_BGRA, GL_UNSIGNED_BYTE, data);
        glPixelStorei(GL_PACK_ROW_LENGTH, 0);
        // GL's rows run bottom-up.
        std::vector<unsigned char> row(static_cast<size_t>(stride));
        for (int y = 0; y < height_ / 2; ++y) {
          unsigned char* a = data + size_t(y) * size_t(stride);
          unsigned char* b = data + size_t(height_ - 1 - y) * size_t(stride);
          std::memcpy(row.data(), a, size_t(stride));
          std::memcpy(a, b, size_t(stride));
          std::memcpy(b, row.data(), size_t(stride));
        }
        cairo_surface_mark_dirty(image);
      }
      if (glGetError() != GL_NO_ERROR) failed_ = true;
    }
    release();
    if (failed_ && image) {
      cairo_surface_destroy(image);
      image = nullptr;
    }
    return image;
  }

  std::string renderer() const override { return renderer_; }

 private:
  static bool fail(std::string& why, const char* text) {
    why = text;
    return false;
  }

  bool bind() { return glXMakeContextCurrent(dpy_, pbuffer_, pbuffer_, ctx_); }
  void release() { glXMakeContextCurrent(dpy_, None, None, nullptr); }

  GLuint compile(const char* vertex, std::string& why) {
    GLuint program = glCreateProgram();
    for (const auto& [type, text] :
         {std::pair{GL_VERTEX_SHADER, vertex}, std::pair{GL_FRAGMENT_SHADER, kFragment}}) {
      const GLuint shader = glCreateShader(type);
      glShaderSource(shader, 1, &text, nullptr);
      glCompileShader(shader);
      GLint ok = 0;
      glGetShaderiv(shader, GL_COMPILE_STATUS, &ok);
      if (!ok) {
        char log[512] = {};
        glGetShaderInfoLog(shader, sizeof log, nullptr, log);
        why = std::string("shader: ") + log;
      }
      glAttachShader(program, shader);
      glDeleteShader(shader);
    }
    glBindAttribLocation(program, 0, "position");
    glBindFragDataLocation(program, 0, "fragment");
    glLinkProgram(program);
    GLint linked = 0;
    glGetProgramiv(program, GL_LINK_STATUS, &linked);
    if (!linked && why.empty()) why = "shader program does not link";
    return program;
  }

  bool build(std::string& why) {
    if (epoxy_gl_version() < 32) return fail(why, "OpenGL older than 3.2");
    const GLubyte* name = glGetString(GL_RENDERER);
    renderer_ = name ? reinterpret_cast<const char*>(name) : "unknown";
    why.clear();
    seriesProgram_ = compile(kSeriesVertex, why);
    rectProgram_ = compile(kRectVertex, why);
    if (!why.empty()) return false;
    const char* names[] = {"values", "first", "mode", "size", "xmap", "ymap", "halfWidth", "color"};
    for (int i = 0; i < 8; ++i) u_[i] = glGetUniformLocation(seriesProgram_, names[i]);
    rectSize_ = glGetUniformLocation(rectProgram_, "size");
    rectColor_ = glGetUniformLocation(rectProgram_, "color");
    glGenVertexArrays(1, &vao_);
    glGenBuffers(1, &rectBuffer_);
    GLint maxSamples = 0, maxTexels = 0, maxRender = 0;
    glGetIntegerv(GL_MAX_SAMPLES, &maxSamples);
    glGetIntegerv(GL_MAX_TEXTURE_BUFFER_SIZE, &maxTexels);
    glGetIntegerv(GL_MAX_RENDERBUFFER_SIZE, &maxRender);
    samples_ = std::clamp(maxSamples, 0, 4);
    maxTexels_ = size_t(std::max(0, maxTexels));
    maxSize_ = maxRender;
    if (glGetError() != GL_NO_ERROR) return fail(why, "OpenGL error while starting");
    return true;
  }

  void grow(Series& s, size_t capacity) {
    if (capacity > maxTexels_) {
      failed_ = true;
      return;
    }
    GLuint buffer = 0;
    glGenBuffers(1, &buffer);
    glBindBuffer(GL_COPY_WRITE_BUFFER, buffer);
    glBufferData(GL_COPY_WRITE_BUFFER, GLsizeiptr(capacity * sizeof(float)), nullptr, GL_DYNAMIC_DRAW);
    if (s.buffer && s.size) {
      glBindBuffer(GL_COPY_READ_BUFFER, s.buffer);
      glCopyBufferSubData(GL_COPY_READ_BUFFER, GL_COPY_WRITE_BUFFER, 0, 0,
                          GLsizeiptr(s.size * sizeof(float)));
    }
    if (s.buffer) glDeleteBuffers(1, &s.buffer);
    if (!s.texture) glGenTextures(1, &s.texture);
    glBindTexture(GL_TEXTURE_BUFFER, s.texture);
    glTexBuffer(GL_TEXTURE_BUFFER, GL_R32F, buffer);
    s.buffer = buffer;
    s.capacity = capacity;
  }

  void drawSeries(int index, size_t first, size_t count, double base, double step, const tg_gl_view& view,
                  int mode, double floor, const tg_color& color, double width) {
    if (!inFrame_ || failed_ || index < 0 || size_t(index) >= series_.size()) return;
    const Series& s = series_[size_t(index)];
    if (first + 1 >= s.size || count < 2) return;
    count = std::min(count, s.size - first);
    // Positions in double precision here, so that a day of history keeps
    // sub-pixel accuracy in the shader's single precision.
    const double pixelsPerX = double(width_) / (view.x1 - view.x0);
    const double x0 = (base + double(first) * step - view.x0) * pixelsPerX;
    glUseProgram(seriesProgram_);
    glActiveTexture(GL_TEXTURE0);
    glBindTexture(GL_TEXTURE_BUFFER, s.texture);
    glUniform1i(u_[0], 0);
    glUniform1i(u_[1], GLint(first));
    glUniform1i(u_[2], mode);
    glUniform2f(u_[3], float(width_), float(height_));
    glUniform2f(u_[4], float(x0), float(step * pixelsPerX));
    glUniform3f(u_[5], float(view.y0), float(view.y1), float(floor));
    glUniform1f(u_[6], float(width / 2.0));
    setColor(u_[7], color);
    glDrawArrays(GL_TRIANGLES, 0, GLsizei((count - 1) * 6));
  }

  static void setColor(GLint location, const tg_color& c) {
    glUniform4f(location, float(c.r * c.a), float(c.g * c.a), float(c.b * c.a), float(c.a));
  }

  void deleteTargets() {
    if (fbo_[0]) glDeleteFramebuffers(2, fbo_);
    if (rbo_[0]) glDeleteRenderbuffers(2, rbo_);
    fbo_[0] = fbo_[1] = rbo_[0] = rbo_[1] = 0;
    width_ = height_ = 0;
  }

  Display* dpy_ = nullptr;
  GLXContext ctx_ = nullptr;
  GLXPbuffer pbuffer_ = 0;
  GLuint seriesProgram_ = 0, rectProgram_ = 0, vao_ = 0, rectBuffer_ = 0;
  GLint u_[8] = {};
  GLint rectSize_ = -1, rectColor_ = -1;
  GLuint fbo_[2] = {}, rbo_[2] = {};
  int width_ = 0, height_ = 0, samples_ = 0, maxSize_ = 0;
  size_t maxTexels_ = 0;
  std::vector<Series> series_;
  bool inFrame_ = false, failed_ = false;
  std::string renderer_;
};

}  // namespace

void tg_gl_plot::force_failure(failure f) {
  g_forced = int(f);
}

std::unique_ptr<tg_gl_plot> tg_gl_plot::create(std::string& why) {
  if (g_forced.load() == int(failure::start)) {
    why = "OpenGL start-up refused (forced)";
    return nullptr;
  }
  auto plot = std::make_unique<GlxPlot>();
  if (!plot->start(why)) return nullptr;
  return plot;
}
