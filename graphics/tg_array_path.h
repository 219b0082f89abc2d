#pragma once
// A path held as an array of points: the graphs build one point per value,
// then the context strokes or fills it as one polyline.

#include <cstddef>
#include <vector>

struct tg_point {
  double x = 0.0, y = 0.0;
};

class tg_array_path {
 public:
  void clear() { points_.clear(); }
  void reserve(std::size_t n) { points_.reserve(n); }
  void add(double x, double y) { points_.push_back({x, y}); }
  // Closes the polyline down to a baseline, for filled areas under a curve.
  void close_to_baseline(double baseline);
  std::size_t size() const { return points_.size(); }
  bool empty() const { return points_.empty(); }
  const std::vector<tg_point>& points() const { return points_; }
  bool closed() const { return closed_; }
  void set_closed(bool c) { closed_ = c; }

 private:
  std::vector<tg_point> points_;
  bool closed_ = false;
};
