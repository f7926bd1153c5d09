// The calibration editor: a dock that edits the reference points (calibration quads) of the map shown.
// A click in the calibration tool adds the clicked pixel with a typed place; the model is chosen from a
// list; after every change the residual of each point (pixels and metres), the RMS, the worst point, the
// point a leave-one-out check finds most influential and a warning for badly spread points are shown, and
// the residuals are drawn on the map as vectors from the measured pixel towards the fitted one.
#pragma once

#include <qvgeo/geomap/calib_residuals.h>
#include <qvgeo/geomap/view/geo_map.h>

#include <QDockWidget>

#include <functional>

class QComboBox;
class QProgressDialog;
class QLabel;
class QListWidget;
class QSpinBox;

namespace viewer {

// Runs the pending events while long work reports progress to Dialog, so that its Cancel can be clicked.
// User input waits until the dialog shows (after its minimum duration): from then on the dialog's
// modality keeps it from the window, before that a click could re-enter the work.
void PumpProgressEvents(const QProgressDialog& Dialog);

class TCalibEditor : public QDockWidget {
    Q_OBJECT

public:
    TCalibEditor(qv::TGeoMap& Map, QWidget* Parent);

    // The geographic models a point list can be fitted with, in the list's order.
    static constexpr qv::TCalibModel Models[] = {qv::cmEquiRect, qv::cmBiquadraticPn, qv::cmConicConformal,
                                                 qv::cmMillerCylindrical};
    // Refits with Model, showing the fit's progress (a conic fit's 20 rounds) in a dialog whose Cancel
    // aborts it: the previous model and fit then stay and the result is false.
    bool SetModel(qv::TCalibModel Model);
    // Adds the reference point: map-image pixel (X, Y) at (Lat, Long) degrees. False when the map holds
    // 200 points already.
    bool AddPoint(std::int32_t X, std::int32_t Y, double Lat, double Long);
    void ClearPoints();
    // The reference point drawn within 8 pixels of the map-view pixel (X, Y) (control pixels), 1-based;
    // 0 when there is none.
    int PointAt(std::int32_t X, std::int32_t Y) const;
    // Moves reference point Index (1-based) to map-image pixel (X, Y), its place unchanged, then refits
    // and refreshes: what dragging a point shows live.
    void MovePoint(int Index, std::int32_t X, std::int32_t Y);
    bool OpenFile(const QString& File, const QString& Id);
    bool SaveFile(const QString& File);
    // Recomputes the residuals of the map's calibration and refreshes the texts and the map.
    void Refresh();
    const qv::TCalibResiduals& Residuals() const { return FRes; }
    QString SummaryText() const;
    QString WarningText() const;
    // Draws the points and their residual vectors (Exaggeration times their length) in control pixels.
    void Draw(qv::TCanvas& Canvas) const;
    int Exaggeration() const;

signals:
    // The map's calibration now equals File's: OpenFile or SaveFile succeeded.
    void FileSynced(const QString& File);

private:
    // Runs the body of a button's or list's handler; a failure shows as the warning.
    void Guarded(const std::function<void()>& Body);

    qv::TGeoMap& FMap;
    qv::TCalibResiduals FRes;
    QComboBox* FModel = nullptr;
    QSpinBox* FExaggeration = nullptr;
    QLabel* FSummary = nullptr;
    QLabel* FWarning = nullptr;
    QListWidget* FPoints = nullptr;
};

}  // namespace viewer
