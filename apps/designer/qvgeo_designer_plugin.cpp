// Qt Designer plugin: TGeoMap and TGeoAtlas in the widget box (group "qvgeo"). Designer edits their
// Q_PROPERTYs (colours, enumerations, distances...); a form loaded at run time or compiled by uic includes
// the widgets' installed headers. The plugin holds no state of its own.
#include <qvgeo/geoatlas/geo_atlas.h>
#include <qvgeo/mapview/geo_map.h>

#include <QtUiPlugin/QDesignerCustomWidgetCollectionInterface>
#include <QtUiPlugin/QDesignerCustomWidgetInterface>

#include <QIcon>
#include <QPainter>
#include <QPixmap>

#include <functional>
#include <utility>

namespace {

// A 32 x 32 picture of a map sheet: paper, two meridians and two parallels, a landmark.
QIcon MapIcon()
{
    QPixmap pm(32, 32);
    pm.fill(Qt::transparent);
    QPainter p(&pm);
    p.setRenderHint(QPainter::Antialiasing);
    p.setPen(QPen(QColor(60, 60, 60), 1));
    p.setBrush(QColor(225, 235, 200));
    p.drawRect(QRectF(2.5, 4.5, 27, 23));
    p.setPen(QPen(QColor(40, 70, 200), 1));
    for (double x : {11.5, 20.5})
        p.drawLine(QPointF(x, 5), QPointF(x, 27));
    for (double y : {12.5, 19.5})
        p.drawLine(QPointF(3, y), QPointF(29, y));
    p.setPen(Qt::NoPen);
    p.setBrush(QColor(210, 30, 30));
    p.drawEllipse(QPointF(16, 16), 3, 3);
    return QIcon(pm);
}

// The atlas: its own zoom glyph from the package's resources, a sheet when that is missing.
QIcon AtlasIcon()
{
    QIcon Icon(QStringLiteral(":/qvgeo/geoatlas/ZOOMIN.png"));
    return Icon.availableSizes().isEmpty() ? MapIcon() : Icon;
}

class TWidgetPlugin : public QObject, public QDesignerCustomWidgetInterface {
    Q_OBJECT
    Q_INTERFACES(QDesignerCustomWidgetInterface)

public:
    using TFactory = std::function<QWidget*(QWidget* Parent)>;
    TWidgetPlugin(QString Name, QString Include, QString ToolTip, QIcon Icon, QString DomXml, TFactory Create,
                  QObject* Parent)
        : QObject(Parent), FName(std::move(Name)), FInclude(std::move(Include)), FToolTip(std::move(ToolTip)),
          FIcon(std::move(Icon)), FDomXml(std::move(DomXml)), FCreate(std::move(Create))
    {
    }

    QString name() const override { return FName; }
    QString group() const override { return QStringLiteral("qvgeo"); }
    QString toolTip() const override { return FToolTip; }
    QString whatsThis() const override { return FToolTip; }
    // A leading '<' makes uic write a global #include <...>.
    QString includeFile() const override { return FInclude; }
    QIcon icon() const override { return FIcon; }
    bool isContainer() const override { return false; }
    QWidget* createWidget(QWidget* Parent) override { return FCreate(Parent); }
    bool isInitialized() const override { return FInitialized; }
    void initialize(QDesignerFormEditorInterface*) override { FInitialized = true; }
    QString domXml() const override { return FDomXml; }

private:
    QString FName, FInclude, FToolTip;
    QIcon FIcon;
    QString FDomXml;
    TFactory FCreate;
    bool FInitialized = false;
};

// The form element Designer drops: the class, an object name and the widget's own default size.
QString DomXml(const QString& Class, const QString& ObjectName, int Width, int Height)
{
    return QStringLiteral("<ui language=\"c++\">\n"
                          " <widget class=\"%1\" name=\"%2\">\n"
                          "  <property name=\"geometry\">\n"
                          "   <rect><x>0</x><y>0</y><width>%3</width><height>%4</height></rect>\n"
                          "  </property>\n"
                          " </widget>\n"
                          "</ui>\n")
        .arg(Class, ObjectName)
        .arg(Width)
        .arg(Height);
}

class TQvgeoWidgets : public QObject, public QDesignerCustomWidgetCollectionInterface {
    Q_OBJECT
    Q_PLUGIN_METADATA(IID "org.qt-project.Qt.QDesignerCustomWidgetCollectionInterface")
    Q_INTERFACES(QDesignerCustomWidgetCollectionInterface)

public:
    explicit TQvgeoWidgets(QObject* Parent = nullptr) : QObject(Parent)
    {
        // The widgets are owned by the form Designer puts them on (Qt's parent chain).
        FWidgets.push_back(new TWidgetPlugin(
            QString::fromLatin1(qv::TGeoMap::staticMetaObject.className()),
            QStringLiteral("<qvgeo/mapview/geo_map.h>"),
            QStringLiteral("Calibrated raster map view with graticule, landmarks and mouse modes"), MapIcon(),
            DomXml(QString::fromLatin1(qv::TGeoMap::staticMetaObject.className()), QStringLiteral("geoMap"), 500,
                   400),
            [](QWidget* Parent) -> QWidget* { return new qv::TGeoMap(Parent); }, this));
        FWidgets.push_back(new TWidgetPlugin(
            QString::fromLatin1(qv::TGeoAtlas::staticMetaObject.className()),
            QStringLiteral("<qvgeo/geoatlas/geo_atlas.h>"),
            QStringLiteral("Atlas of calibrated maps: zooms between them by clicking"), AtlasIcon(),
            DomXml(QString::fromLatin1(qv::TGeoAtlas::staticMetaObject.className()), QStringLiteral("geoAtlas"),
                   480, 320),
            [](QWidget* Parent) -> QWidget* { return new qv::TGeoAtlas(Parent); }, this));
    }

    QList<QDesignerCustomWidgetInterface*> customWidgets() const override { return FWidgets; }

private:
    QList<QDesignerCustomWidgetInterface*> FWidgets;  // children of this object
};

}  // namespace

#include "qvgeo_designer_plugin.moc"
