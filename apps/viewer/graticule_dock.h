// Tools -> Detect graticule: finds the drawn parallels and meridians of the map shown and proposes their
// crossings as reference points. The user removes or drags points the finder got wrong, names one
// crossing (its latitude and longitude) and the spacing of the lines, and sees the calibration that
// follows — the model chosen, its residuals, whether it deserves trust — update with every change.
// Apply makes it the map's calibration, which the calibration editor then shows and saves.
//
// Pixels: the grid and its points are in map-image pixels (fractional); a picture too large to search
// whole is searched on a reduced level and the grid scaled back.
#pragma once

#include <qvgeo/geomap/graticule_grid.h>
#include <qvgeo/mapview/geo_map.h>

#include <QDockWidget>

#include <functional>

class QLabel;
class QLineEdit;
class QListWidget;
class QPushButton;
class QSpinBox;

namespace viewer {

class TGraticuleDock : public QDockWidget {
    Q_OBJECT

public:
    TGraticuleDock(qv::TGeoMap& Map, QWidget* Parent);

    // Searches the map image shown. False, with the reason in MessageText ("no graticule found" among
    // them), when there is no image or no graticule; the points shown are then none.
    bool Detect();
    // The most pixels the finder reads: a larger picture is searched on its finest reduced level below
    // this (the lines, averaged down, stay visible; crossings keep a fraction of a level pixel).
    double MaxSearchPixels = 24e6;
    const qv::TGratGrid& Grid() const { return FGrid; }
    const qv::TGratCalibration& Calibration() const { return FCalib; }

    // The named crossing: parallel Row and meridian Col at (Lat, Long) degrees; spacing LatStep degrees
    // from one parallel to the next southwards (positive for a map with north up) and LongStep eastwards.
    // Refits. False (nothing changes) when a step is 0 or a value not finite.
    bool SetValues(int Row, int Col, double Lat, double Long, double LatStep, double LongStep);
    // The same from the dock's fields ("LAT LONG" in any form the place dialog reads).
    bool SetValuesFromText(const QString& Place, const QString& Steps);
    bool HasValues() const { return FHasValues; }

    // The proposed point drawn within 8 control pixels of (X, Y), 1-based; 0 when none.
    int PointAt(std::int32_t X, std::int32_t Y) const;
    // Selects point Index (1-based; 0: none) and puts its lattice numbers into the crossing's fields.
    void Select(int Index);
    int Selected() const { return FSelected; }
    // Removes point Index; moves it to map-image pixel (X, Y) (a correction: it counts as seen); brings
    // back every point the finder proposed. Each refits.
    void RemovePoint(int Index);
    void MovePoint(int Index, double X, double Y);
    void RestorePoints();

    // Makes the calibration the map's (its model and quads; the image and caption stay) and shows it in
    // the calibration editor through OnApplied. A doubtful calibration is applied only when
    // ConfirmDoubtful answers yes. False with the reason in MessageText.
    bool Apply();
    std::function<bool(const QString& Reason)> ConfirmDoubtful;
    std::function<void()> OnApplied;

    QString MessageText() const;
    QString SummaryText() const;
    QString VerdictText() const;
    // The lines found, the points with their residual vectors (Exaggeration times), the selection.
    void Draw(qv::TCanvas& Canvas) const;
    static constexpr int Exaggeration = 10;

private:
    void Refit();
    void Refresh();
    void SetMessage(const QString& Text);
    void Guarded(const std::function<void()>& Body);
    // The residual of grid node Node in the present calibration (pixels, predicted minus found); false
    // when the node is not one of its quads.
    bool NodeResidual(int Node, double& Dx, double& Dy) const;

    qv::TGeoMap& FMap;
    qv::TGratGrid FFound;  // as the finder proposed it
    qv::TGratGrid FGrid;   // as edited
    qv::TGratCalibration FCalib;
    qv::TGratLabels FLabels;
    bool FHasValues = false;
    int FSelected = 0;
    QLabel* FSummary = nullptr;
    QLabel* FVerdict = nullptr;
    QLabel* FMessage = nullptr;
    QSpinBox* FRow = nullptr;
    QSpinBox* FCol = nullptr;
    QLineEdit* FPlace = nullptr;
    QLineEdit* FSteps = nullptr;
    QListWidget* FModels = nullptr;
    QPushButton* FApply = nullptr;
};

}  // namespace viewer
