// The calibration editor: a dock that edits the reference points (calibration quads) of the map shown.
// A click in the calibration tool adds the clicked pixel with a typed place; the model is chosen from a
// list; after every change the residual of each point (pixels and metres), the RMS, the worst point, the
// point a leave-one-out check finds most influential and a warning for badly spread points are shown, and
// the residuals are drawn on the map as vectors from the measured pixel towards the fitted one.
//
// Under the utm model a point's place is a northing and easting in metres of the map's zone (the first
// point sets zone and hemisphere); under the geographic models latitude and longitude in degrees.
// Switching between the two kinds converts the points, so that no metre is ever read as a degree.
#pragma once

#include <qvgeo/geomap/calib_residuals.h>
#include <qvgeo/mapview/geo_map.h>

#include <QDockWidget>

#include <functional>
#include <string>

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

    // The geographic models a point list can be fitted with.
    static constexpr qv::TCalibModel Models[] = {qv::cmEquiRect, qv::cmBiquadraticPn, qv::cmConicConformal,
                                                 qv::cmMillerCylindrical};
    // The models of the editor's list, in its order: the geographic ones and utm.
    static constexpr qv::TCalibModel ListModels[] = {qv::cmEquiRect, qv::cmBiquadraticPn, qv::cmConicConformal,
                                                     qv::cmMillerCylindrical, qv::cmUTM};
    // Refits with Model, showing the fit's progress (a conic fit's 20 rounds) in a dialog whose Cancel
    // aborts it: the previous model, points and fit then stay and the result is false. Between utm and a
    // geographic model the points are converted (in the map's zone, or the zone of the points' middle when
    // the map has none yet); false with the reason in MessageText when they cannot be.
    bool SetModel(qv::TCalibModel Model);
    // Adds the reference point: map-image pixel (X, Y) at (Lat, Long) degrees. False, with the reason in
    // MessageText, when the map holds 200 points already or its model does not take degrees (utm, none).
    bool AddPoint(std::int32_t X, std::int32_t Y, double Lat, double Long);
    // The same for the utm model: (Northing, Easting) metres in Zone and Hemisphere. The first point of a
    // map sets its zone and hemisphere; later points must be in them.
    bool AddUTMPoint(std::int32_t X, std::int32_t Y, double Northing, double Easting, std::int32_t Zone,
                     qv::THemisphere Hemisphere);
    void ClearPoints();
    // Whether the map's model takes reference points; false with the reason in MessageText when not
    // (no model chosen, or graticule lines).
    bool ReadyForPoints();
    // The reference point drawn within 8 pixels of the map-view pixel (X, Y) (control pixels), 1-based;
    // 0 when there is none.
    int PointAt(std::int32_t X, std::int32_t Y) const;
    // Moves reference point Index (1-based) to map-image pixel (X, Y), its place unchanged, then refits
    // and refreshes: what dragging a point shows live.
    void MovePoint(int Index, std::int32_t X, std::int32_t Y);
    // Reads calibration Id (empty: the first) of File into the map, with the image it names looked for
    // beside the file (when it is not there the image shown stays). False, with the reason in MessageText
    // and the map unchanged, for a file that cannot be read, is empty, too large, malformed or holds no
    // calibration.
    bool OpenFile(const QString& File, const QString& Id);
    // Writes the map's calibration to File with the image named by its bare name when it is in the same
    // folder, by its full path otherwise; then calls OnSaved. Over a file that holds calibrations the
    // first one is replaced (keeping its id) and the others stay. False with the reason in MessageText.
    bool SaveFile(const QString& File);
    // After a successful SaveFile (the window registers the file with the atlas).
    std::function<void(const QString& File)> OnSaved;
    // The outcome of the last open, save or refused edit; empty after a successful edit.
    QString MessageText() const;
    QComboBox* ModelBox() const { return FModel; }
    QListWidget* PointList() const { return FPoints; }
    // The file names the buttons ask for (tests answer here; the default shows a file dialog).
    std::function<QString()> AskOpenName;
    std::function<QString(const QString& Suggested)> AskSaveName;
    // Recomputes the residuals of the map's calibration and refreshes the texts and the map.
    void Refresh();
    // Whether the map's calibration (points, model, image) differs from the one last shown: another map
    // was loaded behind the editor's back.
    bool Stale() const;
    // A Refresh after the events in progress, when Stale (it may be called while the map paints).
    void RefreshWhenStale();
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
    void SetMessage(const QString& Text);
    // Runs one of the map's AddCalibPoint forms; its error, or none, becomes the message; refreshes.
    bool AddAndReport(const std::function<bool()>& Add);
    // The file of the map image shown, as the map found it; empty without an image.
    std::string ImageFile() const;

    // What Refresh last showed, to tell a map loaded behind the editor's back.
    struct TShown {
        qv::TCalibData Data;
        qv::TCalibModel Model = qv::cmUndefined;
        std::string Image;
        std::int32_t Width = 0, Height = 0;
    };

    qv::TGeoMap& FMap;
    TShown FShown;
    bool FRefreshQueued = false;
    QLabel* FMessage = nullptr;
    qv::TCalibResiduals FRes;
    QComboBox* FModel = nullptr;
    QSpinBox* FExaggeration = nullptr;
    QLabel* FSummary = nullptr;
    QLabel* FWarning = nullptr;
    QListWidget* FPoints = nullptr;
};

}  // namespace viewer
