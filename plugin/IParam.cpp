#include "plugin/IParam.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>

namespace velorum {

IParam::IParam(const IParam& other) {
  *this = other;
}

IParam& IParam::operator=(const IParam& other) {
  if (this == &other) return *this;
  mType = other.mType;
  mShape = other.mShape;
  mName = other.mName;
  mLabel = other.mLabel;
  mGroup = other.mGroup;
  mDefault = other.mDefault;
  mMin = other.mMin;
  mMax = other.mMax;
  mStep = other.mStep;
  mValue.store(other.Value(), std::memory_order_relaxed);
  return *this;
}

void IParam::Describe(Type type, const char* name, double defaultValue, double minValue, double maxValue,
                      double step, const char* label, const char* group) {
  mType = type;
  mName = name ? name : "";
  mLabel = label ? label : "";
  mGroup = group ? group : "";
  mMin = std::min(minValue, maxValue);
  mMax = std::max(minValue, maxValue);
  mStep = step > 0.0 ? step : 1.0;
  mDefault = std::clamp(defaultValue, mMin, mMax);
  mValue.store(mDefault, std::memory_order_relaxed);
}

void IParam::InitBool(const char* name, bool defaultValue, const char* label, const char* group) {
  Describe(Type::kBool, name, defaultValue ? 1.0 : 0.0, 0.0, 1.0, 1.0, label, group);
}

void IParam::InitInt(const char* name, int defaultValue, int minValue, int maxValue, const char* label,
                     const char* group) {
  Describe(Type::kInt, name, defaultValue, minValue, maxValue, 1.0, label, group);
}

void IParam::InitEnum(const char* name, int defaultValue, int choices, const char* label, const char* group) {
  Describe(Type::kEnum, name, defaultValue, 0.0, std::max(0, choices - 1), 1.0, label, group);
}

void IParam::InitDouble(const char* name, double defaultValue, double minValue, double maxValue, double step,
                        const char* label, const char* group, Shape shape) {
  const Type type = mType == Type::kNone ? Type::kDouble : mType;
  Describe(type, name, defaultValue, minValue, maxValue, step, label, group);
  mShape = shape;
}

double IParam::Constrain(double value) const {
  if (std::isnan(value)) return mDefault;
  value = std::clamp(value, mMin, mMax);
  if (mType == Type::kInt || mType == Type::kEnum || mType == Type::kBool) {
    value = mMin + std::round((value - mMin) / mStep) * mStep;
    value = std::clamp(value, mMin, mMax);
  }
  return value;
}

int IParam::IntValue() const {
  return static_cast<int>(std::lround(Value()));
}

double IParam::GetNormalized() const {
  if (mMax <= mMin) return 0.0;
  return (Value() - mMin) / (mMax - mMin);
}

void IParam::SetNormalized(double normalized) {
  if (std::isnan(normalized)) return;
  Set(mMin + std::clamp(normalized, 0.0, 1.0) * (mMax - mMin));
}

std::string IParam::DisplayText() const {
  char text[64];
  switch (mType) {
    case Type::kBool:
      return BoolValue() ? "on" : "off";
    case Type::kInt:
    case Type::kEnum:
      std::snprintf(text, sizeof text, "%d", IntValue());
      return text;
    default:
      std::snprintf(text, sizeof text, "%.2f", Value());
      return text;
  }
}

bool IParam::SetFromText(const char* text) {
  if (!text) return false;
  if (mType == Type::kBool) {
    const std::string t(text);
    if (t == "on" || t == "true") {
      Set(1.0);
      return true;
    }
    if (t == "off" || t == "false") {
      Set(0.0);
      return true;
    }
  }
  char* end = nullptr;
  const double v = std::strtod(text, &end);
  if (end == text) return false;
  Set(v);
  return true;
}

}  // namespace velorum
