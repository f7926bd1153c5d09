// The monkey over the real viewer window: a seeded run of random input (QVGEO_MONKEY_SEED, default 1;
// QVGEO_MONKEY_EVENTS, default 2000; QVGEO_MONKEY_TRACE prints every event), and the checks of the
// monkey itself, each shown a fault it must report.
#include "interaction_fixture.h"
#include "monkey_harness.h"

#include <QApplication>
#include <QDir>
#include <QMessageBox>
#include <QProgressDialog>
#include <QSettings>
#include <QTest>

#include <gtest/gtest.h>

#include <chrono>
#include <cstdio>
#include <fstream>
#include <thread>

namespace fs = std::filesystem;
using monkey::TMonkey;
using monkey::TMonkeyOptions;

namespace {

// The sanitizer build is an unoptimised one as well, several times slower than Release: its limit for
// one action is wider by the same factor, so that only a hang trips it there too.
#if defined(__SANITIZE_ADDRESS__) || !defined(NDEBUG)
constexpr int kHangMs = 10000;
#else
constexpr int kHangMs = 2000;
#endif

std::uint64_t EnvNumber(const char* Name, std::uint64_t Default)
{
    const QByteArray v = qgetenv(Name);
    bool ok = false;
    const qulonglong n = v.toULongLong(&ok);
    return ok ? n : Default;
}

class ViewerMonkey : public viewer_test::TViewerFixture {
protected:
    static void SetUpTestSuite()
    {
        Root = fs::temp_directory_path() / ("qvgeo-monkey-" + std::to_string(QCoreApplication::applicationPid()));
        fs::create_directories(Root);
        // Nothing the window or its file dialogs do may reach the user's files: their settings and
        // relative paths land here.
        const QString settings = QString::fromStdString((Root / "settings").string());
        for (QSettings::Format f : {QSettings::NativeFormat, QSettings::IniFormat})
            for (QSettings::Scope s : {QSettings::UserScope, QSettings::SystemScope})
                QSettings::setPath(f, s, settings);
        OldDir = QDir::currentPath();
        QDir::setCurrent(QString::fromStdString(Root.string()));
    }
    static void TearDownTestSuite()
    {
        QDir::setCurrent(OldDir);
        fs::remove_all(Root);
    }
    void TearDown() override
    {
        // Whatever the monkey left open is closed with the window.
        for (QWidget* w : QApplication::topLevelWidgets())
            if (w != W.get() && w->isVisible())
                w->close();
        TViewerFixture::TearDown();
    }
    TMonkeyOptions Options(std::uint64_t Seed, int Events)
    {
        TMonkeyOptions o;
        o.Seed = Seed;
        o.Events = Events;
        o.HangMs = kHangMs;
        o.DataDir = Dir / "data";
        o.ScratchDir = Dir / "scratch";
        return o;
    }

