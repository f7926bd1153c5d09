// Dense matrices and vectors of doubles with 1-based indexes, as the calibration code uses them.
//
// TMatrix is indexed (column, row): Resize(NumCols, NumRows), GetVal(Col, Row). A design matrix of m
// observations and n unknowns is therefore Resize(n, m). An index outside the matrix throws
// std::out_of_range: it is always a programming error, never a data error.
#pragma once

#include <vector>

namespace qv {

class TMatrix {
public:
    TMatrix() = default;
    TMatrix(int NumCols, int NumRows) { Resize(NumCols, NumRows); }

    // New size; the contents are all zero afterwards. Negative sizes count as 0.
    void Resize(int NumCols, int NumRows);
    void Fill(double Value);
    // Inline: the calibration transforms read coefficients per pixel. The check stays.
    double GetVal(int Col, int Row) const { return FData[Offset(Col, Row)]; }
    void SetVal(int Col, int Row, double Value) { FData[Offset(Col, Row)] = Value; }
    void Clone(const TMatrix& Source) { *this = Source; }
    void Free() { Resize(0, 0); }

    int NrOfColumns() const { return FCols; }
    int NrOfRows() const { return FRows; }

private:
    std::size_t Offset(int Col, int Row) const
    {
        if (Col < 1 || Col > FCols || Row < 1 || Row > FRows)
            OutOfRange(Col, Row);
        return static_cast<std::size_t>(Row - 1) * static_cast<std::size_t>(FCols) +
               static_cast<std::size_t>(Col - 1);
    }
    [[noreturn]] void OutOfRange(int Col, int Row) const;
    int FCols = 0, FRows = 0;
    std::vector<double> FData;  // row-major: (Row-1)*FCols + (Col-1)
};

class TVector {
public:
    TVector() = default;
    explicit TVector(int NumElem) { SetVecSize(NumElem); }

    // New size; the contents are all zero afterwards. A negative size counts as 0.
    void SetVecSize(int NumElem);
    int NumElem() const { return static_cast<int>(FData.size()); }
    double GetVal(int Index) const { return FData[Offset(Index)]; }
    void SetVal(int Index, double Value) { FData[Offset(Index)] = Value; }
    void Fill(double Value);

private:
    std::size_t Offset(int Index) const
    {
        if (Index < 1 || Index > NumElem())
            OutOfRange(Index);
        return static_cast<std::size_t>(Index - 1);
    }
    [[noreturn]] void OutOfRange(int Index) const;
    std::vector<double> FData;
};

}  // namespace qv
