// The map control's mouse on a 1920 x 1080 view of a 3-megapixel map (2000 x 1500) at magnification 0.5,
// where the scaled image is cached: a pan drag of 100 moves, each move re-rendering the frame from the
// cache (Paint) and, on a shown widget, copying it to the window (paintEvent); beside it a zoom-window drag
// of 100 moves, whose exclusive-or box is drawn over the frame without re-rendering the map.
// The same drags fed to the mouse tool alone, without a widget, measure the rules themselves: what the
// widget costs beyond them is translation, painting and Qt's event delivery.
// Reported per move (the "per_move" counter is seconds per move).
#include "qt_main.h"

#include <qvgeo/geomap/calibration.h>
#include <qvgeo/geomap/map_mouse_tool.h>
#include <qvgeo/mapview/geo_map.h>
#include <qvgeo/platform/bitmap.h>

#include <benchmark/benchmark.h>

#include <QApplication>
#include <QMouseEvent>

#include <memory>

namespace {

using namespace qv;

constexpr int Moves = 100;

TBitmap Synthetic(int W, int H)
{
    TBitmap b(W, H);
    for (int y = 0; y < H; ++y) {
        std::uint32_t* row = b.ScanLine(y);
        for (int x = 0; x < W; ++x)
            row[x] = 0xFF000000u | static_cast<std::uint32_t>(((x >> 3) & 0xFF) << 16) |
                     static_cast<std::uint32_t>(((y >> 5) & 0xFF) << 8) | static_cast<std::uint32_t>((x ^ y) & 0xFF);
    }
    return b;
}

void Send(TGeoMap& M, QEvent::Type Type, int X, int Y, Qt::MouseButton Button, Qt::MouseButtons Held)
{
    QMouseEvent e(Type, QPointF(X, Y), M.mapToGlobal(QPointF(X, Y)), Button, Held, {});
    QApplication::sendEvent(&M, &e);
}

// One drag per iteration: press, Moves moves of (-3, -2) pixels each, release. Shown: the widget is on
// (offscreen) screen and every move's update is painted before the next move.
void Drag(benchmark::State& State, TMouseActMode Mode)
{
    const bool shown = State.range(0) != 0;
    auto m = std::make_unique<TGeoMap>();
    m->resize(1920, 1080);
    m->SetMapBitMap(Synthetic(2000, 1500));
    m->SetMagnification(0.5);
    // The whole map is smaller than the view at 0.5: confined, a pan could not move it.
    m->SetConfinePanToMapImage(false);
    m->SetMouseAction(Mode);
    if (shown) {
        m->show();
        QCoreApplication::processEvents();
    }
    std::int64_t moves = 0;
    for (auto _ : State) {
        Send(*m, QEvent::MouseButtonPress, 1500, 900, Qt::LeftButton, Qt::LeftButton);
        for (int i = 0; i <= Moves; ++i) {  // the first move anchors the drag
            Send(*m, QEvent::MouseMove, 1500 - 3 * i, 900 - 2 * i, Qt::NoButton, Qt::LeftButton);
            if (shown)
                QCoreApplication::processEvents();
        }
        // A zoom window is closed back to its anchor, so that the release only ends it (no zoom).
        const bool back = Mode == maZoomWindow;
        if (back)
            Send(*m, QEvent::MouseMove, 1500, 900, Qt::NoButton, Qt::LeftButton);
        Send(*m, QEvent::MouseButtonRelease, back ? 1500 : 1500 - 3 * Moves, back ? 900 : 900 - 2 * Moves,
             Qt::LeftButton, Qt::NoButton);
        if (shown)
            QCoreApplication::processEvents();
        moves += Moves;
        benchmark::DoNotOptimize(m->AuxBmp().Pixel(960, 540));
    }
    State.counters["per_move"] = benchmark::Counter(static_cast<double>(moves), benchmark::Counter::kIsRate |
                                                                                 benchmark::Counter::kInvert);
    State.counters["cache_builds"] = static_cast<double>(m->ImageCache().CacheBuilds);
}

// The drags of Drag, fed to TMapMouseTool over a viewport of the same geometry.
void ToolDrag(benchmark::State& State, TMouseActMode Mode)
{
    TMapViewport view;
    view.SetControlSize({1920, 1080});
    view.SetMapSize({2000, 1500});
    view.SetMagnify(0.5);
    const TMapCalibration cal;
    TMapMouseTool tool(view, cal);
    tool.SetConfinePan(false);
    tool.SetMode(Mode);
    const TToolShiftState held{false, false, false, true};
    std::int64_t moves = 0, events = 0;
    for (auto _ : State) {
        tool.Press(TToolButton::Left, {}, {1500, 900});
        for (int i = 0; i <= Moves; ++i) {
            const TMouseToolResult r = tool.Move(held, {1500 - 3 * i, 900 - 2 * i});
            events += static_cast<std::int64_t>(r.Events.size() + r.Toggled.size());
        }
        const bool back = Mode == maZoomWindow;
        if (back)
            tool.Move(held, {1500, 900});
        tool.Release(TToolButton::Left, {}, back ? TControlPixel{1500, 900} : TControlPixel{1500 - 3 * Moves, 900 - 2 * Moves});
        view.SetTopLeft({0, 0});
        moves += Moves;
    }
    benchmark::DoNotOptimize(events);
    State.counters["per_move"] = benchmark::Counter(static_cast<double>(moves), benchmark::Counter::kIsRate |
                                                                                 benchmark::Counter::kInvert);
}

void BM_PanDrag(benchmark::State& S) { Drag(S, maPan); }
void BM_ZoomWindowDrag(benchmark::State& S) { Drag(S, maZoomWindow); }
BENCHMARK(BM_PanDrag)->ArgName("shown")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_ZoomWindowDrag)->ArgName("shown")->Arg(0)->Arg(1)->Unit(benchmark::kMillisecond);
void BM_ToolPanDrag(benchmark::State& S) { ToolDrag(S, maPan); }
void BM_ToolZoomWindowDrag(benchmark::State& S) { ToolDrag(S, maZoomWindow); }
BENCHMARK(BM_ToolPanDrag)->Unit(benchmark::kMicrosecond);
BENCHMARK(BM_ToolZoomWindowDrag)->Unit(benchmark::kMicrosecond);

}  // namespace

int main(int argc, char** argv) { return RunQtBenchmarks(argc, argv); }
