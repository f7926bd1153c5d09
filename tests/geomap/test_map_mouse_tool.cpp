// The map's mouse and keyboard rules without a window: event sequences fed to TMapMouseTool over a
// TMapViewport, checked against the documented values, the events in their order and the figures shown.
#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/map_mouse_tool.h>

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <sstream>
#include <string>
#include <tuple>

namespace qv {
namespace {

constexpr TToolShiftState Held{false, false, false, true};  // left button down
constexpr TToolShiftState Free{};
constexpr TToolShiftState CtrlKey{false, false, true, false};
constexpr auto Left = TToolButton::Left;

// A 500 x 400 control over a 1000 x 800 map; the calibration (when asked for) puts pixel (x, y) at
// 50 - y / 80 N, 10 + x / 100 E.
struct Rig {
    TMapViewport View;
    TMapCalibration Cal;
    TMapMouseTool Tool{View, Cal};

    explicit Rig(TMouseActMode Mode, double Mag = 1.0, TMapPixel TopLeft = {0, 0}, bool Calibrated = false)
    {
        View.SetControlSize({500, 400});
        View.SetMapSize({1000, 800});
        View.SetMagnify(Mag);
        View.SetTopLeft(TopLeft);
        Tool.SetMode(Mode);
        Tool.SetConfinePan(false);
        if (Calibrated) {
            Cal.SetImageSize(1000, 800);
            Cal.SetCalibModel(cmEquiRect);
            for (int x : {0, 500, 1000})
                for (int y : {0, 400, 800})
                    EXPECT_TRUE(Cal.AddCalibPoint(50 - y / 80.0, 10 + x / 100.0, x, y));
        }
    }
    // Press, anchoring move, move to B, release at B; the events of the release.
    TMouseToolResult Drag(TControlPixel A, TControlPixel B)
    {
        Tool.Press(Left, Free, A);
        Tool.Move(Held, A);
        Tool.Move(Held, B);
        return Tool.Release(Left, Free, B);
    }
};

// The events as text: "Repaint ZoomPan Begin(105,106) Select1(49,11,47,13) Box3" ...
std::string Log(const TMouseToolResult& R)
{
    std::ostringstream s;
    for (const TMouseToolEvent& e : R.Events) {
        switch (e.Action) {
        case TMouseToolAction::Repaint: s << "Repaint "; break;
        case TMouseToolAction::ZoomPan: s << "ZoomPan "; break;
        case TMouseToolAction::PushView: s << "Push "; break;
        case TMouseToolAction::BeginRubberBand: s << "Begin(" << e.Pixel.X << ',' << e.Pixel.Y << ") "; break;
        case TMouseToolAction::ContinueRubberBand: s << "Continue(" << e.Pixel.X << ',' << e.Pixel.Y << ") "; break;
        case TMouseToolAction::EndRubberBand: s << "End(" << e.Pixel.X << ',' << e.Pixel.Y << ") "; break;
        case TMouseToolAction::SelectRect:
            s << "Select" << e.SelectKind << '(';
            for (int i = 0; i < 4; ++i)
                s << std::round(e.V[i] * 1e9) / 1e9 << (i < 3 ? "," : ") ");
            break;
        case TMouseToolAction::AddLandMark:
            s << "LandMark(" << std::round(e.V[0] * 1e9) / 1e9 << ',' << std::round(e.V[1] * 1e9) / 1e9 << ") ";
            break;
        case TMouseToolAction::MouseBoxState: s << "Box" << int(e.BoxState) << ' '; break;
        }
    }
    std::string t = s.str();
    if (!t.empty())
        t.pop_back();
    return t;
}

TEST(MapMouseTool, PanAndDragZoom)
{
    struct {
        TMouseActMode mode;
        double mag;
        TControlOffset d;
        TMapPixel tl;
        double magAfter;
    } cases[] = {
        {maPan, 2.0, {-10, 20}, {305, 290}, 2.0},       // a control pixel is half a map pixel
        {maPanHoriz, 2.0, {-10, 20}, {305, 300}, 2.0},  // vertical motion ignored
        {maPanVert, 2.0, {-10, 20}, {300, 290}, 2.0},
        {maPanHoriz, 1.0, {0, 30}, {300, 300}, 1.0},
        {maPan, 1.0, {7, -3}, {293, 303}, 1.0},
        {maPan, 4.0, {-6, 2}, {302, 300}, 4.0},  // 1.5 and -0.5 round to even
        // 1 - (0 / 500 * 0.05 - 40 / 400) = 1.1 about the centre (550, 500): 500 / 1.1 / 2 = 227.3.
        {maDragZoom, 1.0, {0, -40}, {323, 318}, 1.1},
        {maDragZoom, 1.0, {0, 40}, {272, 278}, 0.9},     // dragging down zooms out
        {maDragZoom, 1.0, {-100, 0}, {297, 298}, 0.99},  // sideways counts a twentieth
    };
    for (const auto& c : cases) {
        Rig r(c.mode, c.mag, {300, 300});
        const TControlPixel a{250, 200};
        EXPECT_EQ(Log(r.Tool.Press(Left, Free, a)), "");
        EXPECT_EQ(Log(r.Tool.Move(Held, a)), "");  // the first move anchors the drag
        EXPECT_EQ(Log(r.Tool.Move(Held, a + c.d)), "Repaint ZoomPan");
        EXPECT_EQ(Log(r.Tool.Move(Held, {600, 200})), "");  // outside the control: ignored
        EXPECT_EQ(Log(r.Tool.Release(Left, Free, a + c.d)), "Push");
        EXPECT_EQ(r.View.TopLeft(), c.tl) << int(c.mode) << " " << c.d.DX;
        EXPECT_NEAR(r.View.Magnify(), c.magAfter, 1e-12);
        EXPECT_FALSE(r.Tool.Dragging());
        EXPECT_TRUE(r.Tool.Figures().empty());
    }
}

TEST(MapMouseTool, DragAnchorsAndHolding)
{
    // A drag zoom held away from its anchor keeps zooming on every move: 1.1 twice.
    Rig z(maDragZoom, 1.0, {300, 300});
    z.Tool.Move(Held, {250, 200});
    z.Tool.Move(Held, {250, 160});
    z.Tool.Move(Held, {250, 160});
    EXPECT_NEAR(z.View.Magnify(), 1.21, 1e-12);

    // A move without the button ends the drag: the next held move anchors afresh, moving nothing.
    Rig p(maPan, 1.0, {300, 300});
    p.Tool.Move(Held, {100, 100});
    p.Tool.Move(Held, {90, 100});
    EXPECT_EQ(p.View.TopLeft(), (TMapPixel{310, 300}));
    p.Tool.Move(Free, {50, 50});
    EXPECT_FALSE(p.Tool.Dragging());
    EXPECT_EQ(Log(p.Tool.Move(Held, {10, 10})), "");
    EXPECT_EQ(p.View.TopLeft(), (TMapPixel{310, 300}));
    EXPECT_EQ(Log(p.Tool.Move(Held, {20, 10})), "Repaint ZoomPan");
    EXPECT_EQ(p.View.TopLeft(), (TMapPixel{300, 300}));

    // Confined, a pan cannot take the view off the map.
    Rig c(maPan, 1.0, {10, 10});
    c.Tool.SetConfinePan(true);
    c.Drag({100, 100}, {200, 150});
    EXPECT_EQ(c.View.TopLeft(), (TMapPixel{0, 0}));
    c.Drag({100, 100}, {-300, -300});  // the release outside: the last move inside counts
    EXPECT_EQ(c.View.TopLeft(), (TMapPixel{0, 0}));
    c.Drag({400, 300}, {0, 0});
    EXPECT_EQ(c.View.TopLeft(), (TMapPixel{400, 300}));
}

TEST(MapMouseTool, ZoomWindow)
{
    // 200 x 50 map pixels in a 500-wide control give 500 / 200 = 2.5; the box's centre (200, 125) becomes
    // the view's centre.
    struct {
        TControlPixel a, b;
        double mag;
        TMapPixel tl;
        const char* events;
    } cases[] = {
        {{100, 100}, {300, 150}, 2.5, {100, 45}, "Repaint ZoomPan"},
        {{300, 150}, {100, 100}, 2.5, {100, 45}, "Repaint ZoomPan"},  // dragged the other way
        {{100, 100}, {150, 300}, 2.0, {0, 100}, "Repaint ZoomPan"},   // the taller side decides
        {{100, 100}, {300, 100}, 1.0, {0, 0}, ""},                    // zero height only ends the zoom
        {{100, 100}, {100, 300}, 1.0, {0, 0}, ""},                    // zero width the same
        {{501, 10}, {300, 200}, 1.0, {0, 0}, ""},                     // a press outside starts nothing
        {{10, -1}, {300, 200}, 1.0, {0, 0}, ""},
        {{500, 0}, {300, 100}, 2.5, {300, -30}, "Repaint ZoomPan"},  // the edges are inside
        {{100, 100}, {900, 150}, 1.25, {100, -35}, "Repaint ZoomPan"},  // the corner stops at the edge
    };
    for (const auto& c : cases) {
        Rig r(maZoomWindow);
        EXPECT_EQ(Log(r.Drag(c.a, c.b)), c.events) << c.a.X << "," << c.a.Y;
        EXPECT_EQ(std::tuple(r.View.Magnify(), r.View.TopLeft()), std::tuple(c.mag, c.tl)) << c.a.X;
        EXPECT_TRUE(r.Tool.ZoomState() == 0 && r.Tool.Figures().empty());
    }
    // At magnification 2 from (100, 100) the box is measured in map pixels: 100 x 25 gives 5.
    Rig m(maZoomWindow, 2.0, {100, 100});
    m.Drag({100, 100}, {300, 150});
    EXPECT_EQ(m.View.Magnify(), 5.0);
    EXPECT_EQ(m.View.TopLeft(), (TMapPixel{150, 122}));

    // Boxes within the tolerance are clicks, on both sides of it.
    Rig t(maZoomWindow);
    t.Tool.SetHitTolerance(3);
    EXPECT_EQ(Log(t.Drag({10, 10}, {13, 13})), "");
    EXPECT_EQ(Log(t.Drag({10, 10}, {13, 14})), "Repaint ZoomPan");
    EXPECT_EQ(t.View.Magnify(), 100.0);
}

TEST(MapMouseTool, FiguresToggleAndErase)
{
    Rig r(maZoomWindow);
    r.Tool.Press(Left, Free, {50, 50});
    const TMouseToolResult first = r.Tool.Move(Held, {150, 120});
    ASSERT_EQ(first.Toggled.size(), 1u);
    const TMouseFigure box{mfBox, {50, 50}, {150, 120}};
    EXPECT_EQ(first.Toggled[0], box);
    EXPECT_EQ(r.Tool.Figures(), std::vector<TMouseFigure>{box});
    // The next move draws the old box again (erasing it) and the new one.
    const TMouseToolResult second = r.Tool.Move(Held, {160, 130});
    ASSERT_EQ(second.Toggled.size(), 2u);
    EXPECT_EQ(second.Toggled[0], box);
    const TMouseFigure box2{mfBox, {50, 50}, {160, 130}};
    EXPECT_EQ(r.Tool.Figures(), std::vector<TMouseFigure>{box2});
    // Back on the anchor: a box without area is no figure.
    EXPECT_EQ(r.Tool.Move(Held, {50, 50}).Toggled.size(), 1u);
    EXPECT_TRUE(r.Tool.Figures().empty());
    EXPECT_FALSE(first.ViewChanged());
    // Results copy whole (their lists are held in place).
    TMouseToolResult copy = second;
    ASSERT_EQ(copy.Toggled.size(), 2u);
    EXPECT_EQ(copy.Toggled[1], box2);
    copy = first;
    EXPECT_EQ(std::vector<TMouseFigure>(copy.Toggled.begin(), copy.Toggled.end()), std::vector<TMouseFigure>{box});
    TFixedList<int, 2> full;
    full.push_back(1);
    full.push_back(2);
    EXPECT_THROW(full.push_back(3), std::length_error);

    // Abort mid-drag drops everything at once.
    r.Tool.Move(Held, {90, 90});
    const TMouseToolResult a = r.Tool.Abort();
    EXPECT_TRUE(a.FiguresCleared && r.Tool.Figures().empty() && r.Tool.ZoomState() == 0);
    EXPECT_EQ(Log(r.Tool.Release(Left, Free, {90, 90})), "");  // the drag is gone: no zoom
    EXPECT_EQ(r.View.Magnify(), 1.0);
}

TEST(MapMouseTool, MouseBox)
{
    Rig r(maNone);
    std::int32_t x1 = 0, y1 = 0, x2 = 0, y2 = 0;
    ASSERT_TRUE(r.Tool.BeginMouseBox());
    EXPECT_FALSE(r.Tool.BeginMouseBox());  // one box at a time
    EXPECT_EQ(Log(r.Tool.Press(TToolButton::Right, Free, {20, 20})), "Box0");
    EXPECT_FALSE(r.Tool.MouseBoxResult(x1, y1, x2, y2));

    ASSERT_TRUE(r.Tool.BeginMouseBox());
    EXPECT_EQ(Log(r.Tool.Press(Left, Free, {300, 50})), "Box2");
    r.Tool.Move(Held, {-5, 900});  // clamped to 1..width, 1..height
    EXPECT_EQ(r.Tool.Figures(), (std::vector<TMouseFigure>{{mfBox, {300, 50}, {1, 400}}}));
    r.Tool.Move(Held, {120, 200});
    EXPECT_EQ(r.Tool.Figures().size(), 1u);
    EXPECT_EQ(Log(r.Tool.Release(Left, Free, {120, 200})), "Box3");
    EXPECT_TRUE(r.Tool.Figures().empty());
    ASSERT_TRUE(r.Tool.MouseBoxResult(x1, y1, x2, y2));
    EXPECT_EQ((std::array{x1, y1, x2, y2}), (std::array{120, 50, 300, 200}));
    EXPECT_EQ(Log(r.Tool.EndMouseBox()), "Box0");

    // A right release after the first corner aborts and erases the box; so does EndMouseBox (abort).
    ASSERT_TRUE(r.Tool.BeginMouseBox());
    r.Tool.Press(Left, Free, {30, 30});
    r.Tool.Move(Held, {90, 90});
    EXPECT_EQ(Log(r.Tool.Release(TToolButton::Right, Free, {90, 90})), "Box0");
    EXPECT_TRUE(r.Tool.Figures().empty() && r.Tool.MouseBoxState() == 0);
    ASSERT_TRUE(r.Tool.BeginMouseBox());
    r.Tool.Press(Left, Free, {30, 30});
    r.Tool.Move(Held, {90, 90});
    EXPECT_EQ(Log(r.Tool.EndMouseBox()), "Box0");
    EXPECT_TRUE(r.Tool.Figures().empty());
}

TEST(MapMouseTool, RubberBand)
{
    Rig r(maRubberBand, 2.0, {100, 100});
    std::string log;
    const auto add = [&](const TMouseToolResult& R) { log += Log(R) + "|"; };
    add(r.Tool.Press(Left, Free, {10, 11}));  // 11 / 2 = 5.5 rounds to 6
    add(r.Tool.Release(Left, Free, {10, 11}));
    add(r.Tool.Move(Free, {60, 40}));
    EXPECT_EQ(r.Tool.Figures(), (std::vector<TMouseFigure>{{mfLine, {10, 11}, {60, 40}}}));
    add(r.Tool.Press(Left, CtrlKey, {60, 40}));  // continues: the segment stays, the next starts here
    add(r.Tool.Move(Free, {90, 90}));
    EXPECT_EQ(r.Tool.Figures(), (std::vector<TMouseFigure>{{mfLine, {10, 11}, {60, 40}}, {mfLine, {60, 40}, {90, 90}}}));
    EXPECT_EQ(r.Tool.LastMove(), (TMapPixel{145, 145}));
    const TMouseToolResult off = r.Tool.Press(Left, Free, {90, 90});
    add(off);
    EXPECT_EQ(log, "Begin(105,106)|||Continue(130,120)||End(145,145)|");
    EXPECT_EQ(r.Tool.LastClick(), (TMapPixel{145, 145}));
    EXPECT_TRUE(!r.Tool.RubberBandOn() && r.Tool.Figures().empty() && off.FiguresCleared);
    // Ctrl on a band that is off starts one.
    EXPECT_EQ(Log(r.Tool.Press(Left, CtrlKey, {0, 0})), "Begin(100,100)");
    EXPECT_TRUE(r.Tool.RubberBandOn());
    EXPECT_EQ(Log(r.Tool.Press(TToolButton::Right, Free, {0, 0})), "");  // other buttons do nothing
}

TEST(MapMouseTool, SelectRectangle)
{
    struct {
        bool calibrated;
        TControlPixel a, b;
        std::int32_t tolerance;
        const char* events;
    } cases[] = {
        {true, {300, 240}, {100, 80}, 0, "Select1(49,11,47,13)"},
        {false, {300, 240}, {100, 80}, 0, "Select0(100,80,300,240)"},
        {true, {100, 80}, {300, 240}, 0, "Select1(49,11,47,13)"},
        {true, {100, 80}, {103, 83}, 3, ""},  // a click within the tolerance
        {true, {100, 80}, {104, 83}, 3, "Select1(49,11,48.9625,11.04)"},
    };
    for (const auto& c : cases) {
        Rig r(maSelectRect, 1.0, {0, 0}, c.calibrated);
        r.Tool.SetHitTolerance(c.tolerance);
        EXPECT_EQ(Log(r.Tool.Press(Left, Free, c.a)), "Begin(" + std::to_string(c.a.X) + "," + std::to_string(c.a.Y) + ")");
        EXPECT_TRUE(r.Tool.SelectRectOn());
        r.Tool.Move(Held, c.b);
        EXPECT_EQ(r.Tool.Figures().size(), 1u);
        EXPECT_EQ(r.Tool.Figures()[0].Kind, mfDottedBox);
        EXPECT_EQ(Log(r.Tool.Release(Left, Free, c.b)), c.events) << c.a.X;
        EXPECT_TRUE(!r.Tool.SelectRectOn() && r.Tool.Figures().empty());
    }
    // The release position counts, not the corner last drawn; moves without the button draw no box.
    Rig r(maSelectRect, 1.0, {0, 0}, true);
    r.Tool.Press(Left, Free, {100, 80});
    r.Tool.Move(Held, {300, 240});
    EXPECT_TRUE(r.Tool.Move(Free, {350, 280}).Toggled.empty());
    EXPECT_EQ(Log(r.Tool.Release(Left, Free, {400, 320})), "Select1(49,11,46,14)");
}

TEST(MapMouseTool, LandMarks)
{
    Rig r(maLandMark, 1.0, {100, 80}, true);  // (100, 80) is map pixel (200, 160): 48 N, 12 E
    EXPECT_EQ(Log(r.Tool.Press(Left, Free, {100, 80})), "LandMark(48,12)");
    EXPECT_EQ(Log(r.Tool.DoubleClick(Left, Free, {100, 80})), "");
    EXPECT_EQ(Log(r.Tool.Press(TToolButton::Right, Free, {100, 80})), "");
    Rig bare(maLandMark, 1.0, {100, 80});  // no calibration: nothing to place
    EXPECT_EQ(Log(bare.Tool.Press(Left, Free, {100, 80})), "");
    EXPECT_EQ(bare.Tool.LastClick(), (TMapPixel{200, 160}));
}

TEST(MapMouseTool, WheelAndPinch)
{
    // Map pixel (300, 380) stays under (100, 80).
    struct {
        std::int32_t delta;
        double mag;
        TMapPixel tl;
        const char* events;
    } cases[] = {
        {120, 1.25, {220, 316}, "Repaint ZoomPan Push"},
        {-120, 0.8, {175, 280}, "Repaint ZoomPan Push"},
        {240, 1.5625, {236, 329}, "Repaint ZoomPan Push"},
        {0, 1.0, {200, 300}, ""},
    };
    for (const auto& c : cases) {
        Rig r(maPan, 1.0, {200, 300});
        const TMouseToolResult w = r.Tool.Wheel(c.delta, 100, 80);
        EXPECT_EQ(std::tuple(Log(w), w.Handled, r.View.Magnify(), r.View.TopLeft()),
                  std::tuple(std::string(c.events), c.delta != 0, c.mag, c.tl));
    }
    Rig none(maPan);
    none.View.SetMapSize({0, 0});
    EXPECT_FALSE(none.Tool.Wheel(120, 100, 80).Handled);

    Rig p(maPan, 1.0, {200, 300});
    EXPECT_EQ(Log(p.Tool.Pinch(100, 80, 1.25)), "Repaint ZoomPan");
    EXPECT_EQ(p.View.TopLeft(), (TMapPixel{220, 316}));
    EXPECT_EQ(Log(p.Tool.Pinch(100, 80, -1.0)), "");  // not a scale
    EXPECT_EQ(Log(p.Tool.PinchEnd(false)), "Push");
    EXPECT_EQ(Log(p.Tool.PinchEnd(false)), "");  // no pinch since
    EXPECT_EQ(Log(p.Tool.PinchEnd(true)), "Push");
    p.Tool.Pinch(100, 80, 1e9);  // gestures stop at 1024
    EXPECT_EQ(p.View.Magnify(), 1024.0);
}

TEST(MapMouseTool, Keys)
{
    // An eighth of 500 x 400 at magnification 1: 62.5 rounds to 62, and 50.
    struct {
        TMapKey key;
        double mag;
        TMapPixel tl;
    } cases[] = {
        {TMapKey::Left, 1.0, {238, 300}},  {TMapKey::Right, 1.0, {362, 300}},
        {TMapKey::Up, 1.0, {300, 250}},    {TMapKey::Down, 1.0, {300, 350}},
        {TMapKey::ZoomIn, 1.25, {350, 340}},  // about the centre (550, 500)
        {TMapKey::ZoomOut, 0.8, {238, 250}},
        {TMapKey::Home, 0.5, {0, 0}},         // the whole map
    };
    for (const auto& c : cases) {
        Rig r(maNone, 1.0, {300, 300});
        const TMouseToolResult k = r.Tool.Key(c.key, Free);
        EXPECT_EQ(std::tuple(Log(k), k.Handled, r.View.Magnify(), r.View.TopLeft()),
                  std::tuple(std::string("Repaint Push ZoomPan"), true, c.mag, c.tl))
            << int(c.key);
    }
    Rig r(maNone, 1000.0, {300, 300});
    r.Tool.Key(TMapKey::Right, Free);  // at least one map pixel
    EXPECT_EQ(r.View.TopLeft(), (TMapPixel{301, 300}));
    r.Tool.SetConfinePan(true);
    r.View.SetMagnify(1.0);
    for (int i = 0; i < 4; ++i)
        r.Tool.Key(TMapKey::Right, Free);
    EXPECT_EQ(r.View.TopLeft(), (TMapPixel{500, 300}));  // confined: the map's right edge at the control's
    EXPECT_FALSE(r.Tool.Key(TMapKey::Other, Free).Handled);
    r.View.SetMapSize({0, 0});
    EXPECT_FALSE(r.Tool.Key(TMapKey::Left, Free).Handled);
}

}  // namespace
}  // namespace qv
