#include "support/matrix.h"

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

std::size_t TMatrix::Offset(int Col, int Row) const
{
    if (Col < 1 || Col > FCols || Row < 1 || Row > FRows)
        throw std::out_of_range("TMatrix: element (" + std::to_string(Col) + ", " + std::to_string(Row) +
                                ") outside a " + std::to_string(FCols) + " x " + std::to_string(FRows) +
                                " matrix");
    return static_cast<std::size_t>(Row - 1) * static_cast<std::size_t>(FCols) +
           static_cast<std::size_t>(Col - 1);
}

double TMatrix::GetVal(int Col, int Row) const { return FData[Offset(Col, Row)]; }
void TMatrix::SetVal(int Col, int Row, double Value) { FData[Offset(Col, Row)] = Value; }

void TVector::SetVecSize(int NumElem) { FData.assign(static_cast<std::size_t>(std::max(NumElem, 0)), 0.0); }

double TVector::GetVal(int Index) const
{
    if (Index < 1 || Index > NumElem())
        throw std::out_of_range("TVector: element " + std::to_string(Index) + " outside a vector of " +
                                std::to_string(NumElem()));
    return FData[static_cast<std::size_t>(Index - 1)];
}

void TVector::SetVal(int Index, double Value)
{
    if (Index < 1 || Index > NumElem())
        throw std::out_of_range("TVector: element " + std::to_string(Index) + " outside a vector of " +
                                std::to_string(NumElem()));
    FData[static_cast<std::size_t>(Index - 1)] = Value;
}

void TVector::Fill(double Value) { std::fill(FData.begin(), FData.end(), Value); }

}  // namespace qv
