// Fonts, style sheets and the factory that creates every control of the main window.
//
// The font sizes are measured rather than fixed: a reference width (the pixel width of "1234" in
// 10-point Arial) scales all interface fonts, so that they look the same whatever the screen's
// resolution and font rendering. GUI thread only.
#pragma once

#include <QCheckBox>
#include <QComboBox>
#include <QDomElement>
#include <QFont>
#include <QLabel>
#include <QSlider>
#include <QString>
#include <QToolButton>

class Style {
 public:
  /// Registers the bundle's fonts, measures the reference width and builds fonts and sheets.
  Style();

  /// Pixel width of "1234" in the 10-point Arial reference font.
  int referenceWidth() const { return reference_width_; }

  // The seven interface fonts, in the order they are built (point size K / reference width).
  QFont font_title;    ///< K 308, medium: header buttons
  QFont font_xbold;    ///< K 280, extra bold
  QFont font_regular;  ///< K 280, normal: check boxes and radio buttons
  QFont font_bold;     ///< K 280, bold: tracking bar texts
  QFont font_label;    ///< K 280, normal: labels (and the width measure of the KTR name)
  QFont font_light;    ///< K 280, light
  QFont font_small;    ///< K 252, medium: value labels and combo boxes

  // Font fragments inserted into style sheets.
  QString css_label_font;     ///< caption texts
  QString css_progress_font;  ///< progress bar text
  QString css_button_font;    ///< text buttons

  // The style-sheet catalogue.
  QString window;        ///< main window background and tool tips
  QString button;        ///< text buttons
  QString button_flat;   ///< bold 15px buttons with the grey disabled pair
  QString button_hover;  ///< white buttons with a light hover
  QString button_link;   ///< link-like buttons
  QString button_menu;   ///< left-aligned menu-like buttons
  QString tab_top;       ///< tab-like tool button, rounded top corners
  QString tab_bottom;    ///< tab-like tool button, rounded bottom corners
  QString segment_left;  ///< segmented tool buttons
  QString segment_middle;
  QString segment_right;
  QString tool_gear;      ///< the "Settings" icon button
  QString picture_label;  ///< %1: the image
  QString check_big;      ///< 40 x 40 indicator
  QString check_small;    ///< 20 x 20 indicator
  QString check_sized;    ///< %1 x %2 indicator
  QString check_box;      ///< square box indicator
  QString check_grey;     ///< %1 background grey level, %2 text grey level
  QString combo;
  QString combo_flat;  ///< without border
  QString combo_left;  ///< with a 2px left border
  QString slider;
  QString spin;
  QString menu;
  QString radio;
  QString tabs;  ///< %1: the tab width
  QString frame;
  QString frame_bottom;
  QString frame_right;
  QString group;
  QString label;
  QString label_white;  ///< labels on dark backgrounds

  /// Sheet of an icon tool button whose images are ":/images/<name>[_h|_on|_on_h|_off].png".
  static QString iconToolButton(const QString& name);

  // Factory: each creates the widget with the parent, sets its geometry, applies the style sheet
  // only when it is not empty, and returns the widget (owned by the parent).
  QLabel* createLabel(QWidget* parent, int x, int y, int w, int h, const QString& sheet, const QFont& font,
                      const QString& text);
  QComboBox* createComboBox(QWidget* parent, int x, int y, int w, int h, const QString& sheet, const QFont& font,
                            int id);
  QToolButton* createButtonTool(QWidget* parent, int x, int y, int w, int h, const QString& sheet, const QString& text,
                                int id);
  QCheckBox* createCheckBox(QWidget* parent, int x, int y, int w, int h, const QString& text, const QString& sheet,
                            const QFont& font, int id, bool checked);
  QSlider* createSlider(QWidget* parent, int x, int y, int w, int h, const QString& sheet, int minimum, int maximum,
                        int id);

 private:
  void buildFonts();
  void buildSheets();
  void buildButtonSheets();
  void buildInputSheets();

  int reference_width_ = 0;
};

/// Sets `attribute` := `value` on every element named `tagName` in the tree under `element`
/// (the element itself included), visiting child elements in document order.
void SetAttrRecur(QDomElement& element, QString tagName, QString attribute, QString value);

namespace mapura::ui {
/// Makes the compiled-in "settings" resource bundle available (idempotent).
void initResources();
}  // namespace mapura::ui
