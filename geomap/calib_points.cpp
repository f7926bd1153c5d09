#include <qvgeo/geomap/calib_points.h>

namespace qv {

int FindCalLine(const TCalibData& Data, TGratLineKind Kind, double Value)
{
    const int n = ValidCalLines(Data);
    for (int i = 0; i < n; ++i)
        if (Data.CalLines[i].LineType == Kind && Data.CalLines[i].LineValue == Value)
            return i + 1;
    return 0;
}

TCalibAppend AppendLinePoint(TCalibData& Data, TGratLineKind Kind, double Value, TPoint P)
{
    int l = FindCalLine(Data, Kind, Value) - 1;
    if (l < 0) {
        l = ValidCalLines(Data);
        if (l >= MaxCalLines)
            return caLinesFull;
        Data.NumCalLines = l + 1;
        // Only kind, value and count: the points beyond the count are not part of the record.
        Data.CalLines[l].LineType = Kind;
        Data.CalLines[l].LineValue = Value;
        Data.CalLines[l].NumPoints = 0;
    }
    TCalibLine& line = Data.CalLines[l];
    const int n = ValidLinePoints(line);
    if (n >= MaxCalLinePoints)
        return caLineFull;
    line.CalPoints[n] = P;
    line.NumPoints = n + 1;
    return caAppended;
}

TCalibAppend AppendCalQuad(TCalibData& Data, const TCalQuad& Quad)
{
    const int n = ValidCalQuads(Data);
    if (n >= MaxCalQuads)
        return caQuadsFull;
    Data.CalQuads[n] = Quad;
    Data.NumCalQuads = n + 1;
    return caAppended;
}

}  // namespace qv
