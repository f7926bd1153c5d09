#include "landmark_dialog.h"

#include "guard.h"

#include <QComboBox>
#include <QDialogButtonBox>
#include <QFileDialog>
#include <QFormLayout>
#include <QLineEdit>
#include <QMessageBox>
#include <QPushButton>
#include <QSpinBox>

#include <stdexcept>

namespace viewer {

TLandmarkDialog::TLandmarkDialog(const qv::TSymbolRepository& Symbols, const qv::TLandMark& LandMark, QWidget* Parent)
    : QDialog(Parent), FLandMark(LandMark)
{
    setWindowTitle("Edit landmark");
    auto* form = new QFormLayout(this);
    FSymbol = new QComboBox(this);
    auto* open = new QPushButton("Open catalogue...", this);
    form->addRow("&Symbol", FSymbol);
    form->addRow({}, open);
    FCaption = new QLineEdit(QString::fromStdString(LandMark.Caption.Text), this);
    FCaption->setMaxLength(int(qv::LMTextCapacity));  // bytes in the record; Result cuts multi-byte text
    form->addRow("&Caption", FCaption);
    FClass = new QSpinBox(this);
    FClass->setRange(0, 255);
    FClass->setValue(LandMark.ClassFlag);
    form->addRow("C&lass", FClass);
    auto* buttons = new QDialogButtonBox(QDialogButtonBox::Ok | QDialogButtonBox::Cancel, this);
    form->addRow(buttons);
    connect(buttons, &QDialogButtonBox::accepted, this, &QDialog::accept);
    connect(buttons, &QDialogButtonBox::rejected, this, &QDialog::reject);
    connect(open, &QPushButton::clicked, this, [this] {
        const QString f = QFileDialog::getOpenFileName(this, "Open symbol catalogue", {}, "Symbol catalogue (*.xml)");
        if (!f.isEmpty())
            OpenCatalogue(f);
    });
    SetSymbols(Symbols);
}

bool TLandmarkDialog::OpenCatalogue(const QString& File)
{
    // A broken file is reported here: it must not take the dialog, and the landmark being edited, with it.
    QString error;
    const bool ok = RunGuarded(
        [&] {
            qv::TSymbolRepository repo;
            if (!repo.LoadFromFile(File.toStdString(), {}) || repo.NumEntries() == 0)
                throw std::runtime_error("no symbol catalogue in " + File.toStdString());
            SetSymbols(repo);
        },
        [&](const QString& Message) { error = Message; });
    if (!ok)
        QMessageBox::warning(this, "Symbol catalogue", error);
    return ok;
}

void TLandmarkDialog::SetSymbols(const qv::TSymbolRepository& Symbols)
{
    FSymbols.Assign(Symbols);
    FSymbol->clear();
    FSymbol->addItem("(as it is)");
    for (std::int32_t i = 1; i <= FSymbols.NumEntries(); ++i) {
        const qv::TSymbol s = FSymbols.GetValues(i);
        FSymbol->addItem(QString("%1 (%2)").arg(QString::fromStdString(s.Name)).arg(
            QString::fromUtf8(qv::LMTypeNames[s.Properties.Kind].data(), int(qv::LMTypeNames[s.Properties.Kind].size()))));
    }
}

qv::TLandMark TLandmarkDialog::Result() const
{
    qv::TLandMark lm = FLandMark;
    if (FSymbol->currentIndex() > 0)
        lm.SymbolProps = FSymbols.GetValues(FSymbol->currentIndex()).Properties;
    lm.Caption.Text = FCaption->text().toStdString();
    lm.ClassFlag = static_cast<std::uint8_t>(FClass->value());
    qv::CutLandMarkStrings(lm);
    return lm;
}

}  // namespace viewer
