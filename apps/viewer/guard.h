// The viewer's exception barrier. No exception may reach Qt's event loop (Qt does not unwind through its
// own frames safely, and an escaped exception ends the program): every handler of an event, action, timer
// or signal in the viewer runs its body through RunGuarded, which reports the failure and goes on, and
// TGuardedApplication catches, as a last resort, whatever still gets through.
#pragma once

#include <QApplication>
#include <QString>

#include <functional>

namespace viewer {

// Runs Body. An exception it throws is passed to Report as one line of text and goes no further. True
// when Body returned normally.
bool RunGuarded(const std::function<void()>& Body, const std::function<void(const QString& Message)>& Report);

// The text of the exception being handled: what() of a std::exception, else "unknown error". Only valid
// inside a catch block.
QString CurrentExceptionText();

// Inside a catch block: passes the exception's text to Report; should Report throw as well, the text goes
// to stderr instead.
void ReportCurrentException(const std::function<void(const QString& Message)>& Report);

// Delivers an event through Deliver (QApplication::notify) and returns its result; when Deliver throws,
// the text goes to Report and the event counts as not handled. The body of TGuardedApplication::notify,
// kept apart so that it can be tested without a second application object; a template, so that the
// delivery of every event costs no allocation.
template <typename F>
bool DeliverGuarded(F&& Deliver, const std::function<void(const QString& Message)>& Report)
{
    try {
        return Deliver();
    } catch (...) {
        ReportCurrentException(Report);
        return false;
    }
}

// The viewer's application: every event goes through DeliverGuarded. An escaped exception is written to
// stderr and shown in a message box once the event loop is back in a clean state; the program goes on.
class TGuardedApplication : public QApplication {
public:
    TGuardedApplication(int& Argc, char** Argv);
    bool notify(QObject* Receiver, QEvent* Event) override;

private:
    void Escaped(const QString& Message);
    bool FBoxShown = false;  // one box at a time: an exception in every paint must not stack up boxes
};

}  // namespace viewer
