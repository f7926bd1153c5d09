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
    {"qv::TGeoMap", "<qvgeo/geomap/view/geo_map.h>",
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

TEST(DesignerPlugin, MapPropertiesThroughQt)
{
    TMade M("qv::TGeoMap");
    ASSERT_NE(M.W, nullptr);
    QWidget& W = *M.W;
    // Defaults. The colours cross from red-in-the-low-byte values: graticule 0xFF0000 is blue.
    EXPECT_EQ(W.property("ColorBackGnd").value<QColor>(), QColor(192, 192, 192));
    EXPECT_EQ(W.property("ColorGraticule").value<QColor>(), QColor(0, 0, 255));
    EXPECT_EQ(W.property("ColorCalibPoints").value<QColor>(), QColor(255, 0, 0));
    EXPECT_EQ(W.property("EmptyMsg").toString(), "GeoMap: empty");
    EXPECT_EQ(Key(W, "FrameStyle"), "fsLowered");
    EXPECT_EQ(Key(W, "ShowGraticule"), "sgNone");
    EXPECT_EQ(Key(W, "MouseAction"), "maPan");
    EXPECT_EQ(Key(W, "CalibModel"), "cmUndefined");
    EXPECT_EQ(Key(W, "UTMHemisphere"), "hemiNorth");

    // Writes go through the setters' rules: clamping, ignored zones, AllowPan tied to MouseAction.
    struct TWrite {
        const char* Property;
        QVariant Value;
        QVariant ReadBack;
    };
    const TWrite Writes[] = {
        {"GratLineDist", 100.0, 60.0},
        {"GratLineDist", 2.5, 2.5},
        {"UTMGridDist", -5, 0},
        {"UTMZone", 33, 33},
        {"UTMZone", 61, 33},
        {"ColorFrame", QColor(10, 20, 30), QColor(10, 20, 30)},
        {"EmptyMsg", QString::fromUtf8("Keine Karte: Größe 0"), QString::fromUtf8("Keine Karte: Größe 0")},
        {"ShowGraticule", "sgPointsAndUTMGrid", 5},
        {"FrameStyle", "fsBump", 7},
        {"UTMHemisphere", "hemiSouth", 1},
        {"CalibModel", "cmEquiRect", 4},
        {"AllowPan", false, false},
        {"MouseAction", "maLandMark", 20},
        {"AllowPan", true, true},
    };
    for (const auto& T : Writes) {
        SCOPED_TRACE(T.Property);
        EXPECT_TRUE(W.setProperty(T.Property, T.Value));
        const QVariant Got = W.property(T.Property);
        if (T.ReadBack.typeId() == QMetaType::Int && Got.metaType().flags().testFlag(QMetaType::IsEnumeration))
            EXPECT_EQ(Got.toInt(), T.ReadBack.toInt());
        else
            EXPECT_EQ(Got, T.ReadBack);
    }
    EXPECT_EQ(Key(W, "MouseAction"), "maPan");  // AllowPan true
    W.setProperty("AllowPan", false);
    EXPECT_EQ(Key(W, "MouseAction"), "maNone");
}

TEST(DesignerPlugin, AtlasPropertiesThroughQt)
{
    TMade M("qv::TGeoAtlas");
    ASSERT_NE(M.W, nullptr);
    QWidget& W = *M.W;
    EXPECT_EQ(W.property("MapOutlineColor").value<QColor>(), QColor(0, 0, 255));
    EXPECT_EQ(W.property("MinResDiff").toDouble(), 10.0);
    EXPECT_TRUE(W.property("MapOutlineVisible").toBool());
    W.setProperty("MapOutlineColor", QColor(200, 100, 0));
    EXPECT_EQ(W.property("MapOutlineColor").value<QColor>(), QColor(200, 100, 0));
    W.setProperty("CmdPanelVisible", false);
    EXPECT_FALSE(W.property("CmdPanelVisible").toBool());
    W.setProperty("CmdPanelVisible", true);
    EXPECT_TRUE(W.property("CmdPanelVisible").toBool());
}

}  // namespace
