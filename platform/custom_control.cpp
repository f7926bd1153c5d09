#include <qvgeo/platform/custom_control.h>

#include <qvgeo/support/errors.h>

#include <QApplication>
#include <QMouseEvent>
#include <QPainter>
#include <QWheelEvent>

#include <cmath>
#include <stdexcept>

namespace qv {

namespace {

bool ButtonOf(Qt::MouseButton Button, TMouseButton& Out)
{
    switch (Button) {
    case Qt::LeftButton: Out = mbLeft; return true;
    case Qt::RightButton: Out = mbRight; return true;
    case Qt::MiddleButton: Out = mbMiddle; return true;
    default: return false;
    }
}

std::int32_t Px(qreal V) { return static_cast<std::int32_t>(std::floor(V)); }

}  // namespace

TShiftState ShiftStateOf(Qt::KeyboardModifiers Modifiers, Qt::MouseButtons Buttons)
{
    TShiftState s;
    if (Modifiers & Qt::ShiftModifier) s.Include(ssShift);
    if (Modifiers & Qt::AltModifier) s.Include(ssAlt);
    if (Modifiers & Qt::ControlModifier) s.Include(ssCtrl);
    if (Buttons & Qt::LeftButton) s.Include(ssLeft);
    if (Buttons & Qt::RightButton) s.Include(ssRight);
    if (Buttons & Qt::MiddleButton) s.Include(ssMiddle);
    return s;
}

TCustomControl::TCustomControl(QWidget* Parent) : QWidget(Parent)
{
    setMouseTracking(true);  // MouseMove also without a button held, as the controls expect
}

TCustomControl::~TCustomControl() = default;

void TCustomControl::SetName(const std::string& Name)
{
    FName = Name;
    setObjectName(QString::fromStdString(Name));
}

void TCustomControl::ReportError(const std::exception& Error)
{
    if (OnError) {
        try {
            OnError(Error);
            return;
        } catch (...) {
        }
    }
    qWarning("%s", ComponentMessage(FName, Error.what()).c_str());
}

void TCustomControl::Guarded(const std::function<void()>& Body)
{
    try {
        Body();
    } catch (const std::exception& e) {
        ReportError(e);
    } catch (...) {
        ReportError(std::runtime_error("unknown exception"));
    }
}

void TCustomControl::DrawBitmap(std::int32_t X, std::int32_t Y, const TBitmap& Bitmap, TRect SrcRect)
{
    if (FPainter)
        FPainter->drawImage(QPoint(X, Y), Bitmap.Image(),
                            QRect(SrcRect.Left, SrcRect.Top, SrcRect.Width(), SrcRect.Height()));
}

void TCustomControl::MouseDown(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    if (OnMouseDown)
        OnMouseDown(*this, Button, Shift, X, Y);
}

void TCustomControl::MouseMove(TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    if (OnMouseMove)
        OnMouseMove(*this, Shift, X, Y);
}

void TCustomControl::MouseUp(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    if (OnMouseUp)
        OnMouseUp(*this, Button, Shift, X, Y);
}

bool TCustomControl::MouseWheel(TShiftState Shift, std::int32_t WheelDelta, TPoint MousePos)
{
    bool handled = false;
    if (OnMouseWheel)
        OnMouseWheel(*this, Shift, WheelDelta, MousePos, handled);
    return handled;
}

void TCustomControl::Click()
{
    if (OnClick)
        OnClick(*this);
}

void TCustomControl::DblClick()
{
    if (OnDblClick)
        OnDblClick(*this);
}

void TCustomControl::Resize()
{
    if (OnResize)
        OnResize(*this);
}

void TCustomControl::paintEvent(QPaintEvent*)
{
    QPainter painter(this);
    FPainter = &painter;
    Guarded([&] { Paint(); });
    FPainter = nullptr;
}

void TCustomControl::mousePressEvent(QMouseEvent* Event)
{
    TMouseButton b;
    if (!ButtonOf(Event->button(), b))
        return;
    FClickPending = b == mbLeft;
    FInDoubleClick = false;
    FPressPos = Event->position().toPoint();
    const TShiftState s = ShiftStateOf(Event->modifiers(), Event->buttons());
    Guarded([&] { MouseDown(b, s, Px(Event->position().x()), Px(Event->position().y())); });
}

void TCustomControl::mouseDoubleClickEvent(QMouseEvent* Event)
{
    TMouseButton b;
    if (!ButtonOf(Event->button(), b))
        return;
    FClickPending = false;
    FInDoubleClick = true;
    TShiftState s = ShiftStateOf(Event->modifiers(), Event->buttons());
    s.Include(ssDouble);
    Guarded([&] { MouseDown(b, s, Px(Event->position().x()), Px(Event->position().y())); });
    if (b == mbLeft)
        Guarded([&] { DblClick(); });
}

void TCustomControl::mouseMoveEvent(QMouseEvent* Event)
{
    if (FClickPending &&
        (Event->position().toPoint() - FPressPos).manhattanLength() > QApplication::startDragDistance())
        FClickPending = false;
    const TShiftState s = ShiftStateOf(Event->modifiers(), Event->buttons());
    Guarded([&] { MouseMove(s, Px(Event->position().x()), Px(Event->position().y())); });
}

void TCustomControl::mouseReleaseEvent(QMouseEvent* Event)
{
    TMouseButton b;
    if (!ButtonOf(Event->button(), b))
        return;
    const TShiftState s = ShiftStateOf(Event->modifiers(), Event->buttons());
    const QPoint p = Event->position().toPoint();
    Guarded([&] { MouseUp(b, s, Px(Event->position().x()), Px(Event->position().y())); });
    const bool click = b == mbLeft && FClickPending && !FInDoubleClick && rect().contains(p);
    FClickPending = false;
    FInDoubleClick = false;
    if (click)
        Guarded([&] { Click(); });
}

void TCustomControl::wheelEvent(QWheelEvent* Event)
{
    const TShiftState s = ShiftStateOf(Event->modifiers(), Event->buttons());
    const TPoint pos{Px(Event->position().x()), Px(Event->position().y())};
    bool handled = false;
    Guarded([&] { handled = MouseWheel(s, Event->angleDelta().y(), pos); });
    Event->setAccepted(handled);
}

void TCustomControl::resizeEvent(QResizeEvent*)
{
    Guarded([&] { Resize(); });
}

}  // namespace qv
