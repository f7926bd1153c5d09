// The readable map of the viewer: names that never overprint each other or a dot, a regional database and
// a city's landmarks kept off the world map, and the map furniture, each switched from the View menu.
#include "interaction_fixture.h"

#include "overlay_labels.h"

#include <QAction>
#include <QMenuBar>

#include <random>

namespace {

using namespace viewer_test;

bool Overlap(const qv::TRect& A, const qv::TRect& B)
{
    return A.Left < B.Right && B.Left < A.Right && A.Top < B.Bottom && B.Top < A.Bottom;
}

TEST(OverlayLabels, NamesNeverOverlapEachOtherOrADot)
{
    qv::TBitmap bmp(400, 300);
    qv::TFont font;
    font.Size = 9;
    for (unsigned seed = 1; seed <= 20; ++seed) {
        std::mt19937 rng(seed);
        std::uniform_int_distribution<int> x(20, 380), y(20, 280), len(3, 14);
        std::vector<qv::TPoint> dots(60);
        for (auto& d : dots)
            d = {x(rng), y(rng)};
        // Crowds: a third of the dots within a few pixels of one place.
        for (std::size_t i = 0; i < 20; ++i)
            dots[i] = {200 + x(rng) % 9, 150 + y(rng) % 9};
        viewer::TOverlayLabels labels(bmp.Canvas(), font, 1, 0xFFFFFF);
        for (const auto& d : dots)
            labels.Reserve({d.X - 3, d.Y - 3, d.X + 4, d.Y + 4});
        for (const auto& d : dots)
            labels.Place(d, 3, std::string(std::size_t(len(rng)), 'W'));
        EXPECT_EQ(labels.Placed() + labels.LeftOut(), 60);
        EXPECT_GT(labels.Placed(), 10);
        EXPECT_GT(labels.LeftOut(), 0);  // the crowd cannot all be named
        const auto& t = labels.Taken();
        ASSERT_EQ(t.size(), dots.size() + std::size_t(labels.Placed()));
        for (std::size_t i = dots.size(); i < t.size(); ++i)
            for (std::size_t j = 0; j < t.size(); ++j) {
                if (i != j) {
                    ASSERT_FALSE(Overlap(t[i], t[j])) << "seed " << seed << ": name " << i << " and box " << j;
                }
            }
    }
}

class ReadableMapTest : public TViewerFixture {
protected:
    QAction* Action(const QString& Text)
    {
        for (QAction* a : W->findChildren<QAction*>())
            if (a->text() == Text)
                return a;
        ADD_FAILURE() << Text.toStdString();
        return nullptr;
    }
};

TEST_F(ReadableMapTest, TheWorldMapCarriesNeitherTheRegionalDatabaseNorTheCitysLandmarks)
{
    ASSERT_EQ(Shown(), "world.xml");
    // Europe at x5.6: the view holds Austria.
    W->Map().SetMagnification(5.6);
    W->Map().BringLocationToCenter(47.5, 13.5);
    EXPECT_TRUE(W->ReadableLabels());
    EXPECT_EQ(W->DatabaseItemsDrawn(), 0);
    EXPECT_GT(W->Map().MetresPerPixel(), viewer::TViewerWindow::MaxDatabaseMetresPerPixel);
    // The landmarks' range begins beyond this magnification on this map.
    EXPECT_GT(W->Map().LabelOptions().ClassRange[0].Min, W->Map().Magnification());
    EXPECT_TRUE(W->Map().LabelOptions().Placement);
    // Off: the map as the view draws it by default — the database over Europe, no range.
    Action("Readable &labels")->trigger();
    EXPECT_FALSE(W->ReadableLabels());
    EXPECT_GT(W->DatabaseItemsDrawn(), 0);
    EXPECT_EQ(W->Map().LabelOptions(), qv::TLabelOptions{});
    // On the Vienna sample the landmarks show from the start.
    Action("Readable &labels")->trigger();
    ChooseMap("calib-vienna.xml");
    QCoreApplication::processEvents();
    EXPECT_LE(W->Map().LabelOptions().ClassRange[0].Min, W->Map().Magnification());
    EXPECT_GT(W->DatabaseItemsDrawn(), 0);
}

TEST_F(ReadableMapTest, FurnitureFollowsTheMenuAndTheDegreeFormat)
{
    const qv::TFurnitureOptions& f = W->Map().Furniture();
    EXPECT_TRUE(f.GridLabels && f.ScaleBar && f.NorthArrow);
    W->SetDegreeFormat(qv::dfDecimal);
    EXPECT_EQ(W->Map().Furniture().DegreeFormat, qv::dfDecimal);
    Action("&Scale bar")->trigger();
    EXPECT_FALSE(W->Map().Furniture().ScaleBar);
    EXPECT_TRUE(W->Map().Furniture().NorthArrow);
    W->SetReadableMap(false);
    EXPECT_FALSE(W->Map().Furniture().GridLabels || W->Map().Furniture().NorthArrow || W->ReadableLabels());
    // Everything off draws what the map view draws by default: the same pixels as a plain map control.
    W->SetReadableMap(true);
    EXPECT_TRUE(W->Map().Furniture().ScaleBar && W->ReadableLabels());
}

}  // namespace
