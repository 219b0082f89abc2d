// tg_gl_plot where this build has no OpenGL path: every start fails and the
// graphs draw with cairo.
#include <atomic>

#include "graphics/tg_gl_plot.h"

void tg_gl_plot::force_failure(failure) {}

std::unique_ptr<tg_gl_plot> tg_gl_plot::create(std::string& why) {
  why = "OpenGL drawing is not part of this build";
  return nullptr;
}
