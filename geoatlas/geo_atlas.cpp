// TGeoAtlas: construction, registration, map choice, the panel's buttons and list, and the answers to the
// embedded map's events (mouse, image request, outlines).
#include <qvgeo/geoatlas/geo_atlas.h>

#include <qvgeo/geomap/calibration_file.h>
#include <qvgeo/platform/canvas.h>
#include <qvgeo/platform/cursors.h>
#include <qvgeo/support/text.h>

#include <QButtonGroup>
#include <QComboBox>
#include <QFrame>
#include <QIcon>
#include <QToolButton>

#include <algorithm>
#include <cmath>
#include <exception>
#include <functional>
#include <stdexcept>
#include <utility>

// The glyphs are compiled into the library; an application linking it statically would otherwise lose them.
static void InitAtlasResources() { Q_INIT_RESOURCE(atlas); }

namespace qv {

namespace {

constexpr int kPanelHeight = 33;

QToolButton* MakeSpeedButton(QWidget* Panel, int Left, const char* Glyph)
{
    auto* b = new QToolButton(Panel);
    b->setGeometry(Left, 3, 26, 26);
    b->setAutoRaise(true);  // flat
    b->setCheckable(true);
    b->setFocusPolicy(Qt::NoFocus);
    // Both sizes explicitly: QIcon's own look-up of "@2x" files happens only when the application's ratio
    // is 2 at that moment, which misses a window moved to a high-density screen later. The disabled look is
    // derived by Qt.
    const QString base = QStringLiteral(":/qvgeo/geoatlas/") + QString::fromLatin1(Glyph);
    QIcon icon;
    icon.addFile(base + QStringLiteral(".png"), QSize(16, 16));
    icon.addFile(base + QStringLiteral("@2x.png"), QSize(32, 32));
    b->setIcon(icon);
    b->setIconSize(QSize(16, 16));
    return b;
}

// Holds the view's painting for a scope and paints once at its end (unless the application holds it too),
// so that a map switch shows one finished frame: image, position and the outlines of the list's choice.
// The paint at the end runs the application's render handlers: what they throw goes to Report, since an
// exception leaving a destructor ends the program (and one may be unwinding through the scope already).
class THoldViewPaint {
public:
    using TReport = std::function<void(const std::exception&)>;
    THoldViewPaint(TGeoMap& Map, TReport Report)
        : FMap(Map), FReport(std::move(Report)), FWasHeld(Map.SuppressPaint())
    {
        FMap.SetSuppressPaint(true);
    }
    ~THoldViewPaint()
    {
        try {
            FMap.SetSuppressPaint(FWasHeld);
        } catch (const std::exception& e) {
            FReport(e);
        } catch (...) {
            FReport(std::runtime_error("unknown exception"));
        }
    }
    THoldViewPaint(const THoldViewPaint&) = delete;
    THoldViewPaint& operator=(const THoldViewPaint&) = delete;

private:
    TGeoMap& FMap;
    TReport FReport;
    bool FWasHeld;
};

}  // namespace

TGeoAtlas::TGeoAtlas(QWidget* Parent) : TCustomControl(Parent)
{
    InitAtlasResources();
    setGeometry(100, 50, 480, 320);

    FCPanel = new QFrame(this);
    FCPanel->setGeometry(0, 0, width(), kPanelHeight);
    FSBPoint = MakeSpeedButton(FCPanel, 3, "POINTR");
    FSBPoint->setChecked(true);
    FSBZoom = MakeSpeedButton(FCPanel, FSBPoint->geometry().x() + FSBPoint->width() + 3, "ZOOMIN");
    FButtons = new QButtonGroup(this);
    FButtons->setExclusive(true);  // exactly one of the two is down
    FButtons->addButton(FSBPoint, AtlasButtonGroup);
    FButtons->addButton(FSBZoom, AtlasButtonGroup);
    // Slots run in Qt's event loop: what they or the application's handlers throw goes to OnError.
    connect(FButtons, &QButtonGroup::buttonClicked, this,
            [this](QAbstractButton* B) { Guarded([&] { ButtonClicked(static_cast<QToolButton*>(B)); }); });

    FCboxMaps = new QComboBox(FCPanel);
    FCboxMaps->setEditable(false);
    FCboxMaps->move(FSBZoom->geometry().x() + FSBZoom->width() + 10, 5);
    FCboxMaps->resize(300, FCboxMaps->sizeHint().height());
    // activated, not currentIndexChanged: only the user's choice loads a map, not SelectMap's own update
    // of the line shown.
    connect(FCboxMaps, &QComboBox::activated, this, [this](int Line) { Guarded([&] { ListChosen(Line); }); });

    FGeoMap = new TGeoMap(this);
    FGeoMap->SetName("GeoMap");
    FGeoMap->OnMouseDown = [this](TCustomControl&, TMouseButton B, TShiftState S, std::int32_t X, std::int32_t Y) {
        MapMouseDown(B, S, X, Y);
    };
    FGeoMap->OnMouseUp = [this](TCustomControl&, TMouseButton B, TShiftState S, std::int32_t X, std::int32_t Y) {
        if (OnMouseUp)
            OnMouseUp(*this, B, S, X, Y);
    };
    FGeoMap->OnMouseMove = [this](TCustomControl&, TShiftState S, std::int32_t X, std::int32_t Y) {
        if (OnMouseMove)
            OnMouseMove(*this, S, X, Y);
    };
    FGeoMap->OnClick = [this](TCustomControl&) {
        if (OnClick)
            OnClick(*this);
    };
    FGeoMap->OnDblClick = [this](TCustomControl&) {
        if (OnDblClick)
            OnDblClick(*this);
    };
    FGeoMap->OnDataRendered = [this](TGeoMap&, TCanvas& Canvas) { DrawOutlines(Canvas); };
    FGeoMap->OnMapImageRequest = [this](TGeoMap&, std::string& FileName) { ImageRequest(FileName); };
    // Qt creates the native window lazily (often never, off screen); the text is set here instead.
    FGeoMap->SetEmptyMsg("TGeoAtlas: Empty");
    LayoutChildren();

    RegisterCursor(AtlasZoomCursor, LoadCursorResource("CURGEOZOOM"));
    RegisterCursor(AtlasHandCursor, LoadCursorResource("CURGEOHAND"));
}

TGeoAtlas::~TGeoAtlas() = default;

void TGeoAtlas::LayoutChildren()
{
    const int top = FCPanel->isHidden() ? 0 : kPanelHeight;
    FCPanel->setGeometry(0, 0, width(), kPanelHeight);
    FGeoMap->setGeometry(0, top, width(), std::max(0, height() - top));
}

void TGeoAtlas::Resize()
{
    LayoutChildren();
    TCustomControl::Resize();
}

bool TGeoAtlas::CmdPanelVisible() const { return !FCPanel->isHidden(); }

void TGeoAtlas::SetCmdPanelVisible(bool Value)
{
    const bool was = CmdPanelVisible();
    FCPanel->setVisible(Value);
    LayoutChildren();
    if (Value != was)
        emit cmdPanelVisibleChanged(Value);
}

void TGeoAtlas::SetMapOutlineColor(TColor Value)
{
    const TColor was = FMapOLColor;
    FMapOLColor = Value;
    FGeoMap->Paint();
    if (Value != was)
        emit mapOutlineColorChanged(ToQColor(Value));
}

void TGeoAtlas::SetMapOutlineVisible(bool Value)
{
    const bool was = FMapOLVisible;
    FMapOLVisible = Value;
    FGeoMap->Paint();
    if (Value != was)
        emit mapOutlineVisibleChanged(Value);
}

void TGeoAtlas::SetMinResDiff(double Value)
{
    const double was = FMinResDiff;
    FMinResDiff = Value;
    // NaN set over NaN is no change, although NaN != NaN.
    if (Value != was && !(std::isnan(Value) && std::isnan(was)))
        emit minResDiffChanged(Value);
}

void TGeoAtlas::ReportError(const std::exception& Error)
{
    TCustomControl::ReportError(Error);
    emit error(QString::fromStdString(Error.what()));
}

// ---- registration ----

bool TGeoAtlas::RegisterMap(const std::string& MapFName)
{
    const std::int32_t before = NumRegMaps();
    const std::int32_t slot = FCatalogue.Register(MapFName);
    if (slot == 0)
        return false;
    Registered(slot, before);
    return true;
}

void TGeoAtlas::Registered(std::int32_t Slot, std::int32_t CountBefore)
{
    FillMapList();
    emit mapRegistered(Slot);
    if (NumRegMaps() != CountBefore)
        emit numRegMapsChanged(NumRegMaps());
}

void TGeoAtlas::FillMapList()
{
    const QSignalBlocker block(FCboxMaps);
    FCboxMaps->clear();
    for (std::int32_t i = 1; i <= NumRegMaps(); ++i)
        FCboxMaps->addItem(QString::fromStdString(FCatalogue.ListLine(i)));
    FCboxMaps->setCurrentIndex(-1);  // a combo box selects its first line by itself; no map is chosen
}

void TGeoAtlas::UnregisterMap(std::int32_t Index)
{
    if (!FCatalogue.Unregister(Index))
        return;
    const std::int32_t selected = FCboxMaps->currentIndex() + 1;
    FillMapList();
    if (Index == selected)
        SelectMap(Index);
    else
        FGeoMap->Paint();  // the current map number is deliberately left as it was
    emit numRegMapsChanged(NumRegMaps());
    emit mapUnregistered(Index);
}

std::vector<TAtlasFileProblem> TGeoAtlas::RegisterFolder(const std::string& Folder,
                                                         const std::function<bool(std::int32_t, std::int32_t)>& Progress)
{
    // The list follows each file taken, so that Progress sees the maps registered so far.
    std::int32_t before = NumRegMaps();
    return FCatalogue.RegisterFolder(Folder, Progress, [&](std::int32_t Slot) {
        Registered(Slot, before);
        before = NumRegMaps();
    });
}

TMapDefinition TGeoAtlas::GetMapDef(std::int32_t Index) const { return FCatalogue.GetMapDef(Index); }

// ---- choosing and showing maps ----

bool TGeoAtlas::LoadMap(std::int32_t Index)
{
    const std::string name = FCatalogue.FileName(Index);
    try {
        if (FGeoMap->LoadCalDataFromXML(name, ""))
            return true;
        // The map's reader answers with its graticule fit, true only for at least two parallels and two
        // meridians: a map calibrated by points alone (as generated maps are) reads false although its
        // calibration was taken. Loaded here means that the file held a calibration, which the view now has.
        return FCatalogue.HoldsCalibration(Index);
    } catch (const std::exception& e) {
        ReportError(e);
        return false;
    }
}

void TGeoAtlas::NotifyCurrentMap(std::int32_t Previous)
{
    if (FCurrentMapIdx != Previous)
        emit mapChanged(FCurrentMapIdx);
}

bool TGeoAtlas::SelectMap(std::int32_t Index)
{
    std::int32_t previous = 0;
    if (!Show(Index, previous))
        return false;
    NotifyCurrentMap(previous);
    emit mapShown(Index);
    return true;
}

bool TGeoAtlas::Show(std::int32_t Index, std::int32_t& Previous)
{
    Previous = FCurrentMapIdx;
    if (Index < 1 || Index > NumRegMaps())
        return false;
    FCurrentMapIdx = Index;
    const THoldViewPaint hold(*FGeoMap, HoldReport());  // the outlines leave out the map the list shows at the end
    if (!LoadMap(Index)) {
        // The view has put itself back; the number goes back with it, so that the map's name, its image
        // look-up and the next zoom step belong to the map still shown.
        FCurrentMapIdx = Previous;
        return false;
    }
    const QSignalBlocker block(FCboxMaps);
    FCboxMaps->setCurrentIndex(Index - 1);
    return true;
}

bool TGeoAtlas::ShowAndCentre(std::int32_t Index, double Lat, double Long)
{
    if (Index == 0)
        return false;
    std::int32_t previous = 0;
    {
        // One paint at the end of this scope, before the signals: listeners see the finished frame.
        const THoldViewPaint hold(*FGeoMap, HoldReport());
        if (!Show(Index, previous))
            return false;  // the map shown before stays as it was, not re-centred
        FGeoMap->BringLocationToCenter(Lat, Long);
    }
    NotifyCurrentMap(previous);
    emit mapShown(Index);
    return true;
}

bool TGeoAtlas::ZoomIn(double CurrentLat, double CurrentLong, double CurrentResolution)
{
    return ShowAndCentre(FCatalogue.ChooseFiner(CurrentLat, CurrentLong, CurrentResolution, FMinResDiff), CurrentLat,
                         CurrentLong);
}

bool TGeoAtlas::ZoomOut(double CurrentLat, double CurrentLong, double CurrentResolution)
{
    return ShowAndCentre(FCatalogue.ChooseCoarser(CurrentLat, CurrentLong, CurrentResolution), CurrentLat, CurrentLong);
}

bool TGeoAtlas::SelectBestMap(double Lat, double Long, double Resolution)
{
    return ShowAndCentre(FCatalogue.ChooseBest(Lat, Long, Resolution), Lat, Long);
}

// ---- panel ----

void TGeoAtlas::ButtonClicked(QToolButton* Button)
{
    // The map view fills most of the atlas and has a cursor of its own: the zoom cursor goes onto it too,
    // after its mode change has set the mode's cursor.
    if (FSBZoom->isChecked()) {
        setCursor(GetCursor(AtlasZoomCursor));
        FGeoMap->SetAllowPan(false);
        FGeoMap->setCursor(GetCursor(AtlasZoomCursor));
    } else {
        setCursor(GetCursor(crHandPoint));
        FGeoMap->SetAllowPan(true);
        if (!FGeoMap->ModeCursor())
            FGeoMap->unsetCursor();  // the atlas's hand shows through
    }
    if (OnClick)
        OnClick(*this);
    if (Button == FSBZoom) {
        if (OnZoomButClick)
            OnZoomButClick(*this);
        emit zoomButtonClicked();
    } else if (Button == FSBPoint) {
        if (OnPointerButClick)
            OnPointerButClick(*this);
        emit pointerButtonClicked();
    }
}

std::function<void(const std::exception&)> TGeoAtlas::HoldReport()
{
    return [this](const std::exception& E) { ReportError(E); };
}

bool TGeoAtlas::MayLeave(std::int32_t Index)
{
    return Index == FCurrentMapIdx || !OnMapChanging || OnMapChanging(*this, Index);
}

void TGeoAtlas::ListChosen(int Line)
{
    if (!MayLeave(Line + 1)) {
        // The map shown stays, and the list names it again.
        const QSignalBlocker block(FCboxMaps);
        FCboxMaps->setCurrentIndex(FCurrentMapIdx - 1);
        return;
    }
    const std::int32_t previous = FCurrentMapIdx;
    FCurrentMapIdx = Line + 1;
    bool shown = false;
    if (FCurrentMapIdx >= 1 && FCurrentMapIdx <= NumRegMaps()) {
        const THoldViewPaint hold(*FGeoMap, HoldReport());
        shown = LoadMap(FCurrentMapIdx);
        if (!shown) {
            // A map that cannot be shown: the view stayed, and the list and the number follow it back.
            FCurrentMapIdx = previous;
            const QSignalBlocker block(FCboxMaps);
            FCboxMaps->setCurrentIndex(previous - 1);
        }
    }
    NotifyCurrentMap(previous);
    if (shown)
        emit mapShown(FCurrentMapIdx);
    if (OnCBoxMapsChange)
        OnCBoxMapsChange(*this);
    emit mapChosen(FCurrentMapIdx);
}

// ---- the map view's events ----

void TGeoAtlas::MapMouseDown(TMouseButton Button, TShiftState Shift, std::int32_t X, std::int32_t Y)
{
    if (OnMouseDown)
        OnMouseDown(*this, Button, Shift, X, Y);
    if (!FSBZoom->isChecked())
        return;
    // The view has recorded the press as its last click before firing this event.
    const double lat = FGeoMap->GetLastMClickLatitude();
    const double lon = FGeoMap->GetLastMClickLongitude();
    const double res = FGeoMap->CalibData().Resolution;
    // ZoomIn's and ZoomOut's choice, asked about before it replaces the map shown.
    const std::int32_t target =
        Button == mbLeft ? FCatalogue.ChooseFiner(lat, lon, res, FMinResDiff) : FCatalogue.ChooseCoarser(lat, lon, res);
    if (target != 0 && MayLeave(target))
        ShowAndCentre(target, lat, lon);
}

void TGeoAtlas::ImageRequest(std::string& FileName) const
{
    if (FCurrentMapIdx < 1 || FCurrentMapIdx > MaxAtlasMaps)
        return;
    FileName = FindImageBeside(FCatalogue.FileName(FCurrentMapIdx), FileName);
}

void TGeoAtlas::DrawOutlines(TCanvas& Canvas)
{
    if (!FMapOLVisible)
        return;
    Canvas.Pen.Color = FMapOLColor;
    const std::int32_t shown = FCboxMaps->currentIndex() + 1;
    static constexpr TCorners kPath[] = {gcoTopLeft, gcoBottomLeft, gcoBottomRight, gcoTopRight};
    for (std::int32_t i = 1; i <= NumRegMaps(); ++i) {
        if (i == shown)
            continue;
        const TCornerArray& c = FCatalogue.Definition(i).Corners;
        std::int32_t x = 0, y = 0;
        // A corner that does not convert is skipped: the pen stays where it was and the outline stays open.
        if (FGeoMap->CalcPixelCoords(c[gcoTopRight].Latit, c[gcoTopRight].Longit, x, y)) {
            const TPoint p = FGeoMap->MapImageToControl({x, y});
            Canvas.MoveTo(p.X, p.Y);
        }
        for (TCorners k : kPath) {
            if (FGeoMap->CalcPixelCoords(c[k].Latit, c[k].Longit, x, y)) {
                const TPoint p = FGeoMap->MapImageToControl({x, y});
                Canvas.LineTo(p.X, p.Y);
            }
        }
    }
}

}  // namespace qv
