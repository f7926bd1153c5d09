// The place of a calibration reference point: typed (latitude then longitude) or picked with a click on
// another calibrated map of the atlas, whose own calibration turns the clicked pixel into the place.
#pragma once

#include <qvgeo/mapview/geo_map.h>

#include <QDialog>

#include <optional>
#include <string>
#include <vector>

class QComboBox;
class QLabel;
class QLineEdit;
class QPushButton;
class QSpinBox;

namespace viewer {

// A map the place can be picked on: its caption in the list and its calibration file (the image is
// looked for beside it).
struct TPlaceMap {
    QString Caption;
    std::string CalFile;
};

// Reads "LAT LONG" in degrees: each angle decimal ("-48.2085", "48.2085°") or in degrees and minutes, or
// degrees, minutes and seconds, as DegreeToStr writes them ("48°12.510'", "48°12'30.6\""), optionally
// followed by its hemisphere letter (N/S, E/W; S and W are negative) as the status bar shows it. A comma
// may separate the two angles. False with the reason in Error for anything else, out-of-range angles
// included.
bool ParsePlace(const QString& Text, double& Lat, double& Long, QString& Error);

class TPlaceDialog : public QDialog {
    Q_OBJECT

public:
    // X, Y: the map-image pixel whose place is asked (only shown); Start: the place the map's present
    // calibration gives it, when it gives one; Maps: the other calibrated maps to pick on.
    TPlaceDialog(std::int32_t X, std::int32_t Y, std::optional<qv::TCoords> Start, std::vector<TPlaceMap> Maps,
                 QWidget* Parent);
    ~TPlaceDialog() override;

    qv::TGeoMap& PickMap() const { return *FMap; }
    QComboBox* MapBox() const { return FMapBox; }
    QLineEdit* PlaceEdit() const { return FEdit; }
    QLabel* MessageLabel() const { return FMessage; }
    QPushButton* OkButton() const { return FOk; }
    // The place the text gives (degrees); false while it gives none.
    bool Place(double& Lat, double& Long) const;
    // Shows list entry Index in the pick map, fitted to the view.
    void ShowMap(int Index);

private:
    void MapClicked(std::int32_t X, std::int32_t Y);
    void CheckText();

    std::vector<TPlaceMap> FMaps;
    std::string FCalFile;  // the calibration shown; its image is looked for beside it
    std::optional<qv::TPoint> FMarker;  // the map-image pixel last picked
    QLineEdit* FEdit = nullptr;
    QLabel* FMessage = nullptr;
    QComboBox* FMapBox = nullptr;
    qv::TGeoMap* FMap = nullptr;
    QPushButton* FOk = nullptr;
};

// The place of a reference point of a utm-calibrated map: metres in a zone and hemisphere.
struct TUTMPlace {
    double Northing = 0;  // metres; in the southern hemisphere with its false northing of 10000 km
    double Easting = 0;   // metres, with the false easting of 500 km
    std::int32_t Zone = 0;
    qv::THemisphere Hemisphere = qv::hemiNorth;
};

// Reads an easting and a northing in metres ("601938", "601938.5"; blanks and a trailing "m" allowed).
// A UTM easting lies between 100 and 900 km (the widest zone at the equator spans 166 to 834 km), a
// northing between 0 and 10000 km. False with the reason in Error otherwise.
bool ParseUTMPlace(const QString& Easting, const QString& Northing, TUTMPlace& Place, QString& Error);

// Asks the place of a pixel in UTM metres, with zone and hemisphere; Start fills the fields (the map's
// zone, and the metres its present calibration gives the pixel when it gives any). When Zone is false
// the zone and hemisphere are shown but fixed: a map's later points are in the zone of its first.
class TUTMPlaceDialog : public QDialog {
    Q_OBJECT

public:
    TUTMPlaceDialog(std::int32_t X, std::int32_t Y, const std::optional<TUTMPlace>& Start, bool Zone, QWidget* Parent);

    QLineEdit* EastingEdit() const { return FEasting; }
    QLineEdit* NorthingEdit() const { return FNorthing; }
    QSpinBox* ZoneBox() const { return FZone; }
    QComboBox* HemisphereBox() const { return FHemisphere; }
    QLabel* MessageLabel() const { return FMessage; }
    QPushButton* OkButton() const { return FOk; }
    // The place the fields give; false while they give none.
    bool Place(TUTMPlace& Place) const;

private:
    void CheckText();

    QLineEdit* FEasting = nullptr;
    QLineEdit* FNorthing = nullptr;
    QSpinBox* FZone = nullptr;
    QComboBox* FHemisphere = nullptr;
    QLabel* FMessage = nullptr;
    QPushButton* FOk = nullptr;
};

}  // namespace viewer
