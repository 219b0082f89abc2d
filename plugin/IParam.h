// One internal parameter of the plug-in: its kind, default, range and step,
// and an atomically read and written value. Every value set passes through
// the parameter's constraint: NaN becomes the default, the value is clamped to
// the range, and int, enum and bool values are snapped to their step.
#pragma once

#include <atomic>
#include <string>

namespace velorum {

class IParam {
 public:
  enum class Type { kNone, kBool, kInt, kEnum, kDouble };
  enum class Shape { ShapeLinear };

  IParam() = default;
  IParam(const IParam& other);
  IParam& operator=(const IParam& other);

  void InitBool(const char* name, bool defaultValue, const char* label = "", const char* group = "");
  void InitInt(const char* name, int defaultValue, int minValue, int maxValue, const char* label = "",
               const char* group = "");
  void InitEnum(const char* name, int defaultValue, int choices, const char* label = "",
                const char* group = "");
  // Sets the type to double only when no type was set before.
  void InitDouble(const char* name, double defaultValue, double minValue, double maxValue, double step,
                  const char* label = "", const char* group = "", Shape shape = Shape::ShapeLinear);

  Type GetType() const { return mType; }
  double Value() const { return mValue.load(std::memory_order_relaxed); }
  int IntValue() const;
  bool BoolValue() const { return Value() >= 0.5; }
  void Set(double value) { mValue.store(Constrain(value), std::memory_order_relaxed); }
  void SetToDefault() { Set(mDefault); }
  double Constrain(double value) const;

  double Default() const { return mDefault; }
  double Min() const { return mMin; }
  double Max() const { return mMax; }
  double Step() const { return mStep; }
  const std::string& Name() const { return mName; }
  const std::string& Label() const { return mLabel; }
  const std::string& Group() const { return mGroup; }

  // Normalised 0..1 view used by the host's setParameter/getParameter.
  double GetNormalized() const;
  void SetNormalized(double normalized);

  // Display text of the current value, and the converse.
  std::string DisplayText() const;
  bool SetFromText(const char* text);

 private:
  void Describe(Type type, const char* name, double defaultValue, double minValue, double maxValue,
                double step, const char* label, const char* group);

  Type mType = Type::kNone;
  Shape mShape = Shape::ShapeLinear;
  std::string mName, mLabel, mGroup;
  double mDefault = 0.0, mMin = 0.0, mMax = 1.0, mStep = 1.0;
  std::atomic<double> mValue{0.0};
};

}  // namespace velorum
