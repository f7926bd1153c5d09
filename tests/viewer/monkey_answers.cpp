// The monkey's answers to dialogs and its files: what a modal dialog is told, the files offered to open
// dialogs and the folders to "Add map folder", and the snapshot of the data folder the checks compare.
#include "monkey_harness.h"

#include "interaction_fixture.h"
#include "landmark_dialog.h"
#include "place_dialog.h"

#include <QAbstractButton>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QInputDialog>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>

#include <fstream>

namespace monkey {
namespace fs = std::filesystem;
using viewer_test::ReadText;

namespace {

void WriteFile(const fs::path& P, const std::string& Text)
{
    std::ofstream(P, std::ios::binary | std::ios::trunc) << Text;
}

bool Inside(const fs::path& File, const fs::path& Dir)
{
    const std::string f = fs::weakly_canonical(File).string(), d = fs::weakly_canonical(Dir).string() + "/";
    return f.compare(0, d.size(), d) == 0;
}

}  // namespace

void TMonkey::Answer(QWidget* Modal)
{
    if (auto* f = qobject_cast<QFileDialog*>(Modal))
        return AnswerFile(*f);
    if (auto* box = qobject_cast<QMessageBox*>(Modal)) {
        const auto buttons = box->buttons();
        if (buttons.isEmpty()) {
            Log("message box closed");
            box->done(QMessageBox::Cancel);
            return;
        }
        QAbstractButton* b = buttons[Below(int(buttons.size()))];
        Log("message box \"" + box->text().left(60).toStdString() + "\": " + b->text().toStdString());
        b->click();
        return;
    }
    if (auto* d = qobject_cast<QDialog*>(Modal))
        return AnswerDialog(*d);
    Log("modal widget closed");
    Modal->close();
}

void TMonkey::WatchSaveButton(QMessageBox& Box)
{
    // Save in a question about unsaved landmarks writes them to the file they came from, with no file
    // dialog: a save the user asked for, whether the answer or a random click pressed it. (A calibration
    // is always saved through a file dialog.)
    QObject::connect(&Box, &QMessageBox::buttonClicked, &Box, [this, &Box](QAbstractButton* B) {
        if (Box.standardButton(B) != QMessageBox::Save || W.LandmarkFile().isEmpty())
            return;
        const fs::path path = W.LandmarkFile().toStdString();
        FSavedThisAction.insert(fs::weakly_canonical(path));
        if (Inside(path, FOpt.DataDir))
            FSavedIntoData.push_back(path);
    });
}

void TMonkey::AnswerDialog(QDialog& D)
{
    const bool ending = FStop || FIndex >= FOpt.Events;
    if (auto* place = qobject_cast<viewer::TPlaceDialog*>(&D)) {
        if (ending || Chance(30)) {
            Log("place dialog: Cancel");
            place->reject();
            return;
        }
        if (Chance(60)) {
            // Mostly places on the map shown, so that fits stay meaningful; sometimes anywhere on earth.
            double lat = Below(16001) / 100.0 - 80, lon = Below(36001) / 100.0 - 180;
            bool v1 = false, v2 = false;
            const qv::TPoint c = W.Map().ControlToMapImage({W.Map().width() / 2, W.Map().height() / 2});
            if (Chance(70)) {
                const double a = W.Map().CalcLatitude(c.X, c.Y, v1), b = W.Map().CalcLongitude(c.X, c.Y, v2);
                if (v1 && v2)
                    lat = a + (Below(201) - 100) / 1000.0, lon = b + (Below(201) - 100) / 1000.0;
            }
            place->PlaceEdit()->setText(QString("%1 %2").arg(lat, 0, 'f', 4).arg(lon, 0, 'f', 4));
        }
        Log("place dialog: OK with \"" + place->PlaceEdit()->text().toStdString() + "\"");
        if (place->OkButton()->isEnabled())
            place->OkButton()->click();
        else
            place->reject();
        return;
    }
    if (auto* lm = qobject_cast<viewer::TLandmarkDialog*>(&D)) {
        if (!ending && Chance(30))
            lm->CaptionEdit()->setText(QString("monkey %1").arg(FIndex));
        const bool ok = !ending && Chance(50);
        Log(std::string("landmark dialog: ") + (ok ? "OK" : "Cancel"));
        ok ? lm->accept() : lm->reject();
        return;
    }
    if (auto* in = qobject_cast<QInputDialog*>(&D)) {
        if (!in->comboBoxItems().isEmpty())
            in->setTextValue(in->comboBoxItems()[Below(int(in->comboBoxItems().size()))]);
        const bool ok = !ending && Chance(70);
        Log("input dialog \"" + in->windowTitle().toStdString() + "\": " + (ok ? "OK " + in->textValue().toStdString() : "Cancel"));
        ok ? in->accept() : in->reject();
        return;
    }
    if (auto* box = D.findChild<QDialogButtonBox*>(); box && !ending && !box->buttons().isEmpty()) {
        QAbstractButton* b = box->buttons()[Below(int(box->buttons().size()))];
        Log("dialog \"" + D.windowTitle().toStdString() + "\": " + b->text().toStdString());
        b->click();
        if (D.isVisible() && Chance(50))
            D.reject();
        return;
    }
    Log("dialog \"" + D.windowTitle().toStdString() + "\": rejected");
    D.reject();
}

void TMonkey::AnswerFile(QFileDialog& D)
{
    const QString title = D.windowTitle();
    const bool ending = FStop || FIndex >= FOpt.Events;
    if (ending || ++FFileTries[&D] > 3 || Chance(25)) {
        Log("file dialog \"" + title.toStdString() + "\": Cancel");
        D.reject();
        return;
    }
    fs::path path;
    const bool save = D.acceptMode() == QFileDialog::AcceptSave;
    if (D.fileMode() == QFileDialog::Directory) {
        path = FFolderPool[std::size_t(Below(int(FFolderPool.size())))];
    } else if (save) {
        const std::int32_t m = W.Atlas().CurrentMap();
        if (title == "Save landmarks" && Chance(30)) {
            path = FOpt.DataDir / "landmarks-vienna.xml";
        } else if (title == "Save calibration" && m > 0 && Chance(30)) {
            path = W.Atlas().GetMapDef(m).MapFName;
        } else {
            QString suffix = QFileInfo(D.selectedFiles().value(0)).suffix();
            if (title == "Export georeferencing") {
                static const char* kinds[] = {"vrt", "wld", "txt", "gcp"};
                suffix = kinds[Below(4)];
            }
            path = FOpt.ScratchDir / ("out-" + std::to_string(++FOutCount) + "." + (suffix.isEmpty() ? "dat" : suffix.toStdString()));
        }
    } else {
        path = PickOpenFile(title);
    }
    Log("file dialog \"" + title.toStdString() + "\": " + path.string());
    const QString file = QString::fromStdString(path.string());
    D.setDirectory(QString::fromStdString(path.parent_path().string()));
    D.selectFile(file);
    if (auto* edit = D.findChild<QLineEdit*>("fileNameEdit"))
        edit->setText(file);
    if (D.selectedFiles().value(0) != file) {
        // Never accept a name the dialog would resolve elsewhere: it might lie outside the temp folder.
        SetFault("the file dialog would not take " + path.string() + " (it has " +
                 D.selectedFiles().value(0).toStdString() + ")");
        D.reject();
        return;
    }
    static_cast<QDialog&>(D).accept();  // an existing file to save over asks first: answered in its turn
    if (D.isVisible() || D.result() != QDialog::Accepted)
        return;
    if (!save)
        FLoadedFile = true;
    else if (Inside(path, FOpt.DataDir)) {
        FSavedThisAction.insert(fs::weakly_canonical(path));
        FSavedIntoData.push_back(path);
    } else {
        FOpenPool.push_back(path);  // what was written may be opened again
    }
}

fs::path TMonkey::PickOpenFile(const QString&)
{
    return FOpenPool[std::size_t(Below(int(FOpenPool.size())))];
}

void TMonkey::MakeScratch()
{
    const fs::path s = FOpt.ScratchDir, maps = FOpt.DataDir / "maps";
    fs::create_directories(s);
    const std::string lm = ReadText(FOpt.DataDir / "landmarks-vienna.xml"), austria = ReadText(maps / "austria.xml");
    WriteFile(s / "empty.xml", "");
    WriteFile(s / "empty.wld", "");
    WriteFile(s / "garbage.xml", "<geomap");
    WriteFile(s / "garbage.txt", "1 2 3\nnot numbers\n");
    WriteFile(s / "truncated-calibration.xml", austria.substr(0, austria.size() / 2));
    WriteFile(s / "truncated-landmarks.xml", lm.substr(0, lm.size() / 2));
    FOpenPool = {FOpt.DataDir / "landmarks-vienna.xml", maps / "austria.xml", maps / "calib-vienna.xml", maps / "world.xml",
                 maps / "world.jpg", s / "empty.xml", s / "empty.wld", s / "garbage.xml", s / "garbage.txt",
                 s / "truncated-calibration.xml", s / "truncated-landmarks.xml", s / "missing.xml"};
    std::string big = lm;
    for (std::size_t at = big.find("capsize=\"9\""); at != std::string::npos; at = big.find("capsize=\"9\"", at))
        big.replace(at, 11, "capsize=\"5000\"");
    WriteFile(s / "huge-caption.xml", big);
    FOpenPool.push_back(s / "huge-caption.xml");
    // Folders for "Add map folder": a copy of the atlas's maps, an empty one and maps whose images
    // are broken (a text file named .jpg, a truncated JPEG).
    fs::create_directories(s / "maps-copy");
    fs::create_directories(s / "empty-folder");
    for (const char* f : {"austria.xml", "austria.bmp", "calib-vienna.xml", "calib-vienna.bmp"})
        fs::copy_file(maps / f, s / "maps-copy" / f, fs::copy_options::overwrite_existing);
    FFolderPool = {s / "maps-copy", s / "empty-folder"};
    const fs::path b = s / "broken-maps";
    fs::create_directories(b);
    // From the bundled samples, not the atlas's copy: a monkey (or a test of it) may have removed that.
    const fs::path samples = QVGEO_SOURCE_DIR "/data/samples";
    std::string world = ReadText(samples / "world.xml");
    const std::string jpg = ReadText(samples / "world.jpg");
    for (const char* name : {"text", "truncated"}) {
        std::string cal = world;
        cal.replace(cal.find("map=\"world.jpg\""), 15, std::string("map=\"") + name + ".jpg\"");
        cal.replace(cal.find("caption=\""), 9, std::string("caption=\"broken ") + name + " ");
        WriteFile(b / (std::string(name) + ".xml"), cal);
    }
    WriteFile(b / "text.jpg", "this is not a picture\n");
    WriteFile(b / "truncated.jpg", jpg.substr(0, jpg.size() / 3));
    FFolderPool.push_back(b);
}

std::map<fs::path, TMonkey::TFileState> TMonkey::SnapshotData() const
{
    std::map<fs::path, TFileState> files;
    for (const auto& e : fs::recursive_directory_iterator(FOpt.DataDir)) {
        if (!e.is_regular_file())
            continue;
        const fs::path p = fs::weakly_canonical(e.path());
        TFileState s{e.file_size(), e.last_write_time(), 0};
        const auto old = FFiles.find(p);
        // Unchanged size and time: the bytes are taken as read before (a rewrite of other bytes in the same
        // tick of the clock with the same size is the one change this misses).
        s.Hash = old != FFiles.end() && old->second.Size == s.Size && old->second.Time == s.Time
                     ? old->second.Hash
                     : std::hash<std::string>{}(ReadText(p));
        files.emplace(p, s);
    }
    return files;
}

std::vector<std::pair<double, double>> TMonkey::LandmarkPlaces()
{
    std::vector<std::pair<double, double>> v;
    for (std::int32_t k = 1; k <= W.Map().NumLandMarks(); ++k) {
        const qv::TLandMark l = W.Map().GetLandMarkData(k);
        v.emplace_back(l.Latitude, l.Longitude);
    }
    return v;
}

}  // namespace monkey
