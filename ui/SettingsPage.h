// The settings page: one row per setting, each opening a drop-down menu of
// its choices. Rows that the parameters carry write the parameter; the
// editor's own settings (theme, refresh rate, time-code rate, scale) go to the
// settings file.
#pragma once

#include <string>
#include <vector>

#include "ui/EditorHost.h"

namespace velorum::ui {

class SettingsPage : public MeterControl {
 public:
  struct Row {
    std::string label;
    std::function<std::string()> value;
    std::function<std::vector<MenuItem>()> items;
    std::function<void(int)> choose;
  };

  SettingsPage(EditorHost& host, const IRECT& r);
  void Draw(tgraphics& g) override;
  void OnMouseDown(float x, float y, const IMouseMod& mod) override;
  // The tooltip follows the row under the pointer.
  void OnMouseOver(float x, float y, const IMouseMod& mod) override;

  size_t RowCount() const { return mRows.size(); }
  const Row& RowAt(size_t i) const { return mRows[i]; }
  int FindRow(const std::string& label) const;
  // The value box of row i for a page at `page`.
  static IRECT ValueRectFor(const IRECT& page, size_t row, size_t rows);
  IRECT ValueRect(size_t row) const { return ValueRectFor(GetRECT(), row, mRows.size()); }
  void OpenRow(size_t row);

 private:
  void AddUpdateRows();
  std::vector<Row> mRows;
  std::vector<std::string> mTips;  // per row
};

}  // namespace velorum::ui
