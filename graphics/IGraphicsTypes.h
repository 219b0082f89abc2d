#pragma once
// Small value types shared by the editor's controls and windows.

#include <algorithm>
#include <cmath>

// A rectangle in editor units: left, top, right, bottom.
struct IRECT {
  float L = 0.f, T = 0.f, R = 0.f, B = 0.f;

  IRECT() = default;
  IRECT(float l, float t, float r, float b) : L(l), T(t), R(r), B(b) {}
  static IRECT FromXYWH(float x, float y, float w, float h) { return {x, y, x + w, y + h}; }

  float W() const { return R - L; }
  float H() const { return B - T; }
  bool Empty() const { return !(R > L && B > T); }
  bool Contains(float x, float y) const { return x >= L && x < R && y >= T && y < B; }
  bool Intersects(const IRECT& o) const {
    return !Empty() && !o.Empty() && L < o.R && o.L < R && T < o.B && o.T < B;
  }
  IRECT Union(const IRECT& o) const {
    if (Empty()) return o;
    if (o.Empty()) return *this;
    return {std::min(L, o.L), std::min(T, o.T), std::max(R, o.R), std::max(B, o.B)};
  }
  IRECT Intersect(const IRECT& o) const {
    IRECT r{std::max(L, o.L), std::max(T, o.T), std::min(R, o.R), std::min(B, o.B)};
    return r.Empty() ? IRECT{} : r;
  }
  IRECT Scaled(float s) const { return {L * s, T * s, R * s, B * s}; }
  // The smallest whole-number rectangle that holds this one.
  IRECT Outset() const { return {std::floor(L), std::floor(T), std::ceil(R), std::ceil(B)}; }
  bool operator==(const IRECT& o) const { return L == o.L && T == o.T && R == o.R && B == o.B; }
};

// The state of buttons and modifier keys with a mouse event.
struct IMouseMod {
  bool L = false, R = false, S = false, C = false, A = false;
};

// Key codes passed to the controls.
enum IKeyCode {
  KEY_NONE = -1,
  KEY_SPACE = 0,
  KEY_UPARROW = 1,
  KEY_DOWNARROW = 2,
  KEY_LEFTARROW = 3,
  KEY_RIGHTARROW = 4,
  KEY_DIGIT_0 = 5,   // ... KEY_DIGIT_0 + 9
  KEY_ALPHA_A = 15,  // ... KEY_ALPHA_A + 25
};

enum class ICursor { Arrow, Hand, SizeWE, SizeNS, SizeNWSE, IBeam, Hidden };
