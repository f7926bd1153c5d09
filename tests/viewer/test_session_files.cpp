// The viewer's map files as a user meets them: broken calibrations, added folders, uncalibrated images.
#include "interaction_fixture.h"

#include "map_files.h"

#include <QListWidget>
#include <QSettings>

namespace {

using namespace viewer_test;
using FilesSession = TCalibrateFixture;

void WriteAll(const fs::path& P, const std::string& Text)
{
    std::ofstream(P, std::ios::binary) << Text;
}

TEST_F(FilesSession, BadCalibrationFilesAreRefusedWithTheReason)
{
    Select("calib-vienna.xml");
    W->CalibEditor().show();
    const std::string good = ReadText(fs::path(Files.MapDir) / "calib-vienna.xml");
    // 201 quads: one more than a calibration holds.
    std::string quads;
    for (int i = 0; i < 201; ++i)
        quads += "[48.1,16.2," + std::to_string(i) + ",5] ";
    const std::string tooMany = "<geomap sig=\"Quorvanta\" id=\"x\" model=\"equirect\" map=\"calib-vienna.bmp\">\n<calquads npoints=\"201\">\n" +
                                quads + "\n</calquads>\n</geomap>\n";
    const fs::path scratch = Dir / "files";
    fs::create_directories(scratch);
    const struct {
        const char* name;
        std::string text;  // written as is; "<dir>" makes a folder, "<sparse>" a 65 MB file of zero bytes
        const char* reason;
    } files[] = {
        {"empty.xml", "", "is empty: it holds no calibration"},
        {"truncated.xml", good.substr(0, good.find("[5337750")), "specified number of calibration points and actual number does not match"},
        {"cut-header.xml", good.substr(0, 60), "holds no calibration"},
        {"binary.xml", std::string("\x89PNG\r\n\x1a\n\0\0\0\rIHDR", 16), "holds no calibration"},
        {"bad-line.xml", "<geomap sig=\"Quorvanta\" id=\"x\">\n<calline type=\"diagonal\" value=\"1\" npoints=\"1\">\n[1,2] \n</calline>\n</geomap>\n",
         "invalid type of graticule line"},
        {"too-many.xml", tooMany, "more than 200"},
        {"no-points.xml", "<geomap sig=\"Quorvanta\" id=\"x\" model=\"utm\">\n</geomap>\n", "has no points"},
        {"huge.xml", "<sparse>", "too large for a calibration file"},
        {"folder.xml", "<dir>", "no such file"},
        {"missing.xml", "<none>", "no such file"},
    };
    const qv::TCalibData shown = W->Map().CalibData();
    const qv::TCalibModel model = W->Map().Calibration().CalibModel();
    for (const auto& f : files) {
        const fs::path p = scratch / f.name;
        if (f.text == "<dir>")
            fs::create_directories(p);
        else if (f.text == "<sparse>") {
            WriteAll(p, good);
            fs::resize_file(p, std::uintmax_t{65} << 20);
        } else if (f.text != "<none>")
            WriteAll(p, f.text);
        W->CalibEditor().AskOpenName = [p] { return QString::fromStdString(p.string()); };
        QTest::mouseClick(EditorButton("calibration-open"), Qt::LeftButton);
        const std::string message = W->CalibEditor().MessageText().toStdString();
        EXPECT_NE(message.find(f.reason), std::string::npos) << f.name << ": " << message;
        EXPECT_NE(message.find(p.string()), std::string::npos) << f.name << ": " << message;
        // The map keeps what it showed.
        EXPECT_TRUE(W->Map().CalibData() == shown) << f.name;
        EXPECT_EQ(W->Map().Calibration().CalibModel(), model) << f.name;
    }
    // A good file elsewhere opens with the image found beside it, and clears the message.
    const fs::path copy = scratch / "copy";
    fs::create_directories(copy);
    fs::copy_file(fs::path(Files.MapDir) / "austria.xml", copy / "Austria.XML");
    fs::copy_file(fs::path(Files.MapDir) / "austria.bmp", copy / "Austria.BMP");
    W->CalibEditor().AskOpenName = [&] { return QString::fromStdString((copy / "Austria.XML").string()); };
    QTest::mouseClick(EditorButton("calibration-open"), Qt::LeftButton);
    EXPECT_EQ(W->CalibEditor().MessageText(), QString());
    EXPECT_EQ(W->Map().CalibData().Caption, "Austria");
    EXPECT_EQ(W->Map().MapWidth(), 900);
    EXPECT_EQ(W->CalibEditor().PointList()->count(), Points());
    EXPECT_EQ(Changed(), std::vector<std::string>{});
}

TEST_F(FilesSession, AddedFoldersAreReportedKeptInTheListAndRemembered)
{
    // A folder with one calibrated map and one image no calibration names.
    const fs::path extra = Dir / "extra maps";
    fs::create_directories(extra);
    fs::copy_file(fs::path(Files.MapDir) / "vienna-region.xml", extra / "region-copy.xml");
    fs::copy_file(fs::path(Files.MapDir) / "vienna-region.bmp", extra / "vienna-region.bmp");
    fs::copy_file(fs::path(Files.MapDir) / "calib-vienna.bmp", extra / "scan.bmp");
    const std::int32_t before = W->Atlas().NumRegMaps();
    ASSERT_GT(W->Atlas().CurrentMap(), 0);
    const QString shown = W->Atlas().MapSelector()->currentText();
    ASSERT_FALSE(shown.isEmpty());

    const auto problems = W->AddMapFolder(QString::fromStdString(extra.string()));
    EXPECT_EQ(W->Atlas().NumRegMaps(), before + 1);
    EXPECT_EQ(W->Atlas().MapSelector()->currentText(), shown);  // the list still names the map shown
    EXPECT_TRUE(W->FolderReport().startsWith("1 map registered from ")) << W->FolderReport().toStdString();
    ASSERT_EQ(problems.size(), 1u);
    EXPECT_EQ(fs::path(problems[0].File).filename(), "scan.bmp");
    EXPECT_NE(W->FolderReport().indexOf("scan.bmp: an image without a calibration"), -1);
    EXPECT_EQ(W->RememberedFolders(), QStringList{QString::fromStdString(extra.string())});

    // Counts as the report words them.
    for (const auto& [n, text] : {std::pair(0, "0 maps"), std::pair(1, "1 map"), std::pair(2, "2 maps"), std::pair(200, "200 maps")})
        EXPECT_EQ(viewer::MapCountText(n), text);

    // Started again, the viewer has the folder's map; the bundled folder is never stored.
    NewWindow();
    EXPECT_EQ(W->Atlas().NumRegMaps(), before + 1);
    EXPECT_GT(W->MapNumber("region-copy.xml"), 0);
    W->AddMapFolder(QString::fromStdString(Files.MapDir));
    EXPECT_EQ(W->RememberedFolders().size(), 1);
    // The settings are the test's own file.
    EXPECT_EQ(QSettings(Settings, QSettings::IniFormat).value("atlas/folders").toStringList().size(), 1);
    EXPECT_EQ(Changed(), std::vector<std::string>{});
}

TEST_F(FilesSession, AnImageWithoutCalibrationIsCalibratedAndJoinsTheAtlas)
{
    const fs::path folder = Dir / "new scans";
    fs::create_directories(folder);
    fs::copy_file(fs::path(Files.MapDir) / "calib-vienna.bmp", folder / "Wien-Scan.bmp");
    QString error;
    EXPECT_FALSE(W->OpenImage(QString::fromStdString((folder / "nothing.bmp").string()), error));
    EXPECT_FALSE(error.isEmpty());
    ASSERT_TRUE(W->OpenImage(QString::fromStdString((folder / "Wien-Scan.bmp").string()), error)) << error.toStdString();
    EXPECT_EQ(Points(), 0);
    EXPECT_EQ(W->Map().Calibration().CalibModel(), qv::cmEquiRect);
    EXPECT_EQ(W->Tool(), viewer::TTool::CalibPoint);
    EXPECT_TRUE(W->CalibEditor().isVisible());
    EXPECT_EQ(W->Atlas().MapSelector()->currentIndex(), -1);  // no map of the atlas is shown

    // The user's calibration makes the scan twice as coarse as it is (25 m a pixel): between the Vienna
    // region (79 m) and the bundled scan (12.5 m), so that an atlas zoom picks it.
    Unmagnified();
    const std::vector<TAnswer> points = {
        {{100, 100}, 48.25, 16.25}, {{500, 100}, 48.25, 16.3848}, {{100, 400}, 48.1826, 16.25}, {{500, 400}, 48.1826, 16.3848}};
    for (const TAnswer& p : points)
        ASSERT_TRUE(ClickAndAnswer(p, false)) << W->CalibEditor().MessageText().toStdString();
    QString suggested;
    W->CalibEditor().AskSaveName = [&](const QString& S) {
        suggested = S;
        return S;
    };
    QTest::mouseClick(EditorButton("calibration-save"), Qt::LeftButton);
    const fs::path saved = folder / "Wien-Scan.xml";
    EXPECT_EQ(suggested.toStdString(), saved.string());
    const qv::TCalibData d = ReadSaved(saved.string(), qv::cmEquiRect, points, 0.5e-5);
    EXPECT_EQ(d.MapFName, "wien-scan.bmp");  // beside the file; the reader lower-cases it
    EXPECT_EQ(d.Caption, "Wien-Scan");
    EXPECT_NEAR(d.Resolution, 25.0, 0.5);

    // It is the atlas's map now: shown under its own name, with its picture, and the next zoom-in from the
    // Vienna region picks it.
    const std::int32_t mine = W->MapNumber("wien-scan.xml");
    ASSERT_GT(mine, 0);
    EXPECT_EQ(W->Atlas().CurrentMap(), mine);
    EXPECT_EQ(W->Atlas().MapSelector()->currentText(), "Wien-Scan");
    EXPECT_EQ(W->Map().MapWidth(), 800);
    Select("vienna-region.xml");
    Reactivate();
    Key(Qt::Key_Z);
    ASSERT_EQ(W->Tool(), viewer::TTool::AtlasZoom);
    W->Map().ZoomFitPage();
    QTest::mouseClick(&W->Map(), Qt::LeftButton, {}, At(48.21, 16.39));
    EXPECT_EQ(W->Atlas().CurrentMap(), mine);

    // And at the next start.
    NewWindow();
    EXPECT_GT(W->MapNumber("wien-scan.xml"), 0);
    EXPECT_EQ(Changed(), std::vector<std::string>{});
}

}  // namespace
