// The style-sheet catalogue of Style: fixed pieces joined with the clr colour texts.
#include "Style.h"
#include "clr.h"

static QString url(const QString& image) { return "image:url(:/images/" + image + ".png);"; }

void Style::buildSheets() {
  css_label_font = "font-family:Roboto;font-size:" + QString::number(font_label.pointSize()) + "pt;";
  css_progress_font =
      "font-family:Roboto;font-size:" + QString::number(font_small.pointSize()) + "pt;font-weight:bold;";
  css_button_font = "font-family:Roboto;font-size:" + QString::number(font_title.pointSize()) + "pt;font-weight:500;";

  window = "QMainWindow{background-color:" + clr::clouds + ";}QToolTip{color:" + clr::black +
           ";background-color:" + clr::white + ";border:1px solid " + clr::silver + ";}";
  buildButtonSheets();
  buildInputSheets();

  menu =
      "QMenu::item{padding:2px 25px 2px 20px;border:1px solid transparent; /* reserve space for selection "
      "border */}QMenu::item:selected{border-color:darkblue;background:rgba(100, 100, 100, 150); }";
  tabs = "QTabWidget::pane{border:2px solid " + clr::silver + ";border-top:0px;background-color:" + clr::white +
         ";}QTabBar::tab{" + css_label_font + "color:" + clr::black + ";background-color:" + clr::lightgrey +
         ";border:2px solid " + clr::silver +
         ";border-top-left-radius:4px;border-top-right-radius:4px;min-width:100px;width : %1 "
         "px;padding:4px;}QTabBar::tab:selected{background-color:rgb(255,255,255);border-bottom:2px solid " +
         clr::blue +
         ";}QTabBar::tab:!selected{margin-top:4px;}QTabBar::tab:disabled{margin-top:5px;color:" + clr::concrete + ";}";
  frame = "QFrame{border:2px solid " + clr::silver + ";background-color:transparent;}";
  frame_bottom = "QFrame{border:0px;border-bottom:2px solid " + clr::silver + ";}";
  frame_right = "QFrame{border:0px;border-right:2px solid " + clr::silver + ";}";
  group = "QGroupBox{border:1px solid " + clr::silver + ";border-radius:2px;background-color:" + clr::soft_black +
          ";margin-top:0px;}QGroupBox::title{subcontrol-origin:margin;left:7px;padding:0px 3px 0px 3px;}";
  label = "QLabel {" + css_label_font + "color:" + clr::black + ";border: 0px;}QLabel:disabled{color:" + clr::concrete +
          ";}";
  label_white = "QLabel {color:" + clr::white + ";border: 0px;background-color:transparent;}";
  picture_label = "Qlabel{border:0px solid;color: transparent;background-color:transparent;image:url(%1);}";
}

void Style::buildButtonSheets() {
  button = "QAbstractButton{" + css_button_font + "color:" + clr::white + ";background-color:" + clr::blue +
           ";border:0px;border-radius:4px;}QAbstractButton:checked{color:" + clr::white +
           ";background-color:" + clr::blue_h + ";}QAbstractButton:hover{background-color:" + clr::blue_h +
           ";}QAbstractButton:disabled{color:" + clr::white + ";background-color:" + clr::silver + ";}";
  button_flat = "QAbstractButton{font-weight: 700;font-size:15px;color:" + clr::white +
                ";background-color:" + clr::green +
                ";border:0px;border-radius:2px;}QAbstractButton:hover{background-color:" + clr::green_h +
                ";}QAbstractButton:disabled{color: rgb(165,165,165);background-color: rgb(223,223,223);}";
  button_hover = "QAbstractButton{" + css_button_font + "color:" + clr::black + ";background-color:" + clr::white +
                 ";border:1px solid " + clr::silver +
                 ";border-radius:4px;}QAbstractButton:hover{background-color:#f7f9f9;}QAbstractButton:disabled{"
                 "color:" +
                 clr::silver + ";}";
  button_link =
      "QAbstractButton{font-weight: bold;font-size:14px;border:0px;background-color:transparent;text-align : "
      "left;color: rgb(0,153,204);}QAbstractButton:hover{text-decoration:underline;}";
  button_menu = "QAbstractButton{" + css_button_font + "color:" + clr::black +
                ";background-color:transparent;border:0px;text-align:left;padding-left: 25px;outline:none;}"
                "QAbstractButton:hover{background-color:" +
                clr::lightgrey + ";}QAbstractButton:focus{outline:none;}";
  const QString tab = "QToolButton{" + css_label_font + "color:" + clr::black + ";background-color:" + clr::lightgrey +
                      ";border:2px solid " + clr::silver + ";";
  const QString tabStates = "QToolButton:checked{color:" + clr::white + ";background-color:" + clr::blue +
                            ";}QToolButton:hover{color:" + clr::blue_h + ";}QToolButton:disabled{color:" + clr::silver +
                            ";}";
  tab_top = tab + "border-top-left-radius:4px;border-top-right-radius:4px;border-bottom:2px solid " + clr::blue + ";}" +
            tabStates;
  tab_bottom = tab + "border-bottom-left-radius:4px;border-bottom-right-radius:4px;border-top:2px solid " + clr::blue +
               ";}" + tabStates;
  const QString segment =
      "QToolButton{font-weight:bold;font-size:10px;color:rgb(78, 78, 78);background-color:" + clr::white +
      ";border-top:2px solid " + clr::blue + ";border-bottom:2px solid " + clr::blue + ";";
  const QString segmentStates = "QToolButton:checked{color:rgb(252,252,252);background-color:" + clr::blue +
                                ";}QToolButton:disabled{color:rgb(127, 140, 141);border-color:rgb(189, 195, 199);}";
  segment_left = segment + "border-left:2px solid " + clr::blue + ";border-right:1px solid " + clr::blue +
                 ";border-top-left-radius:4px;border-bottom-left-radius:4px;}" + segmentStates;
  segment_middle =
      segment + "border-left:1px solid " + clr::blue + ";border-right:1px solid " + clr::blue + ";}" + segmentStates;
  segment_right = segment + "border-left:1px solid " + clr::blue + ";border-right:2px solid " + clr::blue +
                  ";border-top-right-radius:4px;border-bottom-right-radius:4px;}" + segmentStates;
  tool_gear = iconToolButton("gear");
}

