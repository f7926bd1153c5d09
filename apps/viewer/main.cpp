// qvgeo-viewer: the atlas of bundled maps with the geographic database, landmarks and the status bar.
//   qvgeo-viewer [--data DIR] [--screenshot FILE] [PATH...]   the window (FILE: grab it once shown, then
//       quit); each PATH (a picture, map, calibration, landmark or waypoint file, a folder of maps) is
//       opened as if dropped onto the window
//   qvgeo-viewer --tour DIR [--data DIR] [--plain]   renders the tour offscreen into DIR (--plain: with the
//       readable map off, as the map view draws by default)
#include "guard.h"
#include "viewer_window.h"

#include <QApplication>
#include <QDir>
#include <QPixmap>
#include <QSettings>
#include <QStandardPaths>
#include <QTimer>

#include <cstdio>
#include <cstring>
#include <string>

int main(int argc, char** argv)
{
    std::string tourDir, dataDir, screenshot;
    QStringList paths;
    bool plain = false;  // the tour with the readable map off
    for (int i = 1; i < argc; ++i) {
        const bool hasValue = i + 1 < argc;
        if (!std::strcmp(argv[i], "--tour") && hasValue)
            tourDir = argv[++i];
        else if (!std::strcmp(argv[i], "--data") && hasValue)
            dataDir = argv[++i];
        else if (!std::strcmp(argv[i], "--plain"))
            plain = true;
        else if (!std::strcmp(argv[i], "--screenshot") && hasValue)
            screenshot = argv[++i];
        else if (argv[i][0] != '-')
            paths << QString::fromLocal8Bit(argv[i]);
        else {
            std::fprintf(stderr, "usage: qvgeo-viewer [--data DIR] [--screenshot FILE] [PATH...] | --tour DIR [--data DIR] [--plain]\n");
            return 2;
        }
    }
    if (!tourDir.empty() && qEnvironmentVariableIsEmpty("QT_QPA_PLATFORM"))
        qputenv("QT_QPA_PLATFORM", "offscreen");
    // Every event goes through a guard: an exception that escaped the window's own handlers is reported,
    // and the viewer goes on, instead of ending the program with the user's unsaved work.
    viewer::TGuardedApplication app(argc, argv);
    QApplication::setApplicationName("qvgeo-viewer");
    try {
        if (dataDir.empty())
            dataDir = QStandardPaths::writableLocation(QStandardPaths::AppLocalDataLocation).toStdString() + "/atlas";
        const viewer::TAtlasFiles files =
            viewer::PrepareBundledAtlas(dataDir, viewer::FindSamplesDir(QCoreApplication::applicationDirPath().toStdString()));
        if (!tourDir.empty()) {
            const auto written = viewer::RenderTour(files, tourDir, !plain);
            for (const auto& f : written)
                std::printf("%s\n", f.c_str());
            return written.size() == 6 ? 0 : 1;
        }
        // The map folders added to the atlas are remembered in the user's settings.
        const QString settings = QSettings(QSettings::IniFormat, QSettings::UserScope, "qvgeo", "qvgeo-viewer").fileName();
        viewer::TViewerWindow w(files, nullptr, settings);
        w.show();
        // The whole first map in the window once it has its size.
        QTimer::singleShot(0, &w, [&] {
            w.Guard([&] {
                w.FitMap();
                if (!paths.isEmpty())
                    w.OpenPaths(paths);
            });
        });
        if (!screenshot.empty()) {
            QTimer::singleShot(1500, &w, [&] {
                const bool ok = w.grab().save(QString::fromStdString(screenshot));
                QApplication::exit(ok ? 0 : 1);
            });
        }
        return QApplication::exec();
    } catch (const std::exception& e) {
        std::fprintf(stderr, "qvgeo-viewer: %s\n", e.what());
        return 1;
    }
}
