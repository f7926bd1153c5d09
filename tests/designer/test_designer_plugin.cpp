// The Designer plugin as Designer meets it: loaded with QPluginLoader, nothing of qvgeo linked into this
// test, the widgets reached only through the plugin's interfaces and Qt's meta-object system.
#include <QtUiPlugin/QDesignerCustomWidgetCollectionInterface>
#include <QtUiPlugin/QDesignerCustomWidgetInterface>

#include <QColor>
#include <QMetaEnum>
#include <QMetaProperty>
#include <QPluginLoader>
#include <QWidget>
#include <QXmlStreamReader>

#include <gtest/gtest.h>

#include <memory>
#include <ostream>

// Readable failure messages for Qt's values (found by argument-dependent lookup: both live in the global
// namespace).
void PrintTo(const QString& S, std::ostream* Os) { *Os << '"' << S.toStdString() << '"'; }
void PrintTo(const QColor& C, std::ostream* Os) { *Os << C.name().toStdString(); }

namespace {

// The plugin of the build tree, or the file named by QVGEO_DESIGNER_PLUGIN (the installed one).
QDesignerCustomWidgetCollectionInterface* Collection()
{
    static QPluginLoader Loader(qEnvironmentVariableIsEmpty("QVGEO_DESIGNER_PLUGIN")
                                    ? QStringLiteral(QVGEO_DESIGNER_PLUGIN)
                                    : qEnvironmentVariable("QVGEO_DESIGNER_PLUGIN"));
    auto* C = qobject_cast<QDesignerCustomWidgetCollectionInterface*>(Loader.instance());
    EXPECT_NE(C, nullptr) << Loader.errorString().toStdString();
    return C;
}

QDesignerCustomWidgetInterface* Find(const QString& Name)
{
    if (auto* C = Collection())
        for (auto* W : C->customWidgets())
            if (W->name() == Name)
                return W;
    return nullptr;
}

// A widget made by the plugin, parented as on a form.
struct TMade {
    std::unique_ptr<QWidget> Form = std::make_unique<QWidget>();
    QWidget* W = nullptr;
    explicit TMade(const char* Name)
    {
        if (auto* I = Find(QString::fromLatin1(Name)))
            W = I->createWidget(Form.get());
    }
};

// The name of an enumeration property's current value.
QString Key(const QObject& O, const char* Property)
{
    const QMetaProperty P = O.metaObject()->property(O.metaObject()->indexOfProperty(Property));
    return QString::fromLatin1(P.enumerator().valueToKey(O.property(Property).toInt()));
}

struct TExpectedWidget {
    const char* Name;
    const char* Include;
    QStringList Published;  // the properties Designer must offer
};

const TExpectedWidget Expected[] = {
    {"qv::TGeoMap", "<qvgeo/mapview/geo_map.h>",
     {"AllowPan", "AntiAlias", "CacheMagLimit", "CalibModel", "ColorBackGnd", "ColorFrame", "ColorGraticule",
      "ColorCalibPoints", "ConfinePanToMapImage", "EmptyMsg", "FrameStyle", "GratLineDist", "UTMGridDist",
      "UTMZone", "UTMHemisphere", "MouseAction", "ShowGraticule"}},
    {"qv::TGeoAtlas", "<qvgeo/geoatlas/geo_atlas.h>",
     {"CmdPanelVisible", "MapOutlineColor", "MapOutlineVisible", "MinResDiff"}},
};

TEST(DesignerPlugin, OffersBothWidgets)
{
    ASSERT_NE(Collection(), nullptr);
    EXPECT_EQ(Collection()->customWidgets().size(), std::size(Expected));
    for (const auto& E : Expected) {
        SCOPED_TRACE(E.Name);
        QDesignerCustomWidgetInterface* I = Find(QString::fromLatin1(E.Name));
        ASSERT_NE(I, nullptr);
        EXPECT_EQ(I->group(), "qvgeo");
        EXPECT_EQ(I->includeFile(), E.Include);
        EXPECT_FALSE(I->isContainer());
        EXPECT_FALSE(I->icon().isNull());
        // The form element: a widget of this class with a size Designer gives it when dropped.
        QXmlStreamReader X(I->domXml());
        while (!X.atEnd() && !(X.isStartElement() && X.name() == QLatin1String("widget")))
            X.readNext();
        EXPECT_EQ(X.attributes().value("class"), QLatin1String(E.Name));
        while (!X.atEnd() && !(X.isStartElement() && X.name() == QLatin1String("width")))
            X.readNext();
        EXPECT_GT(X.readElementText().toInt(), 100);
        EXPECT_FALSE(X.hasError()) << X.errorString().toStdString();

        TMade M(E.Name);
        ASSERT_NE(M.W, nullptr);
        EXPECT_STREQ(M.W->metaObject()->className(), E.Name);
        EXPECT_EQ(M.W->parentWidget(), M.Form.get());
        for (const QString& Name : E.Published) {
            const int Index = M.W->metaObject()->indexOfProperty(Name.toLatin1().constData());
            ASSERT_GE(Index, 0) << Name.toStdString();
            const QMetaProperty P = M.W->metaObject()->property(Index);
            EXPECT_TRUE(P.isWritable() && P.isDesignable()) << Name.toStdString();
        }
    }
}

// Both widgets' properties through Qt alone. Colours cross from red-in-the-low-byte values (the map's
// graticule 0xFF0000 is blue); writes go through the setters' rules (clamping, ignored zones, AllowPan tied
// to MouseAction), enumerations by their names.
TEST(DesignerPlugin, PropertiesThroughQt)
{
    TMade Map("qv::TGeoMap"), Atlas("qv::TGeoAtlas");
    ASSERT_TRUE(Map.W && Atlas.W);
    EXPECT_EQ(Map.W->property("ColorGraticule").value<QColor>(), QColor(0, 0, 255));
    EXPECT_EQ(Map.W->property("ColorCalibPoints").value<QColor>(), QColor(255, 0, 0));
    EXPECT_EQ(Atlas.W->property("MapOutlineColor").value<QColor>(), QColor(0, 0, 255));
    EXPECT_EQ(Key(*Map.W, "ShowGraticule"), "sgNone");
    EXPECT_EQ(Key(*Map.W, "UTMHemisphere"), "hemiNorth");
    struct TWrite { QWidget* W; const char* Property; QVariant Value; QVariant ReadBack; };
    const TWrite Writes[] = {
        {Map.W, "GratLineDist", 100.0, 60.0},
        {Map.W, "UTMGridDist", -5, 0},
        {Map.W, "UTMZone", 33, 33},
        {Map.W, "UTMZone", 61, 33},
        {Map.W, "ColorFrame", QColor(10, 20, 30), QColor(10, 20, 30)},
        {Map.W, "EmptyMsg", QString::fromUtf8("Keine Karte: Größe 0"), QString::fromUtf8("Keine Karte: Größe 0")},
        {Map.W, "ShowGraticule", "sgPointsAndUTMGrid", 5},
        {Map.W, "FrameStyle", "fsBump", 7},
        {Map.W, "FrameStyle", "fsSingleLowered", 4},
        {Map.W, "UTMHemisphere", "hemiSouth", 1},
        {Map.W, "CalibModel", "cmEquiRect", 4},
        {Map.W, "AllowPan", false, false},
        {Map.W, "MouseAction", "maLandMark", 20},
        {Map.W, "AllowPan", true, true},
        {Atlas.W, "MapOutlineColor", QColor(200, 100, 0), QColor(200, 100, 0)},
        {Atlas.W, "MinResDiff", 25.0, 25.0},
        {Atlas.W, "CmdPanelVisible", false, false},
        {Atlas.W, "CmdPanelVisible", true, true},
    };
    for (const auto& T : Writes) {
        SCOPED_TRACE(T.Property);
        EXPECT_TRUE(T.W->setProperty(T.Property, T.Value));
        const QVariant Got = T.W->property(T.Property);
        if (T.ReadBack.typeId() == QMetaType::Int && Got.metaType().flags().testFlag(QMetaType::IsEnumeration))
            EXPECT_EQ(Got.toInt(), T.ReadBack.toInt());
        else
            EXPECT_EQ(Got, T.ReadBack);
    }
    EXPECT_EQ(Key(*Map.W, "MouseAction"), "maPan");  // AllowPan true
    Map.W->setProperty("AllowPan", false);
    EXPECT_EQ(Key(*Map.W, "MouseAction"), "maNone");
}

}  // namespace
