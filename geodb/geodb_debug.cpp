// TGeoDB::ExportDataDebug: the whole in-memory state as text, for looking at a set by eye.
#include <qvgeo/geodb/geodb.h>

#include <charconv>
#include <ostream>

namespace qv {

namespace {
// Shortest text that reads back as the same float, so that neighbouring keys stay distinguishable.
std::string F(float v)
{
    char buf[32];
    const auto [end, ec] = std::to_chars(buf, buf + sizeof buf, v);
    return ec == std::errc() ? std::string(buf, end) : std::string("?");
}
}  // namespace

void TGeoDB::ExportDataDebug(std::ostream& Out) const
{
    SettleIndexes();
    Out << "database\t" << FDBName << "\n";
    Out << "header\tHighestID " << FSysData.HighestID << "\tDBVersion " << FSysData.DBVersion
        << "\tRevision " << FSysData.Revision << "\tDescription " << FSysData.Description << "\n";
    Out << "records\t" << FNumEntries << "\n";
    for (int i = 0; i < FNumEntries && static_cast<std::size_t>(i) < FData.size(); ++i) {
        const TgdbData& d = FData[static_cast<std::size_t>(i)];
        Out << "record " << i + 1 << "\tid " << d.ItemId << "\t" << GdbItemName(d.ItemKind) << "\t" << d.Name
            << "\tlat " << F(d.LatLow) << ".." << F(d.LatHigh) << "\tlong " << F(d.LongLow) << ".."
            << F(d.LongHigh) << "\toffset " << d.BlobOffset << "\tcount " << d.NumPoints
            << (d.Closed ? "\tclosed" : "\topen") << "\talt " << F(d.Altitude) << "\tclass "
            << static_cast<int>(d.ClassFlag) << "\ttag " << d.Tag << "\tstate " << d.StateFlag << "\n";
    }
    Out << "index 0";
    for (const auto& e : FIxItemID)
        Out << "\t" << e.ItemID << ":" << e.index + 1;
    Out << "\n";
    for (int k = 1; k <= 4; ++k) {
        Out << "index " << k;
        for (const auto& e : FIxLL[static_cast<std::size_t>(k - 1)])
            Out << "\t" << F(e.LLValue) << ":" << e.index + 1;
        Out << "\n";
    }
    for (const auto& line : FDamage)
        Out << "damage\t" << line << "\n";
}

}  // namespace qv
