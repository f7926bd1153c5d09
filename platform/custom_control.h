// TCustomControl: the QWidget that the map and atlas controls derive from. It turns Qt's events into the
// handlers the controls are written with (Paint, MouseDown, MouseMove, MouseUp, MouseWheel, Click,
// DblClick, Resize: buttons and shift state as the controls name them), and each default handler fires
// the matching public event (OnMouseDown ... OnResize), which the controls republish.
//
// Click: a left press and release on the control, the mouse not moved further than Qt's drag distance in
// between, and not the release of a double click. A double click arrives as MouseDown with ssDouble in
// Shift, then DblClick, then MouseUp.
//
// Exceptions: a handler (or an event it fires) that throws never unwinds into Qt's event loop: the base
// class catches the exception and passes it to OnError, or, when OnError is empty or throws itself, writes
// "Component \"<Name>\": <message>" with qWarning.
#pragma once

#include <qvgeo/platform/bitmap.h>

#include <QWidget>

#include <cstdint>
#include <exception>
#include <functional>
#include <string>

class QPainter;

namespace qv {

enum TMouseButton : std::uint8_t { mbLeft, mbRight, mbMiddle };
enum TShiftStateFlag : std::uint8_t { ssShift, ssAlt, ssCtrl, ssLeft, ssRight, ssMiddle, ssDouble };
enum TComponentStateFlag : std::uint8_t { csLoading, csDesigning };

// A small set of enumeration values (ordinals below 32), as the controls' state sets are used.
template <typename E>
struct TFlagSet {
    std::uint32_t Bits = 0;
    constexpr TFlagSet() = default;
    constexpr TFlagSet(std::initializer_list<E> Flags)
    {
        for (E f : Flags)
            Include(f);
    }
    constexpr bool Contains(E Flag) const { return (Bits >> Flag) & 1u; }
    constexpr void Include(E Flag) { Bits |= 1u << Flag; }
    constexpr void Exclude(E Flag) { Bits &= ~(1u << Flag); }
    constexpr bool Empty() const { return Bits == 0; }
    friend constexpr bool operator==(TFlagSet, TFlagSet) = default;
};
using TShiftState = TFlagSet<TShiftStateFlag>;
using TComponentState = TFlagSet<TComponentStateFlag>;

class TCustomControl : public QWidget {
    Q_OBJECT
public:
    explicit TCustomControl(QWidget* Parent = nullptr);
    ~TCustomControl() override;

    const std::string& Name() const { return FName; }
    // Virtual: a control that names parts of its own (the map view's calibration and landmarks) renames
    // them too when it is renamed through a TCustomControl reference.
    virtual void SetName(const std::string& Name);
    TComponentState ComponentState() const { return FComponentState; }
    void SetComponentState(TComponentState State) { FComponentState = State; }
    std::int32_t Width() const { return width(); }
    std::int32_t Height() const { return height(); }
    bool Visible() const { return isVisible(); }
    // Schedules a repaint (paintEvent then calls Paint).
    void Invalidate() { update(); }

    std::function<void(TCustomControl& Sender, TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y)>
        OnMouseDown, OnMouseUp;
    std::function<void(TCustomControl& Sender, TShiftState Shift, std::int32_t X, std::int32_t Y)> OnMouseMove;
    // WheelDelta: 120 per notch, positive away from the user; Handled starts false.
    std::function<void(TCustomControl& Sender, TShiftState Shift, std::int32_t WheelDelta, TPoint MousePos,
                       bool& Handled)>
        OnMouseWheel;
    std::function<void(TCustomControl& Sender)> OnClick, OnDblClick, OnResize;
    std::function<void(const std::exception& Error)> OnError;

protected:
    // The control's drawing, called from paintEvent; DrawBitmap draws onto the control meanwhile.
    virtual void Paint() {}
    void DrawBitmap(std::int32_t X, std::int32_t Y, const TBitmap& Bitmap, TRect SrcRect);
    QPainter* Painter() { return FPainter; }

    virtual void MouseDown(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y);
    virtual void MouseMove(TShiftState Shift, std::int32_t X, std::int32_t Y);
    virtual void MouseUp(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y);
    // Returns whether the wheel was handled (an unhandled wheel event goes on to the parent widget).
    virtual bool MouseWheel(TShiftState Shift, std::int32_t WheelDelta, TPoint MousePos);
    virtual void Click();
    virtual void DblClick();
    virtual void Resize();

    // Runs Body, reporting any exception through OnError instead of letting it reach Qt.
    void Guarded(const std::function<void()>& Body);
    virtual void ReportError(const std::exception& Error);

    void paintEvent(QPaintEvent* Event) override;
    void mousePressEvent(QMouseEvent* Event) override;
    void mouseDoubleClickEvent(QMouseEvent* Event) override;
    void mouseMoveEvent(QMouseEvent* Event) override;
    void mouseReleaseEvent(QMouseEvent* Event) override;
    void wheelEvent(QWheelEvent* Event) override;
    void resizeEvent(QResizeEvent* Event) override;

private:
    std::string FName;
    TComponentState FComponentState;
    QPainter* FPainter = nullptr;  // set only while paintEvent runs
    bool FClickPending = false;
    bool FInDoubleClick = false;
    QPoint FPressPos;
};

// The shift state of Qt's modifiers and held buttons.
TShiftState ShiftStateOf(Qt::KeyboardModifiers Modifiers, Qt::MouseButtons Buttons);

}  // namespace qv
