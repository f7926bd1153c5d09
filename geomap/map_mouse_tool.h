// TMapMouseTool: the map view's mouse and keyboard interaction as a state machine without any widget.
//
// The widget turns each of its input events into one call here (press, move, release, double click,
// wheel, pinch, key, abort) and gets back what happened: the exclusive-or feedback figures that were
// drawn or erased, and the events to raise, in the order they must be raised (repaint before OnZoomPan,
// OnZoomPan before the zoom-history push of a key, ...). The tool changes only its own state and the
// viewport it was given; calling the application's handlers, painting and running MouseBox's nested loop
// stay with the widget. Because the tool's state is complete before the first event is raised, a handler
// that throws leaves nothing half done: the widget calls Abort, which drops the drag.
//
// Positions: control pixels (origin top-left of the control, y down) in, map-image pixels for what the
// application is told about rubber bands and clicks, degrees for selections and landmarks.
#pragma once

#include <qvgeo/geomap/map_viewport.h>
#include <qvgeo/support/geometry_types.h>

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <new>
#include <stdexcept>
#include <type_traits>
#include <vector>

namespace qv {

class TMapCalibration;

// Mouse modes by their fixed ordinals; the ordinals not named have no behaviour in the map.
// maLandMark (20) is this control's own: a left press converts the pixel under the pointer to latitude and
// longitude and adds a landmark there from the template DefaultLandMark() (its altitude included), asking
// OnLandMarkAction first; the press of a double click adds nothing, and nothing is added where the
// calibration cannot convert the pixel.
enum TMouseActMode : std::uint8_t {
    maNone = 0, maPan = 1, maPanHoriz = 2, maPanVert = 3, maRubberBand = 5, maZoomWindow = 7, maDragZoom = 9,
    maSelectRect = 16, maLandMark = 20
};
using TZoomState = std::uint8_t;      // 0 idle, 1 zoom box being dragged
using TMouseBoxState = std::uint8_t;  // 0 idle, 1 waiting for the first corner, 2 first corner set, 3 done

// An exclusive-or feedback figure over the frame, white pen, clear brush. Drawing a figure that is shown
// removes it (drawing twice erases), exactly as the pixels behave.
enum TMouseFigureKind : std::uint8_t { mfBox, mfDottedBox, mfLine };
struct TMouseFigure {
    TMouseFigureKind Kind = mfBox;
    TControlPixel A, B;  // box corners (TCanvas::Rectangle), or a line from A (B left out)
    friend bool operator==(const TMouseFigure&, const TMouseFigure&) = default;
};

enum class TToolButton : std::uint8_t { Left, Right, Middle };
// The keys and buttons held with a mouse or key event.
struct TToolShiftState {
    bool Shift = false, Alt = false, Ctrl = false;
    bool LeftHeld = false;  // the left button is down (what a move needs to know)
};
// The keys the map navigates with; everything else is Other (left to the application).
enum class TMapKey : std::uint8_t { Left, Right, Up, Down, ZoomIn, ZoomOut, Home, Other };

// What the widget has to do, one entry each, in order.
enum class TMouseToolAction : std::uint8_t {
    Repaint,             // the view changed: render it again
    ZoomPan,             // DoZoomPanEvent
    PushView,            // ZoomStateOnStack
    BeginRubberBand,     // OnBeginRubberBand(Pixel)
    ContinueRubberBand,  // OnContinueRubberBand(Pixel)
    EndRubberBand,       // OnEndRubberBand(Pixel)
    SelectRect,          // DoSelectRectEvent(SelectKind, V[0..3])
    AddLandMark,         // add a landmark at latitude V[0], longitude V[1] (the store asks OnLandMarkAction)
    MouseBoxState,       // the mouse box reached BoxState; 0 and 3 end a running MouseBox
};

struct TMouseToolEvent {
    TMouseToolAction Action = TMouseToolAction::Repaint;
    TMapPixel Pixel;                // the rubber band's map pixel
    std::int32_t SelectKind = 0;    // SelectRect: 1 geographic corners, 0 map-pixel corners
    double V[4] = {0, 0, 0, 0};
    TMouseBoxState BoxState = 0;
    friend bool operator==(const TMouseToolEvent&, const TMouseToolEvent&) = default;
};

// A list of at most N entries held in place: a mouse move must not allocate, nor fill a buffer it does not
// use (the rules bound the counts: no event gives more than five actions or four figures). The storage is
// raw until an entry is added, which is why the entries must be trivially copyable.
template <class T, std::size_t N>
class TFixedList {
    static_assert(std::is_trivially_copyable_v<T> && std::is_trivially_destructible_v<T>);

public:
    TFixedList() {}  // not "= default": that would value-initialise the storage on every event
    TFixedList(const TFixedList& Other) : FCount(Other.FCount) { std::memcpy(FRaw, Other.FRaw, FCount * sizeof(T)); }
    TFixedList& operator=(const TFixedList& Other)
    {
        FCount = Other.FCount;
        std::memmove(FRaw, Other.FRaw, FCount * sizeof(T));
        return *this;
    }
    void push_back(const T& Value)
    {
        if (FCount == N)
            throw std::length_error("TFixedList: more entries than the mouse rules give");
        ::new (static_cast<void*>(FRaw + FCount * sizeof(T))) T(Value);
        ++FCount;
    }
    // An empty list has no entry to launder a pointer to (null + 0 is a valid end).
    const T* begin() const { return FCount == 0 ? nullptr : std::launder(reinterpret_cast<const T*>(FRaw)); }
    const T* end() const { return begin() + FCount; }
    std::size_t size() const { return FCount; }
    bool empty() const { return FCount == 0; }
    const T& operator[](std::size_t I) const { return begin()[I]; }

private:
    std::size_t FCount = 0;
    alignas(T) unsigned char FRaw[N * sizeof(T)];
};

struct TMouseToolResult {
    TFixedList<TMouseToolEvent, 6> Events;
    TFixedList<TMouseFigure, 4> Toggled;  // figures drawn or erased, in order (each needs its area redrawn)
    bool FiguresCleared = false;        // several figures went at once: redraw the whole control
    bool Handled = false;               // wheel and key: the event was used by the map
    bool ViewChanged() const;
};

class TMapMouseTool {
public:
    // Both must outlive the tool. The calibration converts pixels for selections and landmarks only.
    TMapMouseTool(TMapViewport& View, const TMapCalibration& Calib) : FView(View), FCalib(Calib) {}
    TMapMouseTool(const TMapMouseTool&) = delete;
    TMapMouseTool& operator=(const TMapMouseTool&) = delete;

