#include "place_dialog.h"

#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/support/number_scanner.h>
#include <qvgeo/support/text.h>

#include <QComboBox>
#include <QDialogButtonBox>
#include <QHBoxLayout>
#include <QLabel>
#include <QFormLayout>
#include <QLineEdit>
#include <QLocale>
#include <QPushButton>
#include <QSpinBox>
#include <QVBoxLayout>

#include <cctype>
#include <cmath>

namespace viewer {

namespace {

void SkipBlanks(const std::string& S, std::size_t& I)
{
    while (I < S.size() && (S[I] == ' ' || S[I] == '\t'))
        ++I;
}

// One angle from position I (0-based) of S, I left after it. Degrees, then minutes and seconds only
// when each follows its predecessor's mark: a number without its mark belongs to the next angle, so
// "48° 16°" is two angles. Pos and Neg are the hemisphere letters, Limit the largest magnitude.
bool ScanAngle(const std::string& S, std::size_t& I, char Pos, char Neg, double Limit, const char* What, double& Value,
               QString& Error)
{
    static constexpr std::string_view marks[] = {"\xC2\xB0", "'", "\""};
    SkipBlanks(S, I);
    const bool minus = I < S.size() && S[I] == '-';
    double parts[3] = {};
    int n = 0;
    for (bool marked = true; n < 3 && marked; ++n) {
        std::size_t at = I;
        SkipBlanks(S, at);
        const char first = at < S.size() ? S[at] : '\0';
        if (n > 0 && !(std::isdigit(static_cast<unsigned char>(first)) || first == '.'))
            break;  // only the degrees carry a sign
        int pos = static_cast<int>(at) + 1;  // the scanner counts from 1
        const double v = qv::ScanNumber(S, pos, qv::nsPointOnly);
        const std::size_t end = static_cast<std::size_t>(pos - 1);
        if (S.substr(at, end - at).find_first_of("0123456789") == std::string::npos) {
            if (n == 0) {
                Error = QString("The %1 is missing: type the latitude, then the longitude").arg(What);
                return false;
            }
            break;
        }
        marked = S.compare(end, marks[n].size(), marks[n]) == 0;
        if (n > 0 && !marked)
            break;  // not a minute or second of this angle
        parts[n] = std::fabs(v);
        I = marked ? end + marks[n].size() : end;
    }
    for (int k = 1; k < n; ++k)
        if (parts[k] >= 60 || parts[k - 1] != std::floor(parts[k - 1])) {
            Error = QString("The %1 has %2 of 60 or more, or a fraction before them").arg(What).arg(k == 1 ? "minutes" : "seconds");
            return false;
        }
    Value = parts[0] + parts[1] / 60.0 + parts[2] / 3600.0;
    if (minus)
        Value = -Value;
    SkipBlanks(S, I);
    const char letter = I < S.size() ? static_cast<char>(std::toupper(static_cast<unsigned char>(S[I]))) : '\0';
    if ((letter == Pos || letter == Neg) && (I + 1 == S.size() || !std::isalpha(static_cast<unsigned char>(S[I + 1])))) {
        if (minus) {
            Error = QString("The %1 has both a sign and a hemisphere letter").arg(What);
            return false;
        }
        Value = letter == Neg ? -Value : Value;
        ++I;
    }
    if (std::fabs(Value) > Limit) {
        Error = QString("The %1 lies beyond %2 degrees").arg(What).arg(Limit);
        return false;
    }
    return true;
}

QString PlaceText(double Lat, double Long)
{
    // Six decimals: 0.11 m of latitude, finer than a pixel of any map the atlas holds.
    return QString("%1 %2").arg(Lat, 0, 'f', 6).arg(Long, 0, 'f', 6);
}

}  // namespace

bool ParsePlace(const QString& Text, double& Lat, double& Long, QString& Error)
{
    const std::string s = Text.toStdString();
    std::size_t i = 0;
    double lat = 0, lon = 0;
    if (!ScanAngle(s, i, 'N', 'S', 90, "latitude", lat, Error))
        return false;
    SkipBlanks(s, i);
    if (i < s.size() && s[i] == ',')
        ++i;
    if (!ScanAngle(s, i, 'E', 'W', 180, "longitude", lon, Error))
        return false;
    SkipBlanks(s, i);
    if (i < s.size()) {
        Error = "Unexpected text after the longitude: " + QString::fromStdString(s.substr(i));
        return false;
    }
    Lat = lat;
    Long = lon;
    return true;
}

TPlaceDialog::TPlaceDialog(std::int32_t X, std::int32_t Y, std::optional<qv::TCoords> Start, std::vector<TPlaceMap> Maps,
                           QWidget* Parent)
    : QDialog(Parent), FMaps(std::move(Maps))
{
    setWindowTitle("Reference point");
    auto* v = new QVBoxLayout(this);
    auto* placeLabel = new QLabel(QString("&Place of pixel (%1, %2), latitude then longitude:").arg(X).arg(Y), this);
    FEdit = new QLineEdit(this);
    FEdit->setPlaceholderText(QString::fromUtf8("48.2085 16.3721  or  48\u00B012'30.6\" N 16\u00B022'19.6\" E"));
    placeLabel->setBuddy(FEdit);
    FMessage = new QLabel(this);
    FMessage->setWordWrap(true);
    v->addWidget(placeLabel);
    v->addWidget(FEdit);
    v->addWidget(FMessage);
    auto* row = new QHBoxLayout;
    auto* mapLabel = new QLabel("Pick on another &map:", this);
    FMapBox = new QComboBox(this);
    mapLabel->setBuddy(FMapBox);
    row->addWidget(mapLabel);
    row->addWidget(FMapBox, 1);
    v->addLayout(row);
    FMap = new qv::TGeoMap(this);
    FMap->setMinimumSize(480, 360);
    FMap->SetMouseAction(qv::maNone);  // a click picks; it neither pans nor zooms
    // A place picked on a whole-world map is only as good as its pixels (0.7 degree at this size): the wheel,
    // and '+', '-' and the arrow keys with the map focused, zoom in and move for a finer pick.
    FMap->SetWheelZoom(true);
    FMap->setToolTip("Click the place; the wheel or +/- zoom, the arrow keys pan");
    FMap->SetEmptyMsg("No other calibrated map");
    v->addWidget(FMap, 1);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    FOk = buttons->button(QDialogButtonBox::Ok);
    v->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    setTabOrder(FEdit, FMapBox);
    setTabOrder(FMapBox, FMap);
    setTabOrder(FMap, buttons);

    FMap->OnMapImageRequest = [this](qv::TGeoMap&, std::string& Name) { Name = qv::FindImageBeside(FCalFile, Name); };
    // What the map's own handlers catch is said here, where the picking happens.
    FMap->OnError = [this](const std::exception& E) { FMessage->setText(QString::fromUtf8(E.what())); };
    FMap->OnResize = [this](qv::TCustomControl&) { FMap->ZoomFitPage(); };
    FMap->OnMouseDown = [this](qv::TCustomControl&, qv::TMouseButton Button, qv::TShiftState, std::int32_t MX, std::int32_t MY) {
        if (Button == qv::mbLeft)
            MapClicked(MX, MY);
    };
    FMap->OnDataRendered = [this](qv::TGeoMap& M, qv::TCanvas& C) {
        if (!FMarker)
            return;
        const qv::TPoint p = M.MapImageToControl(*FMarker);
        C.Pen = qv::TPen{0xFF00FF, 2};  // magenta: no map colour of the atlas
        C.Brush.Style = qv::bsClear;
        C.Ellipse(p.X - 7, p.Y - 7, p.X + 8, p.Y + 8);
        C.MoveTo(p.X - 11, p.Y);
        C.LineTo(p.X + 12, p.Y);
        C.MoveTo(p.X, p.Y - 11);
        C.LineTo(p.X, p.Y + 12);
        C.Brush.Style = qv::bsSolid;
    };

    if (Start)
        FEdit->setText(PlaceText(Start->Latit, Start->Longit));
    connect(FEdit, &QLineEdit::textChanged, this, &TPlaceDialog::CheckText);
    CheckText();
    for (const TPlaceMap& m : FMaps)
        FMapBox->addItem(m.Caption);
    FMapBox->setEnabled(!FMaps.empty());
    connect(FMapBox, &QComboBox::currentIndexChanged, this, &TPlaceDialog::ShowMap);
    ShowMap(FMapBox->currentIndex());
}

TPlaceDialog::~TPlaceDialog()
{
    // The map is deleted after this object's own part: nothing of its may call back into it.
    FMap->OnMapImageRequest = {};
    FMap->OnResize = {};
    FMap->OnMouseDown = {};
    FMap->OnDataRendered = {};
    FMap->OnError = {};
}

bool TPlaceDialog::Place(double& Lat, double& Long) const
{
    QString error;
    return ParsePlace(FEdit->text(), Lat, Long, error);
}

void TPlaceDialog::CheckText()
{
    double lat = 0, lon = 0;
    QString error;
    const bool ok = ParsePlace(FEdit->text(), lat, lon, error);
    FOk->setEnabled(ok);
    FMessage->setText(ok ? QString() : error);
}

void TPlaceDialog::ShowMap(int Index)
{
    FMarker.reset();
    if (Index < 0 || Index >= static_cast<int>(FMaps.size()))
        return;
    const TPlaceMap& m = FMaps[static_cast<std::size_t>(Index)];
    FCalFile = m.CalFile;
    try {
        // The result tells only whether graticule lines were fitted; a map calibrated by points reads false.
        FMap->LoadCalDataFromXML(m.CalFile, "");
        FMap->ZoomFitPage();
        FMap->Paint();
    } catch (const std::exception& e) {
        FMessage->setText(QString("Cannot show %1: %2").arg(m.Caption, QString::fromStdString(e.what())));
    }
}

void TPlaceDialog::MapClicked(std::int32_t X, std::int32_t Y)
{
    const qv::TPoint p = FMap->ControlToMapImage({X, Y});
    qv::TCoords c;
    // Beyond the image the fit would extrapolate: a click there picks nothing.
    if (p.X < 0 || p.Y < 0 || p.X >= FMap->MapWidth() || p.Y >= FMap->MapHeight() ||
        !FMap->Calibration().CalcPosition(p, c)) {
        FMessage->setText(QString("No place at pixel (%1, %2) of this map: the text is left as it was").arg(p.X).arg(p.Y));
        return;
    }
    FMarker = p;
    FEdit->setText(PlaceText(c.Latit, c.Longit));
    FMessage->setText(QString("Picked at pixel (%1, %2) of %3").arg(p.X).arg(p.Y).arg(FMapBox->currentText()));
    FMap->Paint();
}

bool ParseUTMPlace(const QString& Easting, const QString& Northing, TUTMPlace& Place, QString& Error)
{
    const auto metres = [&](const QString& Text, const char* What, double Low, double High, double& Value) {
        QString t = Text.trimmed();
        if (t.endsWith('m'))
            t.chop(1);
        bool ok = false;
        Value = QLocale::c().toDouble(t.trimmed(), &ok);  // "." as the separator whatever the locale
        if (!ok || !std::isfinite(Value)) {
            Error = QString("The %1 is not a number of metres").arg(What);
            return false;
        }
        if (Value < Low || Value > High) {
            Error = QString("The %1 lies outside %2 to %3 m").arg(What).arg(Low, 0, 'f', 0).arg(High, 0, 'f', 0);
            return false;
        }
        return true;
    };
    double e = 0, n = 0;
    if (!metres(Easting, "easting", 100000, 900000, e) || !metres(Northing, "northing", 0, 10000000, n))
        return false;
    Place.Easting = e;
    Place.Northing = n;
    return true;
}

TUTMPlaceDialog::TUTMPlaceDialog(std::int32_t X, std::int32_t Y, const std::optional<TUTMPlace>& Start, bool Zone,
                                 QWidget* Parent)
    : QDialog(Parent)
{
    setWindowTitle("Reference point (UTM)");
    auto* v = new QVBoxLayout(this);
    v->addWidget(new QLabel(QString("Place of pixel (%1, %2) in UTM metres:").arg(X).arg(Y), this));
    auto* form = new QFormLayout;
    FEasting = new QLineEdit(this);
    FEasting->setPlaceholderText("601938");
    FNorthing = new QLineEdit(this);
    FNorthing->setPlaceholderText("5340385");
    FZone = new QSpinBox(this);
    FZone->setRange(1, 60);
    FHemisphere = new QComboBox(this);
    FHemisphere->addItems({"north", "south"});
    FZone->setEnabled(Zone);
    FHemisphere->setEnabled(Zone);
    form->addRow("&Easting", FEasting);
    form->addRow("&Northing", FNorthing);
    form->addRow("&Zone", FZone);
    form->addRow("&Hemisphere", FHemisphere);
    v->addLayout(form);
    FMessage = new QLabel(this);
    FMessage->setWordWrap(true);
    v->addWidget(FMessage);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    FOk = buttons->button(QDialogButtonBox::Ok);
    v->addWidget(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    if (Start) {
        if (Start->Easting > 0 || Start->Northing > 0) {
            FEasting->setText(QString::number(Start->Easting, 'f', 1));
            FNorthing->setText(QString::number(Start->Northing, 'f', 1));
        }
        if (Start->Zone >= 1 && Start->Zone <= 60)
            FZone->setValue(Start->Zone);
        FHemisphere->setCurrentIndex(Start->Hemisphere == qv::hemiSouth ? 1 : 0);
    }
    connect(FEasting, &QLineEdit::textChanged, this, &TUTMPlaceDialog::CheckText);
    connect(FNorthing, &QLineEdit::textChanged, this, &TUTMPlaceDialog::CheckText);
    CheckText();
}

bool TUTMPlaceDialog::Place(TUTMPlace& Place) const
{
    QString error;
    TUTMPlace p;
    if (!ParseUTMPlace(FEasting->text(), FNorthing->text(), p, error))
        return false;
    p.Zone = FZone->value();
    p.Hemisphere = FHemisphere->currentIndex() == 1 ? qv::hemiSouth : qv::hemiNorth;
    Place = p;
    return true;
}

void TUTMPlaceDialog::CheckText()
{
    TUTMPlace p;
    QString error;
    const bool ok = ParseUTMPlace(FEasting->text(), FNorthing->text(), p, error);
    FOk->setEnabled(ok);
    FMessage->setText(ok ? QString() : error);
}

}  // namespace viewer
