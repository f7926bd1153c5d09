// A monkey for the viewer window: random clicks, drags, wheel turns, keys and menu actions from a seed,
// delivered through Qt's own input path (so modality, mouse grabs, double-click detection and shortcuts
// behave as for a user), with the checks a user would make after every action:
// - no exception got out of an event handler (it would end the program in a user's hands);
// - no single input event kept the event loop away for longer than the hang limit;
// - no file of the data folder changed unless a save into it was answered;
// - no landmark moved unless a drag that started in the move tool carried it, and none lies at no place
//   on earth (a latitude past 90 degrees, not a number);
// - no progress dialog stays open once the action that opened it has returned.
// Modal dialogs get a few random events of their own and are then answered; file dialogs are answered at
// once, always with paths inside the scratch or data folder, so nothing outside the temp folder is written.
#pragma once

#include "viewer_window.h"

#include <QElapsedTimer>
#include <QEvent>
#include <QKeySequence>
#include <QPointer>
#include <QTimer>

#include <atomic>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <functional>
#include <map>
#include <mutex>
#include <set>
#include <string>
#include <thread>
#include <vector>

class QDialog;
class QMessageBox;
class QFileDialog;

namespace monkey {

struct TMonkeyOptions {
    std::uint64_t Seed = 1;
    int Events = 2000;
    // One input event may keep the event loop this long; longer is reported as a hang (see Checkpoint).
    int HangMs = 2000;
    // An action that has not returned after this long never will: the process is ended with the replay
    // text on standard error (0: ten times HangMs, at least 30 s).
    int AbortMs = 0;
    std::filesystem::path DataDir;     // the atlas the window was built over: watched for changes
    std::filesystem::path ScratchDir;  // files the monkey may write and open; made by the monkey
};

class TMonkey {
public:
    TMonkey(viewer::TViewerWindow& Window, TMonkeyOptions Options);
    ~TMonkey();
    TMonkey(const TMonkey&) = delete;
    TMonkey& operator=(const TMonkey&) = delete;

    // Runs the random actions until Options.Events were made or a fault was found; the fault, empty when
    // there was none.
    std::string Run();
    // One given action through the same checks as the random ones (for testing the checks themselves).
    std::string Act(const std::string& Description, const std::function<void()>& Do);
    // The seed, the event number, the fault and the last events: what replays a run.
    std::string Replay() const;
    int EventsMade() const { return FIndex; }
    // Every save the monkey answered into the data folder, in order.
    const std::vector<std::filesystem::path>& SavedIntoData() const { return FSavedIntoData; }

private:
    struct TFrame {
        QElapsedTimer Clock;
        qint64 NestedMs = 0;  // time spent in actions nested inside this one (in modal dialogs)
        int LoopLevel = 0;
        qint64 MarkElapsed = 0, MarkNested = 0;  // the clock and NestedMs at the last checkpoint
    };
    struct TFileState {
        std::uintmax_t Size = 0;
        std::filesystem::file_time_type Time;
        std::size_t Hash = 0;
    };

    std::uint64_t Next();
    int Below(int N) { return static_cast<int>(Next() % static_cast<std::uint64_t>(N)); }
    bool Chance(int Percent) { return Below(100) < Percent; }
    void Log(const std::string& Line);
    void SetFault(const std::string& Text);
    void Beat();

    void Tick();
    void OneEvent();
    void Pulse();
    void CheckAfterAction();

    void EventInto(QWidget* Top);
    void MainWindowEvent();
    void MapEvent();
    QPoint MapTarget();
    void RandomWidgetClick(QWidget* Top);
    void RandomKey(QWidget* Top);
    void RandomAction();
    void Wheel(QWidget* Top, QPoint WindowPos);
    void Mouse(QWidget* Top, QPoint WindowPos, QEvent::Type Type, Qt::MouseButton Button, Qt::KeyboardModifiers Mods = {});
    void Click(QWidget* Top, QPoint WindowPos, Qt::MouseButton Button, bool Double);
    void Key(QWidget* Top, int Key, Qt::KeyboardModifiers Mods, const QString& Text, int Repeats = 0);
    void Settle();
    void Checkpoint();

    void Answer(QWidget* Modal);
    void AnswerFile(QFileDialog& Dialog);
    void AnswerDialog(QDialog& Dialog);
    void WatchSaveButton(QMessageBox& Box);
    std::filesystem::path PickOpenFile(const QString& Title);

    bool Excluded(const QKeySequence& Keys) const;
    void MakeScratch();
    std::map<std::filesystem::path, TFileState> SnapshotData() const;
    std::vector<std::pair<double, double>> LandmarkPlaces();

    viewer::TViewerWindow& W;
    TMonkeyOptions FOpt;
    std::uint64_t FState;
    int FIndex = 0;
    std::string FFault;
    bool FStop = false;
    std::vector<TFrame> FFrames;
    QTimer FPulse;
    bool FNestedPending = false;
    std::map<QWidget*, int> FModalBudget;  // events left before a modal dialog is answered
    std::map<QWidget*, int> FFileTries;
    Qt::MouseButtons FButtons;
    QPointer<QWidget> FLastTop;  // where the last mouse event went, window pixels
    QPoint FLastPos;
    int FTime = 1000;  // event timestamps, ms
    bool FMoveAllowed = false;   // this action may move landmarks (a move-tool drag, a file opened)
    bool FLoadedFile = false;
    std::map<std::filesystem::path, TFileState> FFiles;
    std::vector<std::filesystem::path> FSavedIntoData;
    std::set<std::filesystem::path> FSavedThisAction;
    std::vector<std::filesystem::path> FOpenPool, FFolderPool;
    int FOutCount = 0;

    mutable std::mutex FLogMutex;
    std::deque<std::string> FLog;
    std::atomic<std::int64_t> FBeat{0};
    std::atomic<bool> FDone{false};
    std::thread FWatchdog;
};

}  // namespace monkey
