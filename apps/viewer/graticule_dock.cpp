#include "graticule_dock.h"

#include "guard.h"
#include "place_dialog.h"

#include <qvgeo/graticule/graticule_detect.h>
#include <qvgeo/graticule/grey_image.h>

#include <QFormLayout>
#include <QHBoxLayout>
#include <QLabel>
#include <QLineEdit>
#include <QListWidget>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <algorithm>
#include <cmath>

namespace viewer {

namespace {

QString Keyword(qv::TCalibModel M)
{
    return QString::fromUtf8(qv::CalibModelKeywords[M].data(), static_cast<int>(qv::CalibModelKeywords[M].size()));
}

}  // namespace

TGraticuleDock::TGraticuleDock(qv::TGeoMap& Map, QWidget* Parent) : QDockWidget("Graticule", Parent), FMap(Map)
{
    setObjectName("graticule-dock");
    auto* body = new QWidget(this);
    auto* v = new QVBoxLayout(body);
    FSummary = new QLabel(body);
    FSummary->setWordWrap(true);
    v->addWidget(FSummary);
    auto* form = new QFormLayout;
    auto* crossing = new QHBoxLayout;
    FRow = new QSpinBox(body);
    FCol = new QSpinBox(body);
    for (QSpinBox* s : {FRow, FCol})
        s->setRange(-1000, 1000);
    crossing->addWidget(new QLabel("parallel", body));
    crossing->addWidget(FRow);
    crossing->addWidget(new QLabel("meridian", body));
    crossing->addWidget(FCol);
    form->addRow("Crossing", crossing);
    FPlace = new QLineEdit(body);
    FRow->setObjectName("graticule-row");
    FCol->setObjectName("graticule-col");
    FPlace->setObjectName("graticule-place");
    FPlace->setPlaceholderText("latitude longitude, e.g. 48 16");
    form->addRow("is at", FPlace);
    FSteps = new QLineEdit(body);
    FSteps->setObjectName("graticule-steps");
    FSteps->setPlaceholderText("degrees between lines: south east, e.g. 0.5 1");
    form->addRow("Spacing", FSteps);
    v->addLayout(form);
    FVerdict = new QLabel(body);
    FVerdict->setWordWrap(true);
    FVerdict->setObjectName("graticule-verdict");
    FMessage = new QLabel(body);
    FMessage->setWordWrap(true);
    FMessage->setStyleSheet("color: #b00000");
    FModels = new QListWidget(body);
    v->addWidget(FVerdict);
    v->addWidget(FMessage);
    v->addWidget(FModels, 1);
    auto* buttons = new QHBoxLayout;
    auto* detect = new QPushButton("Detect", body);
    auto* remove = new QPushButton("Remove point", body);
    auto* restore = new QPushButton("Restore points", body);
    FApply = new QPushButton("Apply", body);
    detect->setObjectName("graticule-detect");
    remove->setObjectName("graticule-remove");
    restore->setObjectName("graticule-restore");
    FApply->setObjectName("graticule-apply");
    for (QPushButton* b : {detect, remove, restore, FApply})
        buttons->addWidget(b);
    v->addLayout(buttons);
    setWidget(body);

    const auto takeValues = [this] {
        Guarded([this] {
            if (!FPlace->text().trimmed().isEmpty() && !FSteps->text().trimmed().isEmpty())
                SetValuesFromText(FPlace->text(), FSteps->text());
        });
    };
    connect(FPlace, &QLineEdit::editingFinished, this, takeValues);
    connect(FSteps, &QLineEdit::editingFinished, this, takeValues);
    connect(FRow, &QSpinBox::valueChanged, this, takeValues);
    connect(FCol, &QSpinBox::valueChanged, this, takeValues);
    connect(detect, &QPushButton::clicked, this, [this] { Guarded([this] { Detect(); }); });
    connect(remove, &QPushButton::clicked, this, [this] { Guarded([this] { RemovePoint(FSelected); }); });
    connect(restore, &QPushButton::clicked, this, [this] { Guarded([this] { RestorePoints(); }); });
    connect(FApply, &QPushButton::clicked, this, [this] { Guarded([this] { Apply(); }); });
    ConfirmDoubtful = [this](const QString& Reason) {
        return QMessageBox::question(this, "Apply a doubtful calibration?", Reason + "\n\nApply it all the same?") ==
               QMessageBox::Yes;
    };
    Refresh();
}

void TGraticuleDock::Guarded(const std::function<void()>& Body)
{
    RunGuarded(Body, [this](const QString& Message) { SetMessage("Error: " + Message); });
}

void TGraticuleDock::SetMessage(const QString& Text)
{
    FMessage->setText(Text);
}

QString TGraticuleDock::MessageText() const
{
    return FMessage->text();
}

QString TGraticuleDock::SummaryText() const
{
    return FSummary->text();
}

QString TGraticuleDock::VerdictText() const
{
    return FVerdict->text();
}

bool TGraticuleDock::Detect()
{
    FFound = FGrid = {};
    FCalib = {};
    FSelected = 0;
    SetMessage({});
    const std::shared_ptr<const qv::TImageSource> levels = FMap.MapImage().Levels();
    if (!levels || FMap.MapWidth() <= 0 || FMap.MapHeight() <= 0) {
        SetMessage("no map image is shown");
        Refresh();
        return false;
    }
    int level = 0;
    while (level + 1 < levels->LevelCount() &&
           double(levels->LevelSize(level).cx) * levels->LevelSize(level).cy > MaxSearchPixels)
        ++level;
    const qv::TSize size = levels->LevelSize(level);
    qv::TBitmap picture = levels->ReadWindow(level, qv::TRect{0, 0, size.cx, size.cy});
    const double pixels = double(picture.Width()) * picture.Height();
    if (pixels > MaxSearchPixels) {
        // No level is small enough: the finest one, reduced by averaging (a thin line stays as a fainter one).
        const double f = std::sqrt(MaxSearchPixels / pixels);
        qv::TBitmap reduced(std::max(32, static_cast<int>(picture.Width() * f)), std::max(32, static_cast<int>(picture.Height() * f)));
        reduced.StretchRect({0, 0, reduced.Width(), reduced.Height()}, picture, {0, 0, picture.Width(), picture.Height()},
                            qv::smHalftone);
        picture = std::move(reduced);
    }
    if (picture.Width() <= 0 || picture.Height() <= 0) {
        SetMessage("the map image cannot be read");
        Refresh();
        return false;
    }
    const std::ptrdiff_t stride = picture.Height() > 1 ? picture.ScanLine(1) - picture.ScanLine(0) : picture.Width();
    const qv::TGreyBuffer grey = qv::GreyFromRgb32(picture.ScanLine(0), picture.Width(), picture.Height(), stride);
    qv::TGratGrid g = qv::DetectGraticule(grey.View());
    if (picture.Width() != FMap.MapWidth() || picture.Height() != FMap.MapHeight())
        qv::ScaleGratGrid(g, double(FMap.MapWidth()) / picture.Width(), double(FMap.MapHeight()) / picture.Height(),
                  FMap.MapWidth(), FMap.MapHeight());
    FFound = FGrid = g;
    if (!g.Found)
        SetMessage(QString::fromStdString(g.Message.empty() ? qv::NoGraticuleFound : g.Message));
    Refit();
    return g.Found;
}

bool TGraticuleDock::SetValues(int Row, int Col, double Lat, double Long, double LatStep, double LongStep)
{
    for (double v : {Lat, Long, LatStep, LongStep})
        if (!std::isfinite(v))
            return false;
    if (LatStep == 0.0 || LongStep == 0.0)
        return false;
    FLabels = {};
    // Parallels are numbered downwards: a step southwards is a falling latitude.
    FLabels.Parallels.Index = Row;
    FLabels.Parallels.Value = Lat;
    FLabels.Parallels.Spacing = -LatStep;
    FLabels.Meridians.Index = Col;
    FLabels.Meridians.Value = Long;
    FLabels.Meridians.Spacing = LongStep;
    FHasValues = true;
    const QSignalBlocker b1(FRow), b2(FCol);
    FRow->setValue(Row);
    FCol->setValue(Col);
    Refit();
    return true;
}

bool TGraticuleDock::SetValuesFromText(const QString& Place, const QString& Steps)
{
    double lat = 0, lon = 0, dlat = 0, dlon = 0;
    QString error;
    if (!ParsePlace(Place, lat, lon, error)) {
        SetMessage("Crossing: " + error);
        return false;
    }
    if (!ParsePlace(Steps, dlat, dlon, error)) {
        SetMessage("Spacing: " + error);
        return false;
    }
    if (!SetValues(FRow->value(), FCol->value(), lat, lon, dlat, dlon)) {
        SetMessage("Spacing: neither step may be 0");
        return false;
    }
    SetMessage({});
    return true;
}

int TGraticuleDock::PointAt(std::int32_t X, std::int32_t Y) const
{
    int best = 0;
    double bestD2 = 64.0;
    for (std::size_t i = 0; i < FGrid.Nodes.size(); ++i) {
        const qv::TGratNode& n = FGrid.Nodes[i];
        const qv::TPoint p = FMap.MapImageToControl({static_cast<std::int32_t>(std::lround(n.X)),
                                                     static_cast<std::int32_t>(std::lround(n.Y))});
        const double d2 = double(p.X - X) * (p.X - X) + double(p.Y - Y) * (p.Y - Y);
        if (d2 <= bestD2)
            best = static_cast<int>(i) + 1, bestD2 = d2;
    }
    return best;
}

void TGraticuleDock::Select(int Index)
{
    FSelected = Index >= 1 && Index <= static_cast<int>(FGrid.Nodes.size()) ? Index : 0;
    if (FSelected > 0) {
        const qv::TGratNode& n = FGrid.Nodes[static_cast<std::size_t>(FSelected - 1)];
        const QSignalBlocker b1(FRow), b2(FCol);
        FRow->setValue(n.Row);
        FCol->setValue(n.Col);
    }
    Refresh();
}

void TGraticuleDock::RemovePoint(int Index)
{
    if (Index < 1 || Index > static_cast<int>(FGrid.Nodes.size()))
        return;
    FGrid.Nodes.erase(FGrid.Nodes.begin() + (Index - 1));
    FSelected = 0;
    Refit();
}

void TGraticuleDock::MovePoint(int Index, double X, double Y)
{
    if (Index < 1 || Index > static_cast<int>(FGrid.Nodes.size()) || !std::isfinite(X) || !std::isfinite(Y))
        return;
    qv::TGratNode& n = FGrid.Nodes[static_cast<std::size_t>(Index - 1)];
    n.X = X;
    n.Y = Y;
    n.Seen = true;  // the user put it there
    Refit();
}

void TGraticuleDock::RestorePoints()
{
    FGrid = FFound;
    FSelected = 0;
    Refit();
}

void TGraticuleDock::Refit()
{
    FCalib = {};
    if (FGrid.Found && FHasValues) {
        FCalib = qv::FitGraticule(FGrid, FLabels);
        FCalib.Data.MapFName = FMap.CalibData().MapFName;
        FCalib.Data.Caption = FMap.CalibData().Caption;
    }
    Refresh();
}

void TGraticuleDock::Refresh()
{
    if (!FGrid.Found)
        FSummary->setText(FFound.Nodes.empty() && FFound.Message.empty() ? "Tools > Detect graticule searches the map shown."
                                                                       : QString("No graticule found."));
    else
        FSummary->setText(QString("%1 parallels and %2 meridians, %3 crossings proposed; lines turned %4°; "
                                  "finder's confidence %5. Click a point to select it; drag to correct it.")
                              .arg(FGrid.Parallels.size())
                              .arg(FGrid.Meridians.size())
                              .arg(FGrid.Nodes.size())
                              .arg(FGrid.Rotation, 0, 'f', 2)
                              .arg(FGrid.Confidence, 0, 'f', 2));
    FModels->clear();
    if (!FGrid.Found)
        FVerdict->clear();
    else if (!FHasValues)
        FVerdict->setText("Name one crossing and the spacing of the lines.");
    else if (!FCalib.Ok)
        FVerdict->setText(QString::fromStdString(FCalib.Reason));
    else {
        FVerdict->setText(QString("%1 model, %2 points, rms %3 px.\n%4")
                              .arg(Keyword(FCalib.Model))
                              .arg(FCalib.Data.NumCalQuads)
                              .arg(FCalib.Residuals.RmsPixels, 0, 'f', 2)
                              .arg(QString::fromStdString(FCalib.Reason)));
        // A model that cannot follow the grid at all (Miller on a turned map) errs by thousands of pixels.
        const auto px = [](double v) { return v < 0 ? QString("-") : v > 9999 ? QString("> 9999") : QString::number(v, 'f', 2); };
        for (const qv::TGratCandidate& c : FCalib.Candidates)
            FModels->addItem(QString("%1%2: rms %3 px, left out %4 px, largest %5 px")
                                 .arg(c.Model == FCalib.Model ? "* " : "  ")
                                 .arg(Keyword(c.Model))
                                 .arg(px(c.RmsPixels))
                                 .arg(px(c.LeaveOneOutRms))
                                 .arg(px(c.MaxPixels)));
    }
    FVerdict->setStyleSheet(FCalib.Confident ? "color: #006000" : "color: #b00000");
    FApply->setEnabled(FCalib.Ok);
    FMap.Paint();
}

bool TGraticuleDock::NodeResidual(int Node, double& Dx, double& Dy) const
{
    for (std::size_t q = 0; q < FCalib.NodeOfQuad.size() && q < FCalib.Residuals.Quads.size(); ++q)
        if (FCalib.NodeOfQuad[q] == Node && FCalib.Residuals.Quads[q].Valid) {
            // Against the crossing as found, not its whole-pixel quad.
            const qv::TGratNode& n = FGrid.Nodes[static_cast<std::size_t>(Node)];
            Dx = FCalib.Residuals.Quads[q].PredX - n.X;
            Dy = FCalib.Residuals.Quads[q].PredY - n.Y;
            return true;
        }
    return false;
}

bool TGraticuleDock::Apply()
{
    if (!FCalib.Ok) {
        SetMessage(FCalib.Reason.empty() ? QString("nothing to apply: detect a graticule and name a crossing")
                                         : QString::fromStdString(FCalib.Reason));
        return false;
    }
    if (!FCalib.Confident && !(ConfirmDoubtful && ConfirmDoubtful(QString::fromStdString(FCalib.Reason)))) {
        SetMessage("not applied: " + QString::fromStdString(FCalib.Reason));
        return false;
    }
    qv::TCalibData d = FCalib.Data;
    d.MapFName = FMap.CalibData().MapFName;
    d.Caption = FMap.CalibData().Caption;
    FMap.Calibration().LoadCalibData(d, FCalib.Model);
    FMap.CalcExtentsAndResolution();
    SetMessage(QString("applied: %1 points under the %2 model").arg(d.NumCalQuads).arg(Keyword(FCalib.Model)));
    if (OnApplied)
        OnApplied();
    return true;
}

void TGraticuleDock::Draw(qv::TCanvas& C) const
{
    if (!FGrid.Found)
        return;
    const auto control = [this](double X, double Y) {
        return FMap.MapImageToControl({static_cast<std::int32_t>(std::lround(X)), static_cast<std::int32_t>(std::lround(Y))});
    };
    // The lines as found, thin, every 16 image pixels along them.
    C.Pen = qv::TPen{0xC08000u, 1};
    for (const auto* family : {&FGrid.Parallels, &FGrid.Meridians})
        for (const qv::TGratCurve& c : *family) {
            bool first = true;
            for (double t = c.From;; t = std::min(t + 16.0, c.To)) {
                const double a = c.At(t);
                const qv::TPoint p = c.Kind == qv::gtlParallel ? control(t, a) : control(a, t);
                if (first)
                    C.MoveTo(p.X, p.Y);
                else
                    C.LineTo(p.X, p.Y);
                first = false;
                if (t >= c.To)
                    break;
            }
        }
    C.Brush.Style = qv::bsClear;
    const double k = Exaggeration * FMap.Magnification();
    for (std::size_t i = 0; i < FGrid.Nodes.size(); ++i) {
        const qv::TGratNode& n = FGrid.Nodes[i];
        const qv::TPoint p = control(n.X, n.Y);
        double dx = 0, dy = 0;
        const bool used = FCalib.Ok && NodeResidual(static_cast<int>(i), dx, dy);
        const bool bad = used && std::hypot(dx, dy) > qv::TGratFitOptions{}.MaxResidual;
        const bool selected = static_cast<int>(i) + 1 == FSelected;
        C.Pen = qv::TPen{selected ? 0x00C0FFu : bad ? 0x0000FFu : used ? 0x00A000u : n.Seen ? 0x800000u : 0x808080u,
                         selected ? 3 : 2};
        C.Ellipse(p.X - 5, p.Y - 5, p.X + 6, p.Y + 6);
        if (used) {
            C.Pen = qv::TPen{0x0000FF, 2};
            C.MoveTo(p.X, p.Y);
            C.LineTo(p.X + static_cast<std::int32_t>(std::lround(dx * k)), p.Y + static_cast<std::int32_t>(std::lround(dy * k)));
        }
    }
    C.Brush.Style = qv::bsSolid;
}

}  // namespace viewer
