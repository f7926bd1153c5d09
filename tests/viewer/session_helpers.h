// Scripted user sessions over the real viewer window: a bundled atlas and a settings file of its own in a
// scratch folder, modal dialogs answered as a user would, and a record of every file in the data folder
// to show that a session changed no file it was not asked to.
#pragma once

#include "viewer_window.h"

#include <QApplication>
#include <QDialog>
#include <QPushButton>
#include <QTest>
#include <QTimer>

#include <gtest/gtest.h>

#include <filesystem>
#include <fstream>
#include <functional>
#include <map>
#include <memory>
#include <sstream>
#include <string>

namespace session {

namespace fs = std::filesystem;

inline std::string ReadText(const fs::path& P)
{
    std::ifstream in(P, std::ios::binary);
    std::ostringstream s;
    s << in.rdbuf();
    return s.str();
}

// Every file under Dir with its bytes.
inline std::map<std::string, std::string> Snapshot(const fs::path& Dir)
{
    std::map<std::string, std::string> files;
    for (const auto& e : fs::recursive_directory_iterator(Dir))
        if (e.is_regular_file())
            files[fs::relative(e.path(), Dir).generic_string()] = ReadText(e.path());
    return files;
}

// Runs the events until Done holds or about ten seconds of waiting have passed; the result is Done's.
inline bool WaitFor(const std::function<bool()>& Done)
{
    for (int i = 0; i < 1000 && !Done(); ++i)
        QTest::qWait(10);
    return Done();
}

// Answers the next modal dialog of type T once it is up: Fill types into it and accepts or rejects it.
// Any other dialog that comes up instead fails the test and is cancelled, so that the session goes on.
template <typename T>
void AnswerNextModal(std::function<void(T&)> Fill)
{
    auto* timer = new QTimer;
    timer->setInterval(5);
    QObject::connect(timer, &QTimer::timeout, [timer, Fill] {
        QWidget* modal = QApplication::activeModalWidget();
        if (!modal)
            return;
        timer->stop();
        timer->deleteLater();
        if (auto* d = qobject_cast<T*>(modal)) {
            Fill(*d);
        } else if (auto* other = qobject_cast<QDialog*>(modal)) {
            ADD_FAILURE() << "another question came up: " << other->metaObject()->className();
            other->reject();
        }
    });
    timer->start();
}

class Session : public ::testing::Test {
protected:
    void SetUp() override
    {
        Dir = fs::temp_directory_path() / ("qvgeo-session-" + std::to_string(QCoreApplication::applicationPid()) + "-" +
                                           ::testing::UnitTest::GetInstance()->current_test_info()->name());
        fs::remove_all(Dir);
        Files = viewer::PrepareBundledAtlas((Dir / "data").string(), QVGEO_SOURCE_DIR "/data/samples");
        Settings = QString::fromStdString((Dir / "settings.ini").string());
        Before = Snapshot(Dir / "data");
        Open();
    }
    void TearDown() override
    {
        W.reset();
        fs::remove_all(Dir);
    }
    // A new window over the same data and settings: the viewer started again.
    void Open()
    {
        W.reset();
        W = std::make_unique<viewer::TViewerWindow>(Files, nullptr, Settings);
        W->resize(1400, 1000);
        W->show();
        ASSERT_TRUE(QTest::qWaitForWindowExposed(W.get()));
        QCoreApplication::processEvents();
    }
    void Select(const std::string& Leaf)
    {
        const std::int32_t n = W->MapNumber(Leaf);
        ASSERT_GT(n, 0) << Leaf;
        ASSERT_TRUE(W->Atlas().SelectMap(n)) << Leaf;
    }
    // Shows the map unmagnified from its top-left corner, so that a control pixel is an image pixel.
    void Unmagnified()
    {
        W->Map().SetMagnification(1.0);
        W->Map().SetTopLeft({0, 0});
        W->Map().Paint();
    }
    QPoint Control(qv::TPoint ImagePixel)
    {
        const qv::TPoint c = W->Map().MapImageToControl(ImagePixel);
        return {c.X, c.Y};
    }
    int Points() { return qv::ValidCalQuads(W->Map().CalibData()); }
    QPushButton* EditorButton(const char* Name) { return W->CalibEditor().findChild<QPushButton*>(Name); }
    // The files of the data folder that differ from the start (added, removed or changed), but Allowed.
    std::vector<std::string> Changed(const std::vector<std::string>& Allowed = {})
    {
        std::vector<std::string> changed;
        const auto now = Snapshot(Dir / "data");
        for (const auto& [f, bytes] : now)
            if (std::find(Allowed.begin(), Allowed.end(), f) == Allowed.end() && (!Before.count(f) || Before.at(f) != bytes))
                changed.push_back(f);
        for (const auto& [f, bytes] : Before)
            if (!now.count(f))
                changed.push_back(f);
        return changed;
    }

    fs::path Dir;
    viewer::TAtlasFiles Files;
    QString Settings;
    std::map<std::string, std::string> Before;
    std::unique_ptr<viewer::TViewerWindow> W;
};

}  // namespace session
