#include "graphics/tg_array_path.h"

void tg_array_path::close_to_baseline(double baseline) {
  if (points_.empty()) return;
  const double first_x = points_.front().x;
  const double last_x = points_.back().x;
  points_.push_back({last_x, baseline});
  points_.push_back({first_x, baseline});
  closed_ = true;
}
