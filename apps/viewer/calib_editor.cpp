#include "calib_editor.h"

#include "guard.h"

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
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace viewer {

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
    for (qv::TCalibModel m : Models)
        FModel->addItem(QString::fromUtf8(qv::CalibModelKeywords[m].data(), int(qv::CalibModelKeywords[m].size())));
    connect(FModel, &QComboBox::activated, this, [this](int i) { Guarded([&] { SetModel(Models[i]); }); });
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
    FPoints = new QListWidget(body);
    v->addWidget(FSummary);
    v->addWidget(FWarning);
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
    connect(open, &QPushButton::clicked, this, [this] {
        Guarded([this] {
            const QString f = QFileDialog::getOpenFileName(this, "Open calibration", {}, "Calibration (*.xml)");
            if (!f.isEmpty())
                OpenFile(f, {});
        });
    });
    connect(save, &QPushButton::clicked, this, [this] {
        Guarded([this] {
            const QString f = QFileDialog::getSaveFileName(this, "Save calibration", "calibration.xml", "Calibration (*.xml)");
            if (!f.isEmpty() && !SaveFile(f))
                FWarning->setText("Cannot write " + f);
        });
    });
    setWidget(body);
}

bool TCalibEditor::SetModel(qv::TCalibModel Model)
{
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
    const bool done = FMap.Calibration().SetCalibModel(Model, &progress);
    Refresh();
    return done;
}

bool TCalibEditor::AddPoint(std::int32_t X, std::int32_t Y, double Lat, double Long)
{
    const bool ok = FMap.AddCalibPoint(Lat, Long, X, Y);
    Refresh();
    return ok;
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
    // The reader's result reports the fit of graticule lines only, so a file of reference points alone
    // reads as false; whether the file held a calibration is told by a trial read into a spare object,
    // which leaves the map alone when it did not.
    qv::TMapCalibration probe;
    probe.LoadCalDataFromXML(File.toStdString(), Id.toStdString());
    if (qv::ValidCalQuads(probe.CalibData()) == 0 && qv::ValidCalLines(probe.CalibData()) == 0)
        return false;
    FMap.LoadCalDataFromXML(File.toStdString(), Id.toStdString());
    Refresh();
    emit FileSynced(File);
    return true;
}

bool TCalibEditor::SaveFile(const QString& File)
{
    try {
        FMap.SaveCalDataAsXML(File.toStdString(), "viewer");
    } catch (const std::exception&) {
        return false;
    }
    emit FileSynced(File);
    return true;
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
    for (int i = 0; i < FModel->count(); ++i)
        if (Models[i] == model)
            FModel->setCurrentIndex(i);
    FRes = qv::CalibResiduals(FMap.CalibData(), FMap.Calibration().Fit(), FMap.MapWidth(), FMap.MapHeight());
    const int n = qv::ValidCalQuads(FMap.CalibData());
    QString s = QString("%1 points, model %2 (needs %3)")
                    .arg(n)
                    .arg(QString::fromUtf8(qv::CalibModelKeywords[model].data(), int(qv::CalibModelKeywords[model].size())))
                    .arg(qv::MinCalibPoints(model));
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
        QString line = QString("%1: (%2, %3) at %4, %5").arg(i + 1).arg(q.MapX).arg(q.MapY).arg(q.Latitude, 0, 'f', 5).arg(q.Longitude, 0, 'f', 5);
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
    for (int i = 0; i < n; ++i) {
        const qv::TCalQuad& q = d.CalQuads[static_cast<std::size_t>(i)];
        const qv::TPoint p = FMap.MapImageToControl({q.MapX, q.MapY});
        const bool worst = i + 1 == FRes.Worst;
        C.Pen = qv::TPen{worst ? 0x0000FFu : 0x800000u, worst ? 3 : 2};
        C.Brush.Style = qv::bsClear;
        C.Ellipse(p.X - 6, p.Y - 6, p.X + 7, p.Y + 7);
        C.TextOut(p.X + 8, p.Y + 4, std::to_string(i + 1));
        if (static_cast<std::size_t>(i) < FRes.Quads.size() && FRes.Quads[static_cast<std::size_t>(i)].Valid) {
            const qv::TQuadResidual& r = FRes.Quads[static_cast<std::size_t>(i)];
            C.Pen = qv::TPen{0x0000FF, 2};
            C.MoveTo(p.X, p.Y);
            C.LineTo(p.X + static_cast<std::int32_t>(std::lround(r.Dx * k)), p.Y + static_cast<std::int32_t>(std::lround(r.Dy * k)));
        }
    }
    C.Brush.Style = qv::bsSolid;
}

}  // namespace viewer