    // ---- settings ----
    TMouseActMode Mode() const { return FMouseAction; }
    void SetMode(TMouseActMode Value) { FMouseAction = Value; }  // a plain store: a drag in progress goes on
    // Pans and gesture zooms keep the view on the map (TMapViewport::Confine).
    bool ConfinePan() const { return FConfinePan; }
    void SetConfinePan(bool Value) { FConfinePan = Value; }
    // Zoom windows and selection boxes whose sides are both at most this many control pixels count as
    // clicks; 0 keeps every box.
    std::int32_t HitTolerance() const { return FHitTolerance; }
    void SetHitTolerance(std::int32_t Value) { FHitTolerance = Value > 0 ? Value : 0; }

    // ---- input ----
    TMouseToolResult Press(TToolButton Button, TToolShiftState Shift, TControlPixel P);
    // The second press of a double click: a press that places no landmark.
    TMouseToolResult DoubleClick(TToolButton Button, TToolShiftState Shift, TControlPixel P);
    TMouseToolResult Move(TToolShiftState Shift, TControlPixel P);
    TMouseToolResult Release(TToolButton Button, TToolShiftState Shift, TControlPixel P);
    // Wheel zoom about (X, Y): 1.25 times per notch of 120 units, pushed on the history. Not handled
    // without a map or with a zero delta.
    TMouseToolResult Wheel(std::int32_t Delta, double X, double Y);
    // A pinch step: the magnification times Factor about (X, Y); ignored without a map or for a factor
    // that is not a positive number.
    TMouseToolResult Pinch(double X, double Y, double Factor);
    // The end of a pinch: pushes the view when a pinch step came before, or always with Always.
    TMouseToolResult PinchEnd(bool Always);
    // Arrows pan by an eighth of the view (at least one map pixel), ZoomIn and ZoomOut zoom by 1.25 about
    // the view's centre, Home fits the whole map; each step is pushed and fires ZoomPan. Modifiers do not
    // change the steps. Not handled without a map or for Other.
    TMouseToolResult Key(TMapKey Key, TToolShiftState Shift);
    // Drops whatever the mouse has begun: rubber band, zoom window, selection box, pan or drag-zoom drag
    // end without their end events, every figure goes, a mouse box returns to 0.
    TMouseToolResult Abort();

