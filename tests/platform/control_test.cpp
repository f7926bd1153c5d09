// TCustomControl driven by QTest mouse events, the nested loop and cursors (the clipboard: the map's copy).
#include <qvgeo/platform/cursors.h>
#include <qvgeo/platform/custom_control.h>
#include <qvgeo/platform/message_pump.h>

#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <stdexcept>
#include <string>
#include <vector>

using namespace qv;

namespace {

// Records the handler calls as text, e.g. "down 0 s=9 5,6"; the default handlers still fire the events.
class TRecorder : public TCustomControl {
public:
    std::vector<std::string> Calls;
    bool ThrowOnClick = false;

protected:
    void Log(const char* What, TMouseButton B, TShiftState S, std::int32_t X, std::int32_t Y)
    {
        Calls.push_back(What + std::to_string(B) + " s=" + std::to_string(S.Bits) + " " + std::to_string(X) + "," +
                        std::to_string(Y));
    }
    void MouseDown(TMouseButton B, TShiftState S, std::int32_t X, std::int32_t Y) override
    {
        Log("down ", B, S, X, Y);
        TCustomControl::MouseDown(B, S, X, Y);
    }
    void MouseUp(TMouseButton B, TShiftState S, std::int32_t X, std::int32_t Y) override
    {
        Log("up ", B, S, X, Y);
        TCustomControl::MouseUp(B, S, X, Y);
    }
    void Click() override
    {
        Calls.push_back("click");
        if (ThrowOnClick)
            throw std::runtime_error("click failed");
        TCustomControl::Click();
    }
    void DblClick() override
    {
        Calls.push_back("dblclick");
        TCustomControl::DblClick();
    }
};

std::string Bits(TShiftState S) { return std::to_string(S.Bits); }

}  // namespace

TEST(CustomControl, MouseClicksArriveWithButtonShiftStateAndClick)
{
    TRecorder c;
    c.resize(50, 40);
    c.show();
    int clicks = 0, downs = 0;
    c.OnClick = [&](TCustomControl&) { ++clicks; };
    c.OnMouseDown = [&](TCustomControl&, TMouseButton, TShiftState, std::int32_t, std::int32_t) { ++downs; };
    QTest::mouseClick(&c, Qt::LeftButton, Qt::ShiftModifier, QPoint(5, 6));
    QTest::mouseClick(&c, Qt::RightButton, Qt::ControlModifier | Qt::AltModifier, QPoint(7, 8));
    EXPECT_EQ(c.Calls, (std::vector<std::string>{"down 0 s=" + Bits({ssShift, ssLeft}) + " 5,6", "up 0 s=" + Bits({ssShift}) + " 5,6",
                                                 "click", "down 1 s=" + Bits({ssCtrl, ssAlt, ssRight}) + " 7,8",
                                                 "up 1 s=" + Bits({ssCtrl, ssAlt}) + " 7,8"}));
    EXPECT_EQ(clicks, 1);  // the right button does not click
    EXPECT_EQ(downs, 2);

    // A drag is no click; a double click reports ssDouble and DblClick.
    c.Calls.clear();
    QTest::mousePress(&c, Qt::LeftButton, {}, QPoint(5, 5));
    QTest::mouseMove(&c, QPoint(30, 30));
    QTest::mouseRelease(&c, Qt::LeftButton, {}, QPoint(30, 30));
    EXPECT_EQ(std::count(c.Calls.begin(), c.Calls.end(), "click"), 0);
    c.Calls.clear();
    QTest::mouseDClick(&c, Qt::LeftButton, {}, QPoint(9, 9));
    EXPECT_NE(std::find(c.Calls.begin(), c.Calls.end(), "down 0 s=" + Bits({ssLeft, ssDouble}) + " 9,9"), c.Calls.end());
    EXPECT_NE(std::find(c.Calls.begin(), c.Calls.end(), "dblclick"), c.Calls.end());
}

TEST(CustomControl, ExceptionsFromHandlersReachOnError)
{
    TRecorder c;
    c.resize(20, 20);
    c.show();
    c.SetName("Map1");
    c.ThrowOnClick = true;
    std::string error;
    c.OnError = [&](const std::exception& e) { error = e.what(); };
    QTest::mouseClick(&c, Qt::LeftButton, {}, QPoint(3, 3));
    EXPECT_EQ(error, "click failed");
    int resized = 0;
    c.OnResize = [&](TCustomControl& s) {
        ++resized;
        throw std::runtime_error("resize " + std::to_string(s.Width()));
    };
    c.resize(31, 20);
    ProcessMessages();
    EXPECT_EQ(resized, 1);
    EXPECT_EQ(error, "resize 31");
    EXPECT_EQ(c.Name(), "Map1");
    c.SetComponentState({csDesigning});
    EXPECT_TRUE(c.ComponentState().Contains(csDesigning));
    EXPECT_FALSE(c.ComponentState().Contains(csLoading));
}

TEST(MessagePump, ModalLoopRunsUntilQuit)
{
    TModalLoop loop;
    int ticks = 0;
    QTimer timer;
    QObject::connect(&timer, &QTimer::timeout, [&] {
        EXPECT_TRUE(loop.Running());
        if (++ticks == 3)
            loop.Quit();
    });
    timer.start(1);
    loop.Run();
    EXPECT_EQ(ticks, 3);
    EXPECT_FALSE(loop.Running());
    loop.Quit();  // before Run: Run returns at once
    loop.Run();
}

TEST(Cursors, PackageCursorsComeFromResourcesAndNumbersCanBeRegistered)
{
    for (TCursor n : {crGeoZoom, crGeoHand, crGeoZoomWindow, crGeoSelect, crGeoLandMark}) {
        const QCursor c = GetCursor(n);
        EXPECT_EQ(c.shape(), Qt::BitmapCursor) << n;
        EXPECT_EQ(c.pixmap().size(), QSize(32, 32)) << n;
    }
    EXPECT_EQ(GetCursor(crGeoZoom).hotSpot(), QPoint(12, 12));
    EXPECT_EQ(GetCursor(crCross).shape(), Qt::CrossCursor);
    EXPECT_EQ(GetCursor(4711).shape(), Qt::ArrowCursor);
    RegisterCursor(4711, QCursor(Qt::WaitCursor));
    EXPECT_EQ(GetCursor(4711).shape(), Qt::WaitCursor);
    EXPECT_EQ(LoadCursorResource("NOSUCHCURSOR").shape(), Qt::ArrowCursor);
}
