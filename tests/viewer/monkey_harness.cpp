// The monkey: its run, its checks and the input it sends (answers to dialogs and files: monkey_answers.cpp).
#include "monkey_harness.h"

#include <QApplication>
#include <QFileDialog>
#include <QMenuBar>
#include <QMessageBox>
#include <QProgressDialog>
#include <QThread>
#include <QToolBar>
#include <QWheelEvent>
#include <QWindow>
#include <QTest>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <sstream>
#include <unistd.h>

#if defined(__SANITIZE_ADDRESS__)
#include <sanitizer/common_interface_defs.h>
#define QVGEO_MONKEY_ASAN 1
#endif

namespace monkey {
namespace fs = std::filesystem;

namespace {

// The last events as text, kept where a crash handler can write it without allocating.
char CrashText[16384];
std::atomic<std::size_t> CrashLength{0};

void WriteCrashText()
{
    const std::size_t n = CrashLength.load();
    if (n > 0 && ::write(2, CrashText, n) < 0)
        return;
}

#ifndef QVGEO_MONKEY_ASAN
void OnCrashSignal(int Signal)
{
    WriteCrashText();
    std::signal(Signal, SIG_DFL);
    std::raise(Signal);
}
#endif

std::int64_t NowMs()
{
    return std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

std::string Str(QPoint P)
{
    return "(" + std::to_string(P.x()) + "," + std::to_string(P.y()) + ")";
}

const char* ToolName(viewer::TTool T)
{
    static const char* names[] = {"atlas-zoom", "pan",   "pan-h",     "pan-v",    "rubber",    "zoom-window", "drag-zoom",
                                  "select",     "place", "delete-lm", "calib-pt", "move-lm",     "grat-pt"};
    static_assert(std::size(names) == static_cast<int>(viewer::TTool::GraticulePoint) + 1, "a name for every tool");
    return names[static_cast<int>(T)];
}

}  // namespace

TMonkey::TMonkey(viewer::TViewerWindow& Window, TMonkeyOptions Options)
    : W(Window), FOpt(std::move(Options)), FState(FOpt.Seed * 0x9E3779B97F4A7C15ull + 0x2545F4914F6CDD1Dull)
{
    MakeScratch();
    FFiles = SnapshotData();
    // The pulse lets the monkey act inside modal dialogs and their nested event loops (see Pulse).
    FPulse.setInterval(2);
    QObject::connect(&FPulse, &QTimer::timeout, [this] { Pulse(); });
    FPulse.start();
    FBeat = NowMs();
    FWatchdog = std::thread([this] {
        // A hang never returns to the event loop, so the check of each action's time would never run:
        // this thread reports it and ends the process, long after the per-action limit.
        const std::int64_t limit = FOpt.AbortMs > 0 ? FOpt.AbortMs : std::max<std::int64_t>(30000, 10LL * FOpt.HangMs);
        while (!FDone) {
            std::this_thread::sleep_for(std::chrono::milliseconds(200));
            if (!FDone && NowMs() - FBeat > limit) {
                std::fprintf(stderr, "monkey: the event loop has not come back for %lld ms: a hang\n",
                             static_cast<long long>(NowMs() - FBeat));
                WriteCrashText();
                std::abort();
            }
        }
    });
#ifdef QVGEO_MONKEY_ASAN
    __sanitizer_set_death_callback(&WriteCrashText);
#else
    for (int s : {SIGSEGV, SIGABRT, SIGFPE, SIGBUS, SIGILL})
        std::signal(s, &OnCrashSignal);
#endif
}

TMonkey::~TMonkey()
{
    FDone = true;
    FWatchdog.join();
    FPulse.stop();
#ifdef QVGEO_MONKEY_ASAN
    __sanitizer_set_death_callback(nullptr);
#else
    for (int s : {SIGSEGV, SIGABRT, SIGFPE, SIGBUS, SIGILL})
        std::signal(s, SIG_DFL);
#endif
    CrashLength = 0;
}

std::uint64_t TMonkey::Next()
{
    // splitmix64: the same sequence from a seed on every platform and library, so a seed replays.
    std::uint64_t z = (FState += 0x9E3779B97F4A7C15ull);
    z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
    z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
    return z ^ (z >> 31);
}

void TMonkey::Log(const std::string& Line)
{
    const std::int32_t m = W.Atlas().CurrentMap();
    std::ostringstream s;
    s << '#' << FIndex << " [" << (m > 0 ? W.Atlas().GetMapDef(m).Caption : std::string("no map")) << ", "
      << ToolName(W.Tool()) << ", x" << W.Map().Magnification() << " at " << W.Map().TopLeft().X << ","
      << W.Map().TopLeft().Y << ", " << W.Map().width() << "x" << W.Map().height() << "] " << Line;
    static const bool trace = qEnvironmentVariableIsSet("QVGEO_MONKEY_TRACE");
    if (trace)
        std::fprintf(stderr, "%s\n", s.str().c_str());
    std::lock_guard<std::mutex> lock(FLogMutex);
    FLog.push_back(s.str());
    while (FLog.size() > 20)
        FLog.pop_front();
    std::string text = "monkey seed " + std::to_string(FOpt.Seed) + ", last events:\n";
    for (const std::string& l : FLog)
        text += "  " + l + "\n";
    const std::size_t n = std::min(text.size(), sizeof CrashText);
    CrashLength = 0;
    std::memcpy(CrashText, text.data(), n);
    CrashLength = n;
}

void TMonkey::SetFault(const std::string& Text)
{
    if (FFault.empty())
        FFault = Text;
    FStop = true;
}

void TMonkey::Beat()
{
    FBeat = NowMs();
}

std::string TMonkey::Replay() const
{
    std::lock_guard<std::mutex> lock(FLogMutex);
    std::ostringstream s;
    s << "monkey seed " << FOpt.Seed << ", event " << FIndex << " of " << FOpt.Events << ": "
      << (FFault.empty() ? "no fault" : FFault) << "\nlast events:\n";
    for (const std::string& l : FLog)
        s << "  " << l << '\n';
    s << "replay: QVGEO_MONKEY_SEED=" << FOpt.Seed << " QVGEO_MONKEY_EVENTS=" << FIndex;
    s << " build/tests/test_viewer --gtest_filter='ViewerMonkey.*'\n";
    return s.str();
}

std::string TMonkey::Run()
{
    while (FIndex < FOpt.Events && !FStop)
        Act({}, {});
    return FFault;
}

std::string TMonkey::Act(const std::string& Description, const std::function<void()>& Do)
{
    if (!QApplication::activeModalWidget())
        FModalBudget.clear(), FFileTries.clear();
    const auto places = LandmarkPlaces();
    FMoveAllowed = FLoadedFile = false;
    FSavedThisAction.clear();
    if (Do) {
        ++FIndex;
        Log(Description);
        FFrames.push_back({});
        FFrames.back().Clock.start();
        FFrames.back().LoopLevel = QThread::currentThread()->loopLevel();
        try {
            Do();
            Settle();
        } catch (const std::exception& e) {
            SetFault(std::string("an exception left an event handler: ") + e.what());
        } catch (...) {
            SetFault("an exception of unknown type left an event handler");
        }
        Checkpoint();
        FFrames.pop_back();
    } else {
        Tick();
    }
    if (!FStop) {
        const auto after = LandmarkPlaces();
        const auto same = [](double A, double B) { return A == B || (std::isnan(A) && std::isnan(B)); };
        // Longitudes up to 360 degrees either way: a map across the date line may count on past 180.
        for (std::size_t k = 0; k < after.size() && !FStop; ++k)
            if (!(std::fabs(after[k].first) <= 90 && std::fabs(after[k].second) <= 360)) {
                std::ostringstream m;
                m.precision(9);
                m << "landmark " << k + 1 << " lies at no place on earth: " << after[k].first << ", " << after[k].second;
                SetFault(m.str());
            }
        if (!FStop && after.size() == places.size() && !FMoveAllowed && !FLoadedFile)
            for (std::size_t k = 0; k < after.size(); ++k)
                if (!same(after[k].first, places[k].first) || !same(after[k].second, places[k].second)) {
                    std::ostringstream m;
                    m.precision(9);
                    m << "landmark " << k + 1 << " moved from " << places[k].first << ", " << places[k].second << " to "
                      << after[k].first << ", " << after[k].second << " though no move-tool drag carried it";
                    SetFault(m.str());
                    break;
                }
    }
    if (!FStop)
        CheckAfterAction();
    return FFault;
}

void TMonkey::CheckAfterAction()
{
    for (QWidget* w : QApplication::topLevelWidgets())
        if (auto* p = qobject_cast<QProgressDialog*>(w)) {
            SetFault("the progress dialog \"" + p->labelText().toStdString() +
                     "\" is still open after the action that opened it returned");
            return;
        }
    const auto now = SnapshotData();
    for (const auto& [path, state] : now) {
        const auto it = FFiles.find(path);
        if (FSavedThisAction.count(path))
            continue;
        if (it == FFiles.end()) {
            SetFault("a file appeared in the data folder without a save: " + path.string());
            return;
        }
        if (state.Hash != it->second.Hash) {
            SetFault("a file of the data folder changed without a save: " + path.string());
            return;
        }
    }
    for (const auto& [path, state] : FFiles)
        if (!now.count(path)) {
            SetFault("a file of the data folder was removed: " + path.string());
            return;
        }
    FFiles = now;
}

void TMonkey::Checkpoint()
{
    // Each input event with the work it queued, less the actions nested in it (in a modal dialog it
    // opened): how long the event loop was kept from running. The limit catches hangs, not slowness.
    Beat();
    if (FFrames.empty())
        return;
    TFrame& f = FFrames.back();
    const qint64 elapsed = f.Clock.elapsed();
    const qint64 own = (elapsed - f.MarkElapsed) - (f.NestedMs - f.MarkNested);
    f.MarkElapsed = elapsed;
    f.MarkNested = f.NestedMs;
    if (own > FOpt.HangMs)
        SetFault("one event kept the event loop for " + std::to_string(own) + " ms");
}

void TMonkey::Tick()
{
    Beat();
    FFrames.push_back({});
    FFrames.back().Clock.start();
    FFrames.back().LoopLevel = QThread::currentThread()->loopLevel();
    try {
        OneEvent();
    } catch (const std::exception& e) {
        SetFault(std::string("an exception left an event handler: ") + e.what());
    } catch (...) {
        SetFault("an exception of unknown type left an event handler");
    }
    Checkpoint();
    const qint64 total = FFrames.back().Clock.elapsed();
    FFrames.pop_back();
    if (!FFrames.empty())
        FFrames.back().NestedMs += total;
    Beat();
}

void TMonkey::Pulse()
{
    // From a timer in whatever event loop runs: inside a nested loop an action opened (a modal dialog's
    // exec, a visible progress dialog) the monkey acts as a user would on the dialog; elsewhere it waits.
    // The action is posted, not run from the timer, so that one nested inside another gets its turn too.
    if (FFrames.empty() || FNestedPending)
        return;
    const bool nestedLoop = QThread::currentThread()->loopLevel() > FFrames.back().LoopLevel;
    auto* progress = qobject_cast<QProgressDialog*>(QApplication::activeModalWidget());
    if (!nestedLoop && !(progress && progress->isVisible()))
        return;
    FNestedPending = true;
    QMetaObject::invokeMethod(
        &FPulse,
        [this] {
            FNestedPending = false;
            if (!FFrames.empty())
                Tick();
        },
        Qt::QueuedConnection);
}

void TMonkey::Settle()
{
    QCoreApplication::processEvents();
    Checkpoint();
}

void TMonkey::OneEvent()
{
    const bool nested = FFrames.size() > 1;
    const bool ending = FStop || FIndex >= FOpt.Events;
    if (!ending)
        ++FIndex;
    if (nested && FButtons != Qt::NoButton && FLastTop) {
        // A button held when the dialog came up is let go over the blocked window, as a user does.
        const Qt::MouseButton held = (FButtons & Qt::LeftButton) ? Qt::LeftButton : (FButtons & Qt::RightButton) ? Qt::RightButton : Qt::MiddleButton;
        Log("release under the dialog " + Str(FLastPos));
        Mouse(FLastTop, FLastPos, QEvent::MouseButtonRelease, held);
    }
    if (QWidget* popup = QApplication::activePopupWidget()) {
        if (ending || Chance(25)) {
            Log("popup closed");
            popup->close();
        } else {
            EventInto(popup);
        }
        return;
    }
    if (QWidget* modal = QApplication::activeModalWidget()) {
        if (auto* p = qobject_cast<QProgressDialog*>(modal)) {
            if (ending || Chance(15)) {
                Log("progress: Cancel");
                p->cancel();
            } else {
                Log("progress: wait");
            }
            return;
        }
        auto [it, first] = FModalBudget.try_emplace(modal, Below(6));
        if (auto* box = qobject_cast<QMessageBox*>(modal); box && first)
            WatchSaveButton(*box);
        if (ending || qobject_cast<QFileDialog*>(modal) || it->second-- <= 0) {
            Answer(modal);
            return;
        }
        EventInto(modal);
        return;
    }
    if (ending)
        return;
    if (nested) {
        --FIndex;  // a modal loop still winding down after its dialog closed: not an event
        return;
    }
    if (Chance(5)) {
        std::vector<QWidget*> others;
        for (QWidget* w : QApplication::topLevelWidgets())
            if (w != &W && w->isVisible() && !qobject_cast<QMenu*>(w))
                others.push_back(w);
        if (!others.empty()) {
            EventInto(others[std::size_t(Below(int(others.size())))]);
            return;
        }
    }
    MainWindowEvent();
}

void TMonkey::MainWindowEvent()
{
    const int r = Below(100);
    if (r < 40)
        MapEvent();
    else if (r < 55)
        RandomWidgetClick(&W);
    else if (r < 75)
        RandomKey(&W);
    else if (r < 92)
        RandomAction();
    else if (r < 98)
        Wheel(&W, W.Map().mapTo(&W, MapTarget()));
    else {
        // The user drags the window's frame: from too small to hold the map to larger than the screen.
        static const int widths[] = {120, 300, 640, 1000, 1600}, heights[] = {90, 240, 480, 720, 1100};
        const QSize size(widths[Below(5)], heights[Below(5)]);
        Log("resize to " + std::to_string(size.width()) + "x" + std::to_string(size.height()));
        W.resize(size);
        Settle();
    }
}

QPoint TMonkey::MapTarget()
{
    qv::TGeoMap& map = W.Map();
    const int w = std::max(1, map.width()), h = std::max(1, map.height());
    const int r = Below(100);
    if (r < 35 && map.NumLandMarks() > 0) {
        const qv::TLandMark l = map.GetLandMarkData(1 + Below(map.NumLandMarks()));
        std::int32_t x = 0, y = 0;
        if (map.CalcPixelCoords(l.Latitude, l.Longitude, x, y)) {
            const qv::TPoint c = map.MapImageToControl({x, y});
            const QPoint p(c.X + Below(9) - 4, c.Y + Below(9) - 4);
            if (QRect(0, 0, w, h).contains(p))
                return p;
        }
    }
    if (r < 45 && W.CalibEditor().isVisible()) {
        const qv::TCalibData& d = map.CalibData();
        if (const int n = qv::ValidCalQuads(d); n > 0) {
            const qv::TCalQuad& q = d.CalQuads[std::size_t(Below(n))];
            const qv::TPoint c = map.MapImageToControl({q.MapX, q.MapY});
            const QPoint p(c.X + Below(7) - 3, c.Y + Below(7) - 3);
            if (QRect(0, 0, w, h).contains(p))
                return p;
        }
    }
    return {Below(w), Below(h)};
}

void TMonkey::MapEvent()
{
    QWidget* map = &W.Map();
    const auto at = [&](QPoint Local) { return map->mapTo(&W, Local); };
    const QPoint p = MapTarget();
    const viewer::TTool tool = W.Tool();
    const int r = Below(100);
    if (r < 30) {
        Log("click L " + Str(p));
        Click(&W, at(p), Qt::LeftButton, false);
    } else if (r < 40) {
        Log("click R " + Str(p));
        Click(&W, at(p), Qt::RightButton, false);
    } else if (r < 50) {
        Log("double click L " + Str(p));
        Click(&W, at(p), Qt::LeftButton, true);
    } else if (r < 85) {
        const Qt::MouseButton b = Chance(80) ? Qt::LeftButton : Chance(50) ? Qt::RightButton : Qt::MiddleButton;
        const Qt::KeyboardModifiers mods = Chance(15) ? Qt::ShiftModifier : Chance(10) ? Qt::ControlModifier : Qt::NoModifier;
        std::string text = std::string("drag ") + (b == Qt::LeftButton ? "L " : b == Qt::RightButton ? "R " : "M ") + Str(p);
        QPoint q = p;
        std::vector<QPoint> path;
        // Mostly short drags; now and then a long one that wanders far, as a drag zoom held down does.
        const int steps = Chance(80) ? 1 + Below(5) : 6 + Below(10), reach = Chance(80) ? 150 : 400;
        for (int n = steps; n > 0; --n) {
            q += QPoint(Below(2 * reach + 1) - reach, Below(2 * reach + 1) - reach);
            path.push_back(q);
            text += "->" + Str(q);
        }
        Log(text);
        if (b == Qt::LeftButton && tool == viewer::TTool::MoveLandmark)
            FMoveAllowed = true;
        Mouse(&W, at(p), QEvent::MouseButtonPress, b, mods);
        Settle();
        for (const QPoint& m : path) {
            if (!(FButtons & b) || FStop)
                return;  // the press opened a dialog, under which the button was let go
            Mouse(&W, at(m), QEvent::MouseMove, Qt::NoButton, mods);
            Settle();
        }
        if (FButtons & b)
            Mouse(&W, at(path.back()), QEvent::MouseButtonRelease, b, mods);
    } else if (r < 95) {
        Log("move " + Str(p));
        Mouse(&W, at(p), QEvent::MouseMove, Qt::NoButton);
    } else {
        Log("click M " + Str(p));
        Click(&W, at(p), Qt::MiddleButton, false);
    }
    Settle();
}

void TMonkey::Mouse(QWidget* Top, QPoint WindowPos, QEvent::Type Type, Qt::MouseButton Button, Qt::KeyboardModifiers Mods)
{
    QWindow* win = Top->windowHandle();
    if (!win)
        return;
    if (Type == QEvent::MouseButtonPress)
        FButtons |= Button;
    else if (Type == QEvent::MouseButtonRelease)
        FButtons &= ~Qt::MouseButtons(Button);
    FLastTop = Top;
    FLastPos = WindowPos;
    FTime += 10;
    // Qt's own input path: the window system event as a platform delivers it.
    qt_handleMouseEvent(win, QPointF(WindowPos), win->mapToGlobal(QPointF(WindowPos)), FButtons,
                        Type == QEvent::MouseMove ? Qt::NoButton : Button, Type, Mods, FTime);
}

void TMonkey::Click(QWidget* Top, QPoint WindowPos, Qt::MouseButton Button, bool Double)
{
    if (Top != QApplication::activeWindow() && !QApplication::activeModalWidget()) {
        Top->activateWindow();  // a click on a window raises and activates it
        Settle();
    }
    QPointer<QWidget> top(Top);
    for (int i = 0; i < (Double ? 2 : 1) && top && !FStop; ++i) {
        // The event loop runs between a press and its release, as it does under a hand: what the press
        // queued (a dialog, a repaint) comes first.
        Mouse(top, WindowPos, QEvent::MouseButtonPress, Button);
        Settle();
        if (top && (FButtons & Button))
            Mouse(top, WindowPos, QEvent::MouseButtonRelease, Button);
    }
    FTime += 1000;  // the next click is not taken as the second of a double click
}

void TMonkey::EventInto(QWidget* Top)
{
    const int r = Below(100);
    if (r < 60)
        RandomWidgetClick(Top);
    else if (r < 90)
        RandomKey(Top);
    else
        Wheel(Top, {Below(std::max(1, Top->width())), Below(std::max(1, Top->height()))});
}

void TMonkey::RandomWidgetClick(QWidget* Top)
{
    std::vector<QWidget*> pool;
    for (QWidget* w : Top->findChildren<QWidget*>())
        if (w->isVisible() && w->window() == Top && w->width() > 0 && w->height() > 0)
            pool.push_back(w);
    QWidget* w = pool.empty() ? Top : pool[std::size_t(Below(int(pool.size())))];
    const QPoint local(Below(std::max(1, w->width())), Below(std::max(1, w->height())));
    const QPoint at = w->mapTo(Top, local);
    // The press goes to whatever lies under it: a click on the atlas may land on its map.
    const bool dbl = Chance(10);
    const Qt::MouseButton b = Chance(85) ? Qt::LeftButton : Qt::RightButton;
    Log(std::string(dbl ? "double click " : "click ") + (b == Qt::LeftButton ? "L " : "R ") + "on " +
        w->metaObject()->className() + " \"" + w->objectName().toStdString() + "\" " + Str(local));
    Click(Top, at, b, dbl);
    Settle();
}

void TMonkey::Key(QWidget* Top, int KeyCode, Qt::KeyboardModifiers Mods, const QString& Text, int Repeats)
{
    QWindow* win = Top->windowHandle();
    if (!win)
        return;
    if (QGuiApplication::focusWindow() != win && !QApplication::activeModalWidget()) {
        Top->activateWindow();
        Settle();
    }
    QPointer<QWindow> w(win);
    qt_handleKeyEvent(w, QEvent::KeyPress, KeyCode, Mods, Text);
    Settle();
    for (int i = 0; i < Repeats && w && !FStop; ++i) {
        qt_handleKeyEvent(w, QEvent::KeyPress, KeyCode, Mods, Text, true);
        Settle();
    }
    if (w)
        qt_handleKeyEvent(w, QEvent::KeyRelease, KeyCode, Mods, Text);
    Settle();
}

bool TMonkey::Excluded(const QKeySequence& Keys) const
{
    for (QAction* a : W.findChildren<QAction*>())
        if (a->text() == "&Quit" && a->shortcuts().contains(Keys))
            return true;
    return false;
}

void TMonkey::RandomKey(QWidget* Top)
{
    struct TKey {
        int key;
        Qt::KeyboardModifiers mods;
        const char* text;
    };
    static const TKey window[] = {
        {Qt::Key_Left, {}, ""},      {Qt::Key_Right, {}, ""},    {Qt::Key_Up, {}, ""},       {Qt::Key_Down, {}, ""},
        {Qt::Key_Plus, {}, "+"},     {Qt::Key_Minus, {}, "-"},   {Qt::Key_F2, {}, ""},       {Qt::Key_Delete, {}, ""},
        {Qt::Key_Escape, {}, ""},    {Qt::Key_Return, {}, "\r"}, {Qt::Key_Enter, {}, "\r"},  {Qt::Key_Tab, {}, "\t"},
        {Qt::Key_Space, {}, " "},    {Qt::Key_Home, {}, ""},     {Qt::Key_PageDown, {}, ""}, {Qt::Key_Z, {}, "z"},
        {Qt::Key_P, {}, "p"},        {Qt::Key_H, {}, "h"},       {Qt::Key_V, {}, "v"},       {Qt::Key_R, {}, "r"},
        {Qt::Key_W, {}, "w"},        {Qt::Key_D, {}, "d"},       {Qt::Key_S, {}, "s"},       {Qt::Key_L, {}, "l"},
        {Qt::Key_X, {}, "x"},        {Qt::Key_M, {}, "m"},       {Qt::Key_C, {}, "c"},       {Qt::Key_Z, Qt::ControlModifier, ""},
        {Qt::Key_0, Qt::ControlModifier, ""}, {Qt::Key_K, Qt::ControlModifier, ""}, {Qt::Key_G, Qt::ControlModifier, ""},
        {Qt::Key_S, Qt::ControlModifier, ""}, {Qt::Key_O, Qt::ControlModifier, ""}, {Qt::Key_E, Qt::ControlModifier, ""},
        {Qt::Key_P, Qt::ControlModifier, ""}, {Qt::Key_C, Qt::ControlModifier, ""}, {Qt::Key_Plus, Qt::ControlModifier, ""},
        {Qt::Key_Minus, Qt::ControlModifier, ""}, {Qt::Key_Q, Qt::ControlModifier, ""},
        {Qt::Key_E, Qt::ControlModifier | Qt::ShiftModifier, ""}, {Qt::Key_C, Qt::ControlModifier | Qt::ShiftModifier, ""},
        {Qt::Key_O, Qt::ControlModifier | Qt::ShiftModifier, ""}, {Qt::Key_Delete, Qt::ControlModifier | Qt::ShiftModifier, ""},
        {Qt::Key_G, Qt::ControlModifier | Qt::AltModifier, ""}, {Qt::Key_I, Qt::ControlModifier | Qt::AltModifier, ""},
        {Qt::Key_0, Qt::ControlModifier | Qt::AltModifier, ""}, {Qt::Key_1, Qt::ControlModifier | Qt::AltModifier, ""},
        {Qt::Key_2, Qt::ControlModifier | Qt::AltModifier, ""}, {Qt::Key_3, Qt::ControlModifier | Qt::AltModifier, ""},
        {Qt::Key_1, Qt::AltModifier, ""}, {Qt::Key_2, Qt::AltModifier, ""}, {Qt::Key_3, Qt::AltModifier, ""}};
    static const TKey typing[] = {{Qt::Key_4, {}, "4"},      {Qt::Key_8, {}, "8"},          {Qt::Key_Period, {}, "."},
                                  {Qt::Key_Minus, {}, "-"},  {Qt::Key_Space, {}, " "},      {Qt::Key_N, {}, "n"},
                                  {Qt::Key_E, {}, "e"},      {Qt::Key_Backspace, {}, ""},   {Qt::Key_Tab, {}, "\t"},
                                  {Qt::Key_Return, {}, "\r"}, {Qt::Key_Escape, {}, ""},     {Qt::Key_Down, {}, ""},
                                  {Qt::Key_Up, {}, ""},      {Qt::Key_Delete, {}, ""},      {Qt::Key_A, Qt::ControlModifier, ""}};
    const TKey& k = Top == &W ? window[Below(int(std::size(window)))] : typing[Below(int(std::size(typing)))];
    const QKeySequence seq(QKeyCombination(k.mods, Qt::Key(k.key)));
    if (Top == &W && Excluded(seq)) {
        Log("key " + seq.toString().toStdString() + " skipped");
        return;
    }
    // Now and then a key is held down: the press repeats as the keyboard does.
    const int repeats = Chance(10) ? 5 + Below(30) : 0;
    Log("key " + seq.toString().toStdString() + (repeats ? " held for " + std::to_string(repeats) + " repeats" : ""));
    Key(Top, k.key, k.mods, QString::fromUtf8(k.text), repeats);
}

void TMonkey::RandomAction()
{
    std::vector<QAction*> pool;
    std::function<void(QWidget*)> collect = [&](QWidget* Holder) {
        for (QAction* a : Holder->actions()) {
            if (a->menu()) {
                collect(a->menu());
                continue;
            }
            if (!a->isSeparator() && a->isEnabled() && a->isVisible() && a->text() != "&Quit" &&
                std::find(pool.begin(), pool.end(), a) == pool.end())
                pool.push_back(a);
        }
    };
    collect(W.menuBar());
    for (QToolBar* bar : W.findChildren<QToolBar*>())
        collect(bar);
    if (pool.empty())
        return;
    QAction* a = pool[std::size_t(Below(int(pool.size())))];
    Log("action \"" + a->text().toStdString() + "\"");
    a->trigger();
    Settle();
}

void TMonkey::Wheel(QWidget* Top, QPoint WindowPos)
{
    QWidget* target = Top->childAt(WindowPos);
    if (!target)
        target = Top;
    static const int deltas[] = {120, -120, 240, -240, 15, -15};
    const int delta = deltas[Below(int(std::size(deltas)))];
    const Qt::KeyboardModifiers mods = Chance(20) ? Qt::ControlModifier : Qt::NoModifier;
    const QPoint local = target->mapFrom(Top, WindowPos);
    Log("wheel " + std::to_string(delta) + " on " + target->metaObject()->className() + " " + Str(local));
    QWheelEvent ev(QPointF(local), Top->mapToGlobal(QPointF(WindowPos)), QPoint(), QPoint(0, delta), FButtons, mods,
                   Qt::NoScrollPhase, false);
    QApplication::sendEvent(target, &ev);
    Settle();
}

}  // namespace monkey
