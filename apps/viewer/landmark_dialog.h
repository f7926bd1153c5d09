// The landmark editor: a dialog that changes one landmark's symbol (picked from a symbol catalogue, which
// the user may replace by opening another catalogue file), its caption text and its class.
#pragma once

#include <qvgeo/geomap/landmark_types.h>
#include <qvgeo/geomap/symbol_repository.h>

#include <QDialog>

class QComboBox;
class QLineEdit;
class QSpinBox;

namespace viewer {

class TLandmarkDialog : public QDialog {
    Q_OBJECT

public:
    TLandmarkDialog(const qv::TSymbolRepository& Symbols, const qv::TLandMark& LandMark, QWidget* Parent);

    // The first entry keeps the landmark's own symbol; entry i > 0 is catalogue symbol i.
    QComboBox* SymbolBox() const { return FSymbol; }
    QLineEdit* CaptionEdit() const { return FCaption; }
    QSpinBox* ClassBox() const { return FClass; }
    // Replaces the catalogue the symbols are picked from (the choice returns to the own symbol).
    void SetSymbols(const qv::TSymbolRepository& Symbols);
    // Replaces the catalogue by the one in File; false, with a warning shown, when File holds none or
    // cannot be read (the catalogue stays).
    bool OpenCatalogue(const QString& File);
    const qv::TSymbolRepository& Symbols() const { return FSymbols; }
    // The landmark as edited: place, identifier, time and the caption's font stay as they were.
    qv::TLandMark Result() const;

private:
    qv::TSymbolRepository FSymbols;
    qv::TLandMark FLandMark;
    QComboBox* FSymbol = nullptr;
    QLineEdit* FCaption = nullptr;
    QSpinBox* FClass = nullptr;
};

}  // namespace viewer
