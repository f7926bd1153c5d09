// A form as Designer saves it (tests/designer/form.ui), compiled by uic: the generated code calls the
// widgets' Qt-named setters with Qt values, which must reach the C++ properties unchanged.
#include "ui_form.h"

#include <gtest/gtest.h>

namespace {

TEST(DesignerForm, UicFormSetsTheProperties)
{
    QWidget Form;
    Ui::QvgeoForm Ui;
    Ui.setupUi(&Form);
    const qv::TGeoMap& M = *Ui.geoMap;
    EXPECT_EQ(M.ColorBackGnd(), 0x1E140Au);  // red 10, green 20, blue 30; red in the low byte
    EXPECT_EQ(M.EmptyMsg(), "No map yet");
    EXPECT_EQ(M.FrameStyle(), qv::fsEtched);
    EXPECT_EQ(M.ShowGraticule(), qv::sgLines);
    EXPECT_EQ(M.MouseAction(), qv::maLandMark);
    EXPECT_EQ(M.UTMHemisphere(), qv::hemiSouth);
    EXPECT_EQ(M.GratLineDist(), 60.0);  // clamped
    EXPECT_EQ(M.UTMZone(), 33);
    EXPECT_EQ(Ui.geoAtlas->MapOutlineColor(), 0xFF8000u);
    EXPECT_EQ(Ui.geoAtlas->MinResDiff(), 25.0);
}

}  // namespace