QString Style::iconToolButton(const QString& name) {
  return "QToolButton{border:0px solid;color:" + clr::transparent + ";background-color:transparent;" + url(name) +
         "}QToolButton:hover{" + url(name + "_h") + "}QToolButton:checked{" + url(name + "_h") +
         "}QToolButton:checked:hover{" + url(name + "_h") + "}QToolButton:disabled{" + url(name + "_off") + "}";
}

void Style::buildInputSheets() {
  const QString check = "QCheckBox{" + css_label_font + "color:" + clr::black +
                        ";background-color:transparent;spacing:6px;}QCheckBox:disabled{color:" + clr::concrete + ";}";
  const QString checkImages =
      "QCheckBox::indicator:unchecked{" + url("check_off") + "}QCheckBox::indicator:unchecked:hover{" +
      url("check_off_h") + "}QCheckBox::indicator:checked{" + url("check_on") + "}QCheckBox::indicator:checked:hover{" +
      url("check_on_h") + "}QCheckBox::indicator:checked:disabled{" + url("check_dis") +
      "}QCheckBox::indicator:unchecked:disabled{" + url("check_off") + "}";
  check_big = check + "QCheckBox::indicator{width:40px;height:40px;}" + checkImages;
  check_small = check + "QCheckBox::indicator{width:20px;height:20px;}" + checkImages;
  check_sized = check + "QCheckBox::indicator{width:%1px;height:%2px;}" + checkImages;
  check_box = check + "QCheckBox::indicator{width:20px;height:20px;}QCheckBox::indicator:unchecked{" + url("box_off") +
              "}QCheckBox::indicator:checked{" + url("box_on") + "}";
  check_grey = "QCheckBox{color:rgb(%2, %2, %2);background-color:rgb(%1, %1, %1);}";

  const QString comboBase = "QComboBox{" + css_label_font + "padding-left:6px;border-radius:4px;color:" + clr::black +
                            ";background-color:" + clr::white + ";";
  const QString comboParts = "QComboBox:disabled{color:" + clr::concrete + ";background-color:" + clr::lightgrey +
                             ";}QComboBox::drop-down{subcontrol-origin:padding;subcontrol-position:top "
                             "right;width:20px;border:0px;}QComboBox::down-arrow{" +
                             url("drop_arrow_black") + "width:15px;height:15px;}QComboBox::down-arrow:hover{" +
                             url("drop_arrow_blue") + "}QComboBox::down-arrow:on{" + url("combo_arrow_top") +
                             "}QComboBox QAbstractItemView{border:1px solid " + clr::silver +
                             ";background-color:" + clr::white + ";selection-background-color:" + clr::blue +
                             ";selection-color:" + clr::white + ";outline:0px;}";
  combo = comboBase + "border:1px solid " + clr::silver + ";}QComboBox:hover{border:1px solid " + clr::blue + ";}" +
          comboParts;
  combo_flat = comboBase + "border:0px;}" + comboParts;
  combo_left = comboBase + "border:0px;border-left:2px solid " + clr::blue + ";}" + comboParts;

  slider =
      "QSlider{margin-right:6px;margin-left:6px;}QSlider::groove:horizontal{height:3px;background:rgb(204,"
      "204,204);border-radius:1px;}QSlider::handle:horizontal{" +
      url("slider_on") +
      "width:12px;height:12px;margin:-6px 0px;}QSlider::sub-page:horizontal{background:" + clr::blue +
      ";border-radius:1px;}QSlider::handle:horizontal:disabled{" + url("slider_off") +
      "}QSlider::sub-page:horizontal:disabled{background:" + clr::silver + ";}";
  spin = "QAbstractSpinBox{" + css_label_font + "border:0px;color:" + clr::black +
         ";background-color:transparent;}QAbstractSpinBox::up-button{subcontrol-position:top "
         "right;width:10px;height:10px;border:0px;}QAbstractSpinBox::down-button{subcontrol-position:bottom "
         "right;width:10px;height:10px;border:0px;}QAbstractSpinBox::up-arrow{" +
         url("top_arrow_black") + "width:10px;height:10px;}QAbstractSpinBox::up-arrow:hover{" + url("top_arrow_blue") +
         "}QAbstractSpinBox::down-arrow{" + url("drop_arrow_black") +
         "width:10px;height:10px;}QAbstractSpinBox::down-arrow:hover{" + url("drop_arrow_blue") + "}";
  radio = "QRadioButton{color:" + clr::white +
          ";background-color:transparent;spacing:5px;}QRadioButton::indicator{width:14px;height:14px;}"
          "QRadioButton::indicator:unchecked{" +
          url("radio_off") + "}QRadioButton::indicator:unchecked:hover{" + url("radio_off_h") +
          "}QRadioButton::indicator:checked{" + url("radio_on") + "}QRadioButton::indicator:checked:hover{" +
          url("radio_on_h") + "}QRadioButton::indicator:disabled{" + url("radio_dis") + "}";
}