    // ---- the mouse box ----
    // Waits for the first corner (state 1); false when a box is already being asked for.
    bool BeginMouseBox();
    // The completed box (state 3), each pair ordered; false in any other state.
    bool MouseBoxResult(std::int32_t& X1, std::int32_t& Y1, std::int32_t& X2, std::int32_t& Y2) const;
    // Back to state 0, erasing the feedback box of state 2.
    TMouseToolResult EndMouseBox();

    // ---- state ----
    TZoomState ZoomState() const { return FZoomState; }
    TMouseBoxState MouseBoxState() const { return FMouseBoxState; }
    bool RubberBandOn() const { return FRubberBandOn; }
    bool SelectRectOn() const { return FSelectRectOn; }
    bool Dragging() const { return FLButtonWasDown; }  // a pan or drag-zoom drag is anchored
    // Map-image pixels of the last press and of the last move.
    TMapPixel LastClick() const { return FLastMClickPos; }
    void SetLastClick(TMapPixel P) { FLastMClickPos = P; }
    TMapPixel LastMove() const { return FLastMMousePos; }
    // The figures shown now, oldest first.
    const std::vector<TMouseFigure>& Figures() const { return FFigures; }
    // Copies the classic state of Source (mode, drag anchors, zoom window, mouse box); the rubber band,
    // the selection and the figures stay as they are.
    void AssignState(const TMapMouseTool& Source);

private:
    TMouseToolResult PressBody(TToolButton Button, TToolShiftState Shift, TControlPixel P, bool Double);
    void DragMove(TControlPixel P, TMouseToolResult& R);
    void ReleaseSelect(TControlPixel P, TMouseToolResult& R);
    void ZoomAtPoint(double X, double Y, double Factor, TMouseToolResult& R);
    void XorFigure(TMouseFigureKind Kind, TControlPixel A, TControlPixel B, TMouseToolResult& R);
    void SetBoxState(TMouseBoxState State, TMouseToolResult& R);
    bool WithinTolerance(TControlPixel A, TControlPixel B) const;
    static TMouseToolEvent Ev(TMouseToolAction Action, TMapPixel Pixel = {})
    {
        TMouseToolEvent e;
        e.Action = Action;
        e.Pixel = Pixel;
        return e;
    }
    static void Add(TMouseToolResult& R, TMouseToolAction Action) { R.Events.push_back(Ev(Action)); }

    TMapViewport& FView;
    const TMapCalibration& FCalib;
    TMouseActMode FMouseAction = maPan;
    bool FConfinePan = true;
    std::int32_t FHitTolerance = 0;

    TZoomState FZoomState = 0;
    TMouseBoxState FMouseBoxState = 0;
    TControlPixel FMouseBox1, FMouseBox2;         // first corner, and the corner last drawn / second corner
    TControlPixel FWindAnchor, FWindOldCorner;    // zoom window or selection: where it started, last corner
    bool FRubberBandOn = false, FSelectRectOn = false;
    TControlPixel FRubberBAnchor, FRubberBandOld;  // the running band's segment start and last end
    bool FLButtonWasDown = false;
    TControlPixel FMouseAnchor;  // where a pan or drag zoom started
    TMapPixel FTopLeftAnchor;    // the view's top-left map pixel then
    TMapPixel FLastMClickPos, FLastMMousePos;
    bool FPinching = false;
    std::vector<TMouseFigure> FFigures;
};

}  // namespace qv
