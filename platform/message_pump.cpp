#include <qvgeo/platform/message_pump.h>

#include <QCoreApplication>

namespace qv {

void ProcessMessages() { QCoreApplication::processEvents(QEventLoop::AllEvents); }

void TModalLoop::Run()
{
    if (FQuitRequested || FRunning) {
        FQuitRequested = false;
        return;
    }
    FRunning = true;
    FLoop.exec();
    FRunning = false;
    FQuitRequested = false;
}

void TModalLoop::Quit()
{
    FQuitRequested = true;
    FLoop.quit();
}

}  // namespace qv
