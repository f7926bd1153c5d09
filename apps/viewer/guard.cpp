#include "guard.h"

#include <QMessageBox>
#include <QTimer>

#include <cstdio>
#include <exception>

namespace viewer {

QString CurrentExceptionText()
{
    try {
        throw;
    } catch (const std::exception& e) {
        return QString::fromUtf8(e.what());
    } catch (...) {
        return QStringLiteral("unknown error");
    }
}

void ReportCurrentException(const std::function<void(const QString&)>& Report)
{
    const QString text = CurrentExceptionText();
    // A report that fails itself must not undo the barrier.
    try {
        Report(text);
    } catch (...) {
        std::fprintf(stderr, "qvgeo-viewer: %s\n", text.toLocal8Bit().constData());
    }
}

bool RunGuarded(const std::function<void()>& Body, const std::function<void(const QString&)>& Report)
{
    try {
        Body();
        return true;
    } catch (...) {
        ReportCurrentException(Report);
        return false;
    }
}

TGuardedApplication::TGuardedApplication(int& Argc, char** Argv) : QApplication(Argc, Argv) {}

bool TGuardedApplication::notify(QObject* Receiver, QEvent* Event)
{
    return DeliverGuarded([&] { return QApplication::notify(Receiver, Event); },
                          [this](const QString& Message) { Escaped(Message); });
}

void TGuardedApplication::Escaped(const QString& Message)
{
    std::fprintf(stderr, "qvgeo-viewer: unhandled error: %s\n", Message.toLocal8Bit().constData());
    if (FBoxShown)
        return;
    FBoxShown = true;
    // Not from inside the failed delivery: the box runs its own event loop.
    QTimer::singleShot(0, this, [this, Message] {
        QMessageBox::critical(activeWindow(), "qvgeo viewer", "An operation failed: " + Message);
        FBoxShown = false;
    });
}

}  // namespace viewer
