#include "calib_editor.h"

#include "guard.h"
#include "map_files.h"

#include <QComboBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QListWidget>
#include <QCoreApplication>
#include <QProgressDialog>
#include <QPushButton>
#include <QSpinBox>
#include <QSaveFile>
#include <QTimer>
#include <QVBoxLayout>

#include <qvgeo/geobasics/transverse_mercator.h>
#include <qvgeo/geomap/calibration_file.h>

#include <algorithm>
#include <cmath>
#include <filesystem>
#include <fstream>
#include <sstream>

namespace viewer {

namespace {

namespace fs = std::filesystem;

// A calibration of 200 points is about 10 kB, and files that carry landmarks beside it rarely reach a
// megabyte: anything beyond this is not a calibration picked by mistake but a file to refuse unread.
constexpr std::uintmax_t kMaxCalibFileBytes = 64u << 20;

QString Keyword(qv::TCalibModel M)
{
    return QString::fromUtf8(qv::CalibModelKeywords[M].data(), int(qv::CalibModelKeywords[M].size()));
}

bool IsDegreeModel(qv::TCalibModel M)
{
    return std::find(std::begin(TCalibEditor::Models), std::end(TCalibEditor::Models), M) != std::end(TCalibEditor::Models);
}

// UTM metres of a place in a given zone rather than in the place's own: points near a zone boundary
// stay in the map's zone, as its grid does. Degrees in, metres out.
void PlaceToZone(double Lat, double Long, int Zone, bool South, qv::TGeoEllipsoid Ellipsoid, double& Northing,
                 double& Easting)
{
    constexpr double kRad = 3.14159265358979323846 / 180.0;
    double x = 0, y = 0;
    qv::LatLongToTM(Lat * kRad, Long * kRad, qv::UTMCentralMeridian(Zone), Ellipsoid, x, y);
    Easting = x * qv::UTMScaleFactor + qv::UTMFalseEasting;
    Northing = y * qv::UTMScaleFactor + (South ? qv::UTMFalseNorthingSouth : 0.0);
}

// The image name a calibration file at CalFile gives Image: its bare name when both share a folder (the
// readers look for images beside the file), its full path otherwise.
std::string ImageNameFor(const std::string& CalFile, const std::string& Image)
{
    const fs::path image = fs::absolute(Image).lexically_normal();
    if (image.parent_path() == fs::absolute(CalFile).lexically_normal().parent_path())
        return image.filename().string();
    return image.string();
}

}  // namespace

void PumpProgressEvents(const QProgressDialog& Dialog)
{
    QCoreApplication::processEvents(Dialog.isVisible() ? QEventLoop::AllEvents : QEventLoop::ExcludeUserInputEvents);
}

TCalibEditor::TCalibEditor(qv::TGeoMap& Map, QWidget* Parent) : QDockWidget("Calibration", Parent), FMap(Map)
{
    setObjectName("calibration-editor");
    auto* body = new QWidget(this);
    auto* v = new QVBoxLayout(body);
    auto* form = new QFormLayout;
    FModel = new QComboBox(body);
    for (qv::TCalibModel m : ListModels)
        FModel->addItem(Keyword(m));
    FModel->setPlaceholderText("choose a model");
    connect(FModel, &QComboBox::activated, this, [this](int i) { Guarded([&] { SetModel(ListModels[i]); }); });
    form->addRow("Model", FModel);
    FExaggeration = new QSpinBox(body);
    FExaggeration->setRange(1, 1000);
    FExaggeration->setValue(10);
    FExaggeration->setSuffix(" x");
    connect(FExaggeration, &QSpinBox::valueChanged, this, [this] { Guarded([this] { FMap.Paint(); }); });
    form->addRow("Residual vectors", FExaggeration);
    v->addLayout(form);
    FSummary = new QLabel(body);
    FSummary->setWordWrap(true);
    FWarning = new QLabel(body);
    FWarning->setWordWrap(true);
    FWarning->setStyleSheet("color: #b00000; font-weight: bold");
    FMessage = new QLabel(body);
    FMessage->setWordWrap(true);
    FMessage->setObjectName("calibration-message");
    FPoints = new QListWidget(body);
    v->addWidget(FSummary);
    v->addWidget(FWarning);
    v->addWidget(FMessage);
    v->addWidget(FPoints, 1);
    auto* buttons = new QHBoxLayout;
    auto* open = new QPushButton("Open...", body);
    auto* save = new QPushButton("Save...", body);
    auto* clear = new QPushButton("Clear points", body);
    buttons->addWidget(open);
    buttons->addWidget(save);
    buttons->addWidget(clear);
    v->addLayout(buttons);
    connect(clear, &QPushButton::clicked, this, [this] { Guarded([this] { ClearPoints(); }); });
    open->setObjectName("calibration-open");
    clear->setObjectName("calibration-clear");
    save->setObjectName("calibration-save");
    AskOpenName = [this] { return QFileDialog::getOpenFileName(this, "Open calibration", {}, "Calibration (*.xml);;All files (*)"); };
    AskSaveName = [this](const QString& Suggested) {
        return QFileDialog::getSaveFileName(this, "Save calibration", Suggested, "Calibration (*.xml)");
    };
    connect(open, &QPushButton::clicked, this, [this] {
        Guarded([this] {
            const QString f = AskOpenName ? AskOpenName() : QString();
            if (!f.isEmpty())
                OpenFile(f, {});
        });
    });
    connect(save, &QPushButton::clicked, this, [this] { Guarded([this] {
        // Beside the image, named after it: where the atlas and the open dialogs look for it.
        const std::string image = ImageFile();
        const QString suggested =
            image.empty() ? QString("calibration.xml")
                          : QString::fromStdString((fs::path(image).parent_path() / fs::path(image).stem()).string() + ".xml");
        const QString f = AskSaveName ? AskSaveName(suggested) : QString();
        if (!f.isEmpty())
            SaveFile(f);
    }); });
    setWidget(body);
}

bool TCalibEditor::SetModel(qv::TCalibModel Model)
{
    qv::TMapCalibration& cal = FMap.Calibration();
    const qv::TCalibModel old = cal.CalibModel();
    const qv::TCalibData before = cal.CalibData();
    const int n = qv::ValidCalQuads(before);
    // Under utm the quads hold metres, under every other model degrees: a change of kind converts them.
    if (n > 0 && (Model == qv::cmUTM) != (old == qv::cmUTM)) {
        qv::TCalibData d = before;
        if (Model == qv::cmUTM) {
            if (d.UTMZone < 1 || d.UTMZone > 60) {
                double lat = 0, lon = 0;
                for (int i = 0; i < n; ++i)
                    lat += d.CalQuads[std::size_t(i)].Latitude / n, lon += d.CalQuads[std::size_t(i)].Longitude / n;
                char band = ' ';
                qv::GeoToUTMZone(lat, lon, d.UTMZone, band);
                d.UTMSouth = lat < 0;
                if (d.UTMZone == 0) {
                    SetMessage("The points lie outside the UTM area: the utm model cannot take them");
                    Refresh();
                    return false;
                }
            }
            for (int i = 0; i < n; ++i) {
                qv::TCalQuad& q = d.CalQuads[std::size_t(i)];
                PlaceToZone(q.Latitude, q.Longitude, d.UTMZone, d.UTMSouth, d.Ellipsoid, q.Latitude, q.Longitude);
            }
        } else {
            if (d.UTMZone < 1 || d.UTMZone > 60) {
                SetMessage("The map has no UTM zone: its points cannot be turned into degrees");
                Refresh();
                return false;
            }
            for (int i = 0; i < n; ++i) {
                qv::TCalQuad& q = d.CalQuads[std::size_t(i)];
                const double northing = q.Latitude, easting = q.Longitude;
                qv::UTMToLatLong(easting, northing, d.UTMZone, d.UTMSouth, d.Ellipsoid, q.Latitude, q.Longitude);
            }
        }
        cal.CalibData() = d;
    }
    // The conic fit counts one step per round of its apex search, 20 in all; the others a step or two.
    qv::TMathProgress progress;
    QProgressDialog dlg("Fitting the reference points...", "Cancel", 0, Model == qv::cmConicConformal ? 20 : 0, this);
    dlg.setWindowModality(Qt::WindowModal);  // no new points while the fit runs
    dlg.setMinimumDuration(400);             // a quick fit shows nothing
    progress.FeedBack = [&](double Steps) {
        dlg.setValue(std::min(static_cast<int>(Steps), dlg.maximum()));
        PumpProgressEvents(dlg);
        if (dlg.wasCanceled())
            progress.Abort = true;
    };
    const bool done = cal.SetCalibModel(Model, &progress);
    if (!done)
        cal.CalibData() = before;  // the previous fit stays, and it belongs to the points as they were
    SetMessage(done ? QString() : QString("The %1 fit was cancelled").arg(Keyword(Model)));
    Refresh();
    return done;
}

bool TCalibEditor::AddPoint(std::int32_t X, std::int32_t Y, double Lat, double Long)
{
    const qv::TCalibModel m = FMap.Calibration().CalibModel();
    if (m == qv::cmUTM) {
        SetMessage("The utm model takes a northing and an easting in metres, not degrees");
        return false;
    }
    if (!ReadyForPoints())
        return false;
    if (qv::ValidCalQuads(FMap.CalibData()) >= qv::MaxCalQuads) {
        SetMessage(QString("The map has %1 points, as many as a calibration takes").arg(qv::MaxCalQuads));
        return false;
    }
    return AddAndReport([&] { return FMap.AddCalibPoint(Lat, Long, X, Y); });
}

bool TCalibEditor::AddUTMPoint(std::int32_t X, std::int32_t Y, double Northing, double Easting, std::int32_t Zone,
                               qv::THemisphere Hemisphere)
{
    qv::TMapCalibration& cal = FMap.Calibration();
    if (cal.CalibModel() != qv::cmUTM) {
        SetMessage(QString("The %1 model takes latitude and longitude; choose utm for metres").arg(Keyword(cal.CalibModel())));
        return false;
    }
    if (Zone < 1 || Zone > 60) {
        SetMessage(QString("There is no UTM zone %1: zones run from 1 to 60").arg(Zone));
        return false;
    }
    const int n = qv::ValidCalQuads(cal.CalibData());
    if (n >= qv::MaxCalQuads) {
        SetMessage(QString("The map has %1 points, as many as a calibration takes").arg(qv::MaxCalQuads));
        return false;
    }
    if (n == 0) {
        cal.SetUTMZone(Zone);
        cal.SetUTMHemisphere(Hemisphere);
    } else if (cal.UTMZone() != Zone || cal.UTMHemisphere() != Hemisphere) {
        SetMessage(QString("The map's points are in zone %1%2; this one is in zone %3%4")
                       .arg(cal.UTMZone())
                       .arg(cal.UTMHemisphere() == qv::hemiSouth ? 'S' : 'N')
                       .arg(Zone)
                       .arg(Hemisphere == qv::hemiSouth ? 'S' : 'N'));
        return false;
    }
    return AddAndReport([&] { return FMap.AddCalibPoint(Northing, Easting, Zone, Hemisphere, X, Y); });
}

bool TCalibEditor::AddAndReport(const std::function<bool()>& Add)
{
    bool ok = false;
    try {
        ok = Add();
    } catch (const std::exception& e) {
        SetMessage(QString::fromStdString(e.what()));
        return false;
    }
    SetMessage({});
    Refresh();
    return ok;
}

bool TCalibEditor::ReadyForPoints()
{
    const qv::TCalibModel m = FMap.Calibration().CalibModel();
    if (m == qv::cmUTM || IsDegreeModel(m))
        return true;
    SetMessage("Choose the model in the list before adding points");
    return false;
}

void TCalibEditor::ClearPoints()
{
    FMap.ClearCalibData();
    Refresh();
}

int TCalibEditor::PointAt(std::int32_t X, std::int32_t Y) const
{
    int best = 0;
    double bestD2 = 64.0;
    for (int i = 0; i < qv::ValidCalQuads(FMap.CalibData()); ++i) {
        const qv::TCalQuad& q = FMap.CalibData().CalQuads[static_cast<std::size_t>(i)];
        const qv::TPoint p = FMap.MapImageToControl({q.MapX, q.MapY});
        const double d2 = double(p.X - X) * (p.X - X) + double(p.Y - Y) * (p.Y - Y);
        if (d2 <= bestD2)
            best = i + 1, bestD2 = d2;
    }
    return best;
}

void TCalibEditor::MovePoint(int Index, std::int32_t X, std::int32_t Y)
{
    if (Index < 1 || Index > qv::ValidCalQuads(FMap.CalibData()))
        return;
    qv::TCalQuad& q = FMap.Calibration().CalibData().CalQuads[static_cast<std::size_t>(Index - 1)];
    if (q.MapX == X && q.MapY == Y)
        return;
    q.MapX = X;
    q.MapY = Y;
    FMap.RecalcCalibration();
    Refresh();
}

bool TCalibEditor::OpenFile(const QString& File, const QString& Id)
{
    const std::string name = File.toStdString();
    std::error_code ec;
    const bool regular = fs::is_regular_file(name, ec);
    const std::uintmax_t size = regular ? fs::file_size(name, ec) : 0;
    if (!regular || ec) {
        SetMessage(QString("Cannot open %1: no such file").arg(File));
        return false;
    }
    if (size == 0) {
        SetMessage(QString("%1 is empty: it holds no calibration").arg(File));
        return false;
    }
    if (size > kMaxCalibFileBytes) {
        SetMessage(QString("%1 is %2 MB, too large for a calibration file").arg(File).arg(size >> 20));
        return false;
    }
    qv::TCalibData data;
    qv::TCalibModel model = qv::cmUndefined;
    try {
        if (!qv::ParseCalibData(name, Id.toStdString(), data, model)) {
            SetMessage(Id.isEmpty() ? QString("%1 holds no calibration").arg(File)
                                    : QString("%1 holds no calibration \"%2\"").arg(File, Id));
            return false;
        }
    } catch (const std::exception& e) {
        SetMessage(QString("%1 cannot be read: %2").arg(File, QString::fromStdString(e.what())));
        return false;
    }
    if (qv::ValidCalQuads(data) == 0 && qv::ValidCalLines(data) == 0) {
        SetMessage(QString("The calibration in %1 has no points").arg(File));
        return false;
    }
    // The image is looked for beside the file, not beside the map shown; without one there the
    // calibration goes onto the image shown (a copy of the same picture elsewhere, say).
    QString note;
    const std::string image = data.MapFName.empty() ? std::string() : qv::FindImageBeside(name, data.MapFName);
    if (!image.empty() && fs::is_regular_file(image, ec)) {
        try {
            FMap.SetMapImgName(fs::absolute(image).string());
        } catch (const std::exception& e) {
            SetMessage(QString("The image of %1 cannot be shown: %2").arg(File, QString::fromStdString(e.what())));
            return false;
        }
    } else {
        note = QString("The image \"%1\" is not beside %2: the calibration is put on the image shown")
                   .arg(QString::fromStdString(data.MapFName), File);
    }
    FMap.Calibration().LoadCalibData(data, model);
    SetMessage(note);
    Refresh();
    emit FileSynced(File);
    return true;
}

bool TCalibEditor::SaveFile(const QString& File)
{
    qv::TMapCalibration& cal = FMap.Calibration();
    if (qv::ValidCalQuads(cal.CalibData()) == 0 && qv::ValidCalLines(cal.CalibData()) == 0) {
        SetMessage("There are no points to save");
        return false;
    }
    const std::string out = File.toStdString();
    cal.CalcExtentsAndResolution();
    qv::TCalibData d = cal.CalibData();
    if (const std::string image = ImageFile(); !image.empty())
        d.MapFName = ImageNameFor(out, image);
    std::string bytes;
    try {
        std::string old;
        if (std::ifstream in(out, std::ios::binary); in) {
            std::ostringstream all;
            all << in.rdbuf();
            old = all.str();
        }
        bytes = ReplaceFirstCalibration(old, "viewer", [&](const std::string& Id, bool WithHeader) {
            std::ostringstream text;
            qv::WriteRawCalDataToOpenXMLFile(text, WithHeader, Id, d, cal.CalibModel());
            return text.str();
        });
    } catch (const std::exception& e) {
        SetMessage(QString("Cannot write %1: %2").arg(File, QString::fromStdString(e.what())));
        return false;
    }
    // Written aside and renamed over the file: a failed write leaves the old calibration whole.
    QSaveFile f(File);
    if (!f.open(QIODevice::WriteOnly) || f.write(bytes.data(), qint64(bytes.size())) != qint64(bytes.size()) || !f.commit()) {
        SetMessage(QString("Cannot write %1: %2").arg(File, f.errorString()));
        return false;
    }
    SetMessage(QString("Saved %1").arg(File));
    emit FileSynced(File);
    if (OnSaved)
        OnSaved(File);
    return true;
}

QString TCalibEditor::MessageText() const
{
    return FMessage->text();
}

void TCalibEditor::SetMessage(const QString& Text)
{
    FMessage->setText(Text);
}

std::string TCalibEditor::ImageFile() const
{
    std::string name = FMap.MapImgName();
    if (!name.empty() && FMap.OnMapImageRequest)
        FMap.OnMapImageRequest(FMap, name);
    return name;
}

bool TCalibEditor::Stale() const
{
    return FShown.Model != FMap.Calibration().CalibModel() || FShown.Image != FMap.MapImgName() ||
           FShown.Width != FMap.MapWidth() || FShown.Height != FMap.MapHeight() || !(FShown.Data == FMap.CalibData());
}

void TCalibEditor::RefreshWhenStale()
{
    if (FRefreshQueued || !Stale())
        return;
    FRefreshQueued = true;
    QTimer::singleShot(0, this, [this] {
        FRefreshQueued = false;
        if (Stale())
            Refresh();
    });
}

void TCalibEditor::Guarded(const std::function<void()>& Body)
{
    RunGuarded(Body, [this](const QString& Message) { FWarning->setText("Error: " + Message); });
}

int TCalibEditor::Exaggeration() const
{
    return FExaggeration->value();
}

QString TCalibEditor::SummaryText() const
{
    return FSummary->text();
}

QString TCalibEditor::WarningText() const
{
    return FWarning->text();
}

void TCalibEditor::Refresh()
{
    const qv::TCalibModel model = FMap.Calibration().CalibModel();
    int shown = -1;  // a model the list does not offer shows no line: the list never names another model
    for (int i = 0; i < FModel->count(); ++i)
        if (ListModels[i] == model)
            shown = i;
    FModel->setCurrentIndex(shown);
    FShown = {FMap.CalibData(), model, FMap.MapImgName(), FMap.MapWidth(), FMap.MapHeight()};
    FRes = qv::CalibResiduals(FMap.CalibData(), FMap.Calibration().Fit(), FMap.MapWidth(), FMap.MapHeight());
    const int n = qv::ValidCalQuads(FMap.CalibData());
    QString s = QString("%1 points, model %2 (needs %3)")
                    .arg(n)
                    .arg(QString::fromUtf8(qv::CalibModelKeywords[model].data(), int(qv::CalibModelKeywords[model].size())))
                    .arg(qv::MinCalibPoints(model));
    if (model == qv::cmUTM)
        s += FMap.Calibration().UTMZone() >= 1 && FMap.Calibration().UTMZone() <= 60
                 ? QString(", zone %1%2").arg(FMap.Calibration().UTMZone()).arg(FMap.Calibration().UTMHemisphere() == qv::hemiSouth ? 'S' : 'N')
                 : QString(", zone set by the first point");
    if (FRes.Worst > 0)
        s += QString("\nRMS %1 px, %2 m\nworst point %3: %4 px")
                 .arg(FRes.RmsPixels, 0, 'f', 2)
                 .arg(FRes.RmsMetres, 0, 'f', 1)
                 .arg(FRes.Worst)
                 .arg(FRes.Quads[FRes.Worst - 1].Pixels, 0, 'f', 2);
    if (FRes.WorstLeaveOneOut > 0)
        s += QString("\nleave-one-out: point %1 moves the fit most (%2 px)")
                 .arg(FRes.WorstLeaveOneOut)
                 .arg(FRes.Quads[FRes.WorstLeaveOneOut - 1].LeaveOneOut, 0, 'f', 2);
    FSummary->setText(s);
    FWarning->setText(QString::fromStdString(qv::CalibDiagnosisText(FRes)));
    FPoints->clear();
    for (int i = 0; i < n; ++i) {
        const qv::TCalQuad& q = FMap.CalibData().CalQuads[static_cast<std::size_t>(i)];
        QString line = model == qv::cmUTM ? QString("%1: (%2, %3) at N %4, E %5").arg(i + 1).arg(q.MapX).arg(q.MapY).arg(q.Latitude, 0, 'f', 1).arg(q.Longitude, 0, 'f', 1)
                                          : QString("%1: (%2, %3) at %4, %5").arg(i + 1).arg(q.MapX).arg(q.MapY).arg(q.Latitude, 0, 'f', 5).arg(q.Longitude, 0, 'f', 5);
        if (static_cast<std::size_t>(i) < FRes.Quads.size() && FRes.Quads[static_cast<std::size_t>(i)].Valid) {
            const qv::TQuadResidual& r = FRes.Quads[static_cast<std::size_t>(i)];
            line += QString(": %1 px").arg(r.Pixels, 0, 'f', 2);
            if (r.Metres >= 0)
                line += QString(", %1 m").arg(r.Metres, 0, 'f', 1);
        }
        FPoints->addItem(line);
    }
    FMap.Paint();
}

void TCalibEditor::Draw(qv::TCanvas& C) const
{
    const qv::TCalibData& d = FMap.CalibData();
    const int n = qv::ValidCalQuads(d);
    const double k = Exaggeration() * FMap.Magnification();
    C.Font = qv::TFont{};
    C.Font.Size = 9;
    C.Font.Color = 0x0000C0;
    const bool stale = Stale();  // residuals of another map's points until the refresh comes
    for (int i = 0; i < n; ++i) {
        const qv::TCalQuad& q = d.CalQuads[static_cast<std::size_t>(i)];
        const qv::TPoint p = FMap.MapImageToControl({q.MapX, q.MapY});
        const bool worst = !stale && i + 1 == FRes.Worst;
        C.Pen = qv::TPen{worst ? 0x0000FFu : 0x800000u, worst ? 3 : 2};
        C.Brush.Style = qv::bsClear;
        C.Ellipse(p.X - 6, p.Y - 6, p.X + 7, p.Y + 7);
        C.TextOut(p.X + 8, p.Y + 4, std::to_string(i + 1));
        if (!stale && static_cast<std::size_t>(i) < FRes.Quads.size() && FRes.Quads[static_cast<std::size_t>(i)].Valid) {
            const qv::TQuadResidual& r = FRes.Quads[static_cast<std::size_t>(i)];
            C.Pen = qv::TPen{0x0000FF, 2};
            C.MoveTo(p.X, p.Y);
            C.LineTo(p.X + static_cast<std::int32_t>(std::lround(r.Dx * k)), p.Y + static_cast<std::int32_t>(std::lround(r.Dy * k)));
        }
    }
    C.Brush.Style = qv::bsSolid;
}

}  // namespace viewer
