#include "ui/SettingsPage.h"

#include <algorithm>
#include <cmath>
#include <memory>
#include <tuple>

#include "engine/ChannelLayouts.h"
#include "graphics/IGraphicsResize.h"
#include "plugin/CalibrationSource.h"
#include "plugin/MeterParams.h"
#include "presets/LoudnessStandards.h"
#include "ui/UiFormat.h"
#include "update/UpdateCheck.h"

namespace velorum::ui {
namespace {

int ParamInt(EditorHost& h, int index) {
  return static_cast<int>(std::lround(h.Model().Param(index)));
}

std::vector<MenuItem> Choices(std::initializer_list<std::pair<const char*, int>> list, int current) {
  std::vector<MenuItem> items;
  for (const auto& [text, id] : list) items.push_back({text, id, id == current, true, false});
  return items;
}

const char* const kGenerator[] = {"OFF", "1 kHz SINE -23 LUFS", "PINK NOISE -23 LUFS"};

}  // namespace

SettingsPage::SettingsPage(EditorHost& host, const IRECT& r) : MeterControl(host, r) {
  Hide(true);
  EditorHost& h = mHost;
  auto onOff = [&h](int index) {
    return Row{"", [&h, index] { return std::string(h.Model().Param(index) >= 0.5 ? "ON" : "OFF"); },
               [&h, index] {
                 return Choices({{"ON", 1}, {"OFF", 0}}, h.Model().Param(index) >= 0.5 ? 1 : 0);
               },
               [&h, index](int id) { h.Model().SetParam(index, id); }};
  };
  Row unit{"LOUDNESS UNIT", [&h] { return std::string(UnitText(h.Model().Param(param::kUnitLkfs) >= 0.5)); },
           [&h] {
             return Choices({{"LUFS", 0}, {"LKFS", 1}}, ParamInt(h, param::kUnitLkfs));
           },
           [&h](int id) { h.Model().SetParam(param::kUnitLkfs, id); }};
  mRows.push_back(unit);
  Row gate{"RELATIVE GATE",
           [&h] {
             const int i = ParamInt(h, param::kRelativeGate);
             return i >= 0 && i < 3 ? std::to_string(kRelativeGateChoicesLU[i]) + " LU"
                                    : std::string("-10 LU");
           },
           [&h] {
             return Choices({{"-10 LU", 2}, {"-8 LU", 1}, {"-100 LU", 0}}, ParamInt(h, param::kRelativeGate));
           },
           [&h](int id) { h.Model().SetParam(param::kRelativeGate, id); }};
  mRows.push_back(gate);
  Row eco = onOff(param::kEcoTruePeak);
  eco.label = "Eco True Peak Mode";
  mRows.push_back(eco);
  Row mode{"HISTOGRAM MODE", [&h] { return std::string(HistogramModeName(h.Model().HistogramMode())); },
           [&h] {
             return Choices({{"ELAPSED", 0}, {"TIME CODE", 1}, {"SYSTEM", 2}, {"CONTINUOUS", 3}},
                            h.Model().HistogramMode());
           },
           [&h](int id) { h.Model().SetParam(param::kHistogramMode, id); }};
  mRows.push_back(mode);
  Row jump = onOff(param::kResetOnJump);
  jump.label = "RESET ON JUMP";
  mRows.push_back(jump);
  Row layout{"CHANNEL LAYOUT",
             [&h] {
               const int c = ParamInt(h, param::kChannelConfig);
               if (c == 1000)
                 return std::string("AUTOMATIC (") + LayoutAt(ParamInt(h, param::kConfigInUse)).name + ")";
               return std::string(LayoutAt(c).name);
             },
             [&h] {
               const int c = ParamInt(h, param::kChannelConfig);
               std::vector<MenuItem> items{{"AUTOMATIC", 1000, c == 1000, true, false}};
               for (int i = 0; i < LayoutCount(); ++i)
                 items.push_back({LayoutAt(i).name, i, c == i, true, false});
               return items;
             },
             [&h](int id) { h.Model().SetParam(param::kChannelConfig, id); }};
  mRows.push_back(layout);
  Row cal{"CALIBRATION SIGNAL",
          [&h] { return std::string(kGenerator[std::clamp(ParamInt(h, param::kGenerator), 0, 2)]); },
          [&h] {
            return Choices({{kGenerator[0], 0}, {kGenerator[1], 1}, {kGenerator[2], 2}},
                           ParamInt(h, param::kGenerator));
          },
          [&h](int id) { h.Model().SetParam(param::kGenerator, id); }};
  mRows.push_back(cal);
  Row refresh{
      "GRAPHS REFRESH RATE", [&h] { return std::string(kGraphsRefreshRateItems[h.Settings().refreshRate]); },
      [&h] {
        std::vector<MenuItem> items;
        for (int i = 0; i < 7; ++i)
          items.push_back({kGraphsRefreshRateItems[i], i, i == h.Settings().refreshRate, true, false});
        return items;
      },
      [&h](int id) {
        h.Settings().refreshRate = std::clamp(id, 0, 6);
        h.Settings().Save();
      }};
  mRows.push_back(refresh);
  Row scale{"GUI SCALING",
            [&h] {
              const int i = GuiScaleIndexFor(h.GuiScale());
              for (const IGuiScaleItem& item : kGuiScaleItems)
                if (item.index == i) return std::string(item.label);
              return std::string(kCustomScalingLabel);
            },
            [&h] {
              std::vector<MenuItem> items;
              const int current = GuiScaleIndexFor(h.GuiScale());
              for (const IGuiScaleItem& item : kGuiScaleItems)
                items.push_back({item.label, item.index, item.index == current, true, false});
              return items;
            },
            [&h](int id) { h.SetGuiScale(GuiScaleForIndex(id)); }};
  mRows.push_back(scale);
  Row theme{"THEME", [&h] { return std::string(h.Settings().Dark() ? "DARK" : "WHITE"); },
            [&h] {
              return Choices({{"DARK", 1}, {"WHITE", 0}}, h.Settings().Dark() ? 1 : 0);
            },
            [&h](int id) {
              h.Settings().theme = id;
              h.Settings().Save();
              h.ApplyTheme();
            }};
  mRows.push_back(theme);
  Row fps{"TIME CODE FPS", [&h] { return std::string(kFpsItems[h.Settings().fpsIndex].label); },
          [&h] {
            std::vector<MenuItem> items;
            for (int i : kFpsMenuOrder)
              items.push_back({kFpsItems[i].label, i, i == h.Settings().fpsIndex, true, false});
            return items;
          },
          [&h](int id) {
            h.Settings().fpsIndex = std::clamp(id, 0, kFpsCount - 1);
            h.Settings().Save();
          }};
  mRows.push_back(fps);
  Row exportTheme{"EXPORT THEME",
                  [&h] { return std::string(h.Settings().exportTheme >= 0.5 ? "DARK" : "WHITE"); },
                  [&h] {
                    return Choices({{"DARK", 1}, {"WHITE", 0}}, h.Settings().exportTheme >= 0.5 ? 1 : 0);
                  },
                  [&h](int id) {
                    h.Settings().exportTheme = id;
                    h.Settings().Save();
                  }};
  mRows.push_back(exportTheme);
  AddUpdateRows();
  Row gl{"HARDWARE ACCELERATION", [&h] { return std::string(h.Settings().openGL ? "ON" : "OFF"); },
         [&h] {
           return Choices({{"ON", 1}, {"OFF", 0}}, h.Settings().openGL ? 1 : 0);
         },
         [&h](int id) {
           h.Settings().openGL = id == 1;
           h.Settings().Save();
         }};
  mRows.push_back(gl);
  mTips.resize(mRows.size());
  mTips[size_t(FindRow("HARDWARE ACCELERATION"))] = kOpenGLTooltip;
  mTips[size_t(FindRow("GRAPHS REFRESH RATE"))] = kGraphsRefreshRateTooltip;
  mTips[size_t(FindRow("GUI SCALING"))] = kScaleTooltip;
  mTips[size_t(FindRow("Eco True Peak Mode"))] = "Measure the true peak with less computation.";
  mTips[size_t(FindRow("EXPORT THEME"))] = "The theme of exported images and reports.";
  mTips[size_t(FindRow("CHECK FOR UPDATES"))] =
      "Once a day, ask the update address for a newer version and news.";
  mTips[size_t(FindRow("SHOW NEWS"))] = "Show news items from the update check until dismissed.";
}

// The update check's switches, kept in the settings file beside the check's
// own bookkeeping.
void SettingsPage::AddUpdateRows() {
  const std::string folder = mHost.Settings().FolderPath();
  const UpdateSettings read = UpdateSettings::Read(folder);
  for (const auto& [label, key, initial] :
       {std::tuple{"CHECK FOR UPDATES", kCheckForUpdatesKey, read.checkForUpdates},
        std::tuple{"SHOW NEWS", kShowNewsKey, read.showNews}}) {
    auto on = std::make_shared<bool>(initial);
    mRows.push_back(Row{label, [on] { return std::string(*on ? "ON" : "OFF"); },
                        [on] {
                          return Choices({{"ON", 1}, {"OFF", 0}}, *on ? 1 : 0);
                        },
                        [on, folder, key = key](int id) {
                          *on = id == 1;
                          WriteUpdateSwitch(folder, key, *on);
                        }});
  }
}

int SettingsPage::FindRow(const std::string& label) const {
  for (size_t i = 0; i < mRows.size(); ++i)
    if (mRows[i].label == label) return int(i);
  return -1;
}

IRECT SettingsPage::ValueRectFor(const IRECT& pageRect, size_t row, size_t rows) {
  const DRect page = D(pageRect);
  const bool twoColumns = page.W() >= 560.;
  const size_t perColumn = twoColumns ? (rows + 1) / 2 : rows;
  const size_t col = twoColumns ? row / perColumn : 0, line = twoColumns ? row % perColumn : row;
  const double colW = twoColumns ? (page.W() - 36.) / 2. : page.W() - 24.;
  const double rowH = std::min(30., (page.H() - 40.) / double(perColumn));
  const double x = page.L + 12. + double(col) * (colW + 12.), y = page.T + 32. + double(line) * rowH;
  const double valueW = std::min(200., colW * 0.55);
  return IRECT(x + colW - valueW, y + 3., x + colW, y + rowH - 3.);
}

void SettingsPage::OpenRow(size_t row) {
  if (row >= mRows.size()) return;
  const Row& r = mRows[row];
  auto choose = r.choose;
  EditorHost& h = mHost;
  h.OpenMenu(r.items(), ValueRect(row), [choose, &h](int id) {
    choose(id);
    h.RedrawAll();
  });
}

void SettingsPage::Draw(tgraphics& g) {
  const Theme& t = Colors();
  const DRect r = D(GetRECT());
  g.clip_rect(r.L, r.T, r.W(), r.H());
  DrawPanel(g, r, t);
  DrawLabel(g, "SETTINGS", r.L + 12.0, r.T + 6.0, 200.0, 20.0, 12.0, t.text, tg_align::left, "OpenSans-Bold");
  for (size_t i = 0; i < mRows.size(); ++i) {
    const DRect v = D(ValueRect(i));
    const bool twoColumns = r.W() >= 560.;
    const double colW = twoColumns ? (r.W() - 36.) / 2. : r.W() - 24.;
    DrawLabel(g, mRows[i].label, v.R - colW, v.T, colW - v.W() - 8.0, v.H(), 10.0, t.dim);
    g.new_path();
    g.rounded_rectangle(v.L, v.T, v.W(), v.H(), 4.0);
    g.set_color(t.menu);
    g.fill_preserve();
    g.set_line_style(1.0);
    g.set_color(t.panelEdge);
    g.stroke();
    DrawLabel(g, mRows[i].value(), v.L + 8.0, v.T, v.W() - 24.0, v.H(), 10.0, t.menuText, tg_align::left,
              "OpenSans-Regular");
    const double cx = v.R - 10.0, cy = v.T + v.H() / 2.0;
    g.new_path();
    g.move_to(cx - 3.5, cy - 2.0);
    g.line_to(cx + 3.5, cy - 2.0);
    g.line_to(cx, cy + 2.5);
    g.close_path();
    g.set_color(t.dim);
    g.fill();
  }
}

void SettingsPage::OnMouseOver(float x, float y, const IMouseMod&) {
  std::string tip;
  for (size_t i = 0; i < mRows.size(); ++i) {
    const IRECT v = ValueRect(i);
    if (y >= v.T && y < v.B && x >= v.R - 0.5f * GetRECT().W()) tip = mTips[i];
  }
  SetTooltip(tip);
}

void SettingsPage::OnMouseDown(float x, float y, const IMouseMod& mod) {
  if (!mod.L) return;
  for (size_t i = 0; i < mRows.size(); ++i)
    if (ValueRect(i).Contains(x, y)) {
      OpenRow(i);
      return;
    }
}

}  // namespace velorum::ui
