// The application message pump: ProcessMessages handles pending events and returns; TModalLoop is a nested
// event loop on the GUI thread that a modal interaction (MouseBox) runs until its handlers call Quit.
#pragma once

#include <QEventLoop>

namespace qv {

void ProcessMessages();

class TModalLoop {
public:
    // Handles events until Quit; returns at once (and forgets the request) when Quit came first.
    void Run();
    void Quit();
    bool Running() const { return FRunning; }

private:
    QEventLoop FLoop;
    bool FRunning = false;
    bool FQuitRequested = false;
};

}  // namespace qv
