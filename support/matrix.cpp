#include <qvgeo/support/matrix.h>

#include <algorithm>
#include <stdexcept>
#include <string>

namespace qv {

void TMatrix::Resize(int NumCols, int NumRows)
{
    FCols = std::max(NumCols, 0);
    FRows = std::max(NumRows, 0);
    FData.assign(static_cast<std::size_t>(FCols) * static_cast<std::size_t>(FRows), 0.0);
}

void TMatrix::Fill(double Value) { std::fill(FData.begin(), FData.end(), Value); }

void TMatrix::OutOfRange(int Col, int Row) const
{
    throw std::out_of_range("TMatrix: element (" + std::to_string(Col) + ", " + std::to_string(Row) +
                            ") outside a " + std::to_string(FCols) + " x " + std::to_string(FRows) + " matrix");
}

void TVector::SetVecSize(int NumElem) { FData.assign(static_cast<std::size_t>(std::max(NumElem, 0)), 0.0); }

void TVector::OutOfRange(int Index) const
{
    throw std::out_of_range("TVector: element " + std::to_string(Index) + " outside a vector of " +
                            std::to_string(NumElem()));
}

void TVector::Fill(double Value) { std::fill(FData.begin(), FData.end(), Value); }

}  // namespace qv