    static inline fs::path Root;
    static inline QString OldDir;
};

TEST_F(ViewerMonkey, RandomSessionBreaksNothing)
{
    TMonkeyOptions o = Options(EnvNumber("QVGEO_MONKEY_SEED", 1), int(EnvNumber("QVGEO_MONKEY_EVENTS", 2000)));
    TMonkey m(*W, o);
    const std::string fault = m.Run();
    EXPECT_EQ(fault, "") << m.Replay();
    std::printf("monkey seed %llu: %d events, %zu saves into the data folder\n", static_cast<unsigned long long>(o.Seed),
                m.EventsMade(), m.SavedIntoData().size());
}

// The checks of the monkey itself: one planted fault each, run through the same path as a random
// action. A check that never fires would let the random run pass whatever the window does.
TEST_F(ViewerMonkey, ReportsEveryKindOfFault)
{
    const fs::path landmarks = Files.LandmarkFile;
    const struct {
        const char* name;
        std::function<void()> fault;
        const char* reported;
    } cases[] = {
        {"exception from a handler", [] { throw std::runtime_error("planted"); }, "exception left an event handler: planted"},
        {"landmark file rewritten",
         [&] { std::ofstream(landmarks, std::ios::app) << "\n"; }, "changed without a save"},
        {"calibration file rewritten",
         [&] { std::ofstream(fs::path(Files.MapDir) / "austria.xml", std::ios::app) << " "; }, "changed without a save"},
        {"new file in the data folder", [&] { std::ofstream(fs::path(Files.MapDir) / "stray.xml") << "x"; }, "appeared"},
        {"file removed", [&] { fs::remove(fs::path(Files.MapDir) / "world.xml"); }, "was removed"},
        {"landmark moved",
         [&] {
             qv::TLandMark l = W->Map().GetLandMarkData(1);
             l.Latitude += 0.001;
             W->Map().SetLandMarkData(1, l);
         },
         "landmark 1 moved"},
        {"landmark at no place",
         [&] { W->Map().AddLandMark(-417.6, 250.1, 0); },
         "lies at no place on earth: -417.6, 250.1"},
        {"progress dialog left open",
         [&] { new QProgressDialog("stuck", "Cancel", 0, 10, W.get()); }, "\"stuck\" is still open"},
        {"a long action",
         [] {
             const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(400);
             while (std::chrono::steady_clock::now() < end) {
             }
         },
         "event kept the event loop"},
    };
    for (const auto& c : cases) {
        SCOPED_TRACE(c.name);
        TearDown();
        SetUp();
        TMonkeyOptions o = Options(7, 10);
        o.HangMs = 100;  // the long action takes four times this
        TMonkey m(*W, o);
        EXPECT_EQ(m.Act("nothing", [] {}), "");
        const std::string fault = m.Act(c.name, c.fault);
        EXPECT_NE(fault.find(c.reported), std::string::npos) << fault;
        EXPECT_NE(m.Replay().find(c.name), std::string::npos) << m.Replay();
        for (QProgressDialog* p : W->findChildren<QProgressDialog*>())
            delete p;
    }
}

// An action that never returns cannot be timed when it is over: the watchdog ends the process with the
// replay text.
TEST_F(ViewerMonkey, HangEndsTheProcessWithTheReplay)
{
    GTEST_FLAG_SET(death_test_style, "threadsafe");
    TMonkeyOptions o = Options(11, 10);
    o.AbortMs = 300;
    EXPECT_DEATH(
        {
            TMonkey m(*W, o);
            m.Act("endless paint", [this] {
                fs::remove_all(Root);  // this process dies before its tear-downs would remove these
                fs::remove_all(Dir);
                for (;;)
                    std::this_thread::sleep_for(std::chrono::milliseconds(10));
            });
        },
        "a hang(.|\n)*monkey seed 11(.|\n)*#1 .*endless paint");
}

// A modal dialog opened by an action is worked and answered by the monkey (the action returns), the time
// it stays open is not charged to the action, and a save it answers into the data folder is allowed.
TEST_F(ViewerMonkey, ModalDialogsAreAnsweredAndSavesAllowed)
{
    TMonkeyOptions o = Options(3, 400);
    TMonkey m(*W, o);
    int answered = 0;
    for (int i = 0; i < 20; ++i)
        EXPECT_EQ(m.Act("question", [&] {
            QMessageBox::question(W.get(), "Monkey", "Answer?");
            ++answered;
        }), "") << m.Replay();
    EXPECT_EQ(answered, 20);
    QAction* save = nullptr;
    for (QAction* a : W->findChildren<QAction*>())
        if (a->text() == "&Save landmarks...")
            save = a;
    ASSERT_NE(save, nullptr);
    // Saves are answered with the data folder's landmark file at times, with a scratch file otherwise.
    for (int i = 0; i < 60 && m.SavedIntoData().empty(); ++i)
        ASSERT_EQ(m.Act("save", [&] { save->trigger(); }), "") << m.Replay();
    ASSERT_FALSE(m.SavedIntoData().empty());
    EXPECT_EQ(m.SavedIntoData()[0], fs::path(Files.LandmarkFile));
}

}  // namespace
