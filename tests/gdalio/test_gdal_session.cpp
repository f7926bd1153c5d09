// GDAL's failures reach us as text, and nothing of them is printed while a trap is set.
#include <qvgeo/gdalio/gdal_session.h>

#include <gtest/gtest.h>

#include <gdal.h>

TEST(GdalSession, TrapKeepsTheFailureOfAnOpen)
{
    qv::TGdalErrorTrap trap;
    GDALDatasetH ds = GDALOpen("/nonexistent/qvgeo/x.tif", GA_ReadOnly);
    EXPECT_EQ(ds, nullptr);
    EXPECT_NE(trap.LastError().find("x.tif"), std::string::npos) << trap.LastError();
    EXPECT_EQ(trap.Message("fallback"), trap.LastError());
}

TEST(GdalSession, NestedTrapsHearOnlyTheInnermost)
{
    qv::TGdalErrorTrap outer;
    {
        qv::TGdalErrorTrap inner;
        EXPECT_EQ(GDALOpen("/nonexistent/qvgeo/inner.tif", GA_ReadOnly), nullptr);
        EXPECT_NE(inner.LastError().find("inner.tif"), std::string::npos);
    }
    EXPECT_TRUE(outer.LastError().empty());
    EXPECT_EQ(outer.Message("none"), "none");
}
