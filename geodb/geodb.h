// TGeoDB: a file-based database of named geographic items (borders, towns, cities, lakes, rivers, roads,
// routes and BLOBs) kept in seven files that share one base path, with five sorted in-memory indexes.
//
// Files (base path = DBName without its extension):
//   .xelgds   one 120-byte TgdbData record per item, in the order of addition
//   .xelgdd   a 260-byte TgdbSystemData header, then polygon points and BLOB data
//   .xelgi0   identifier index; .xelgi1 .. .xelgi4: LatLow, LatHigh, LongLow, LongHigh indexes
// No file stays open between operations.
//
// Safety. Whole files are rewritten through a temporary file and a rename; appended data is written
// before the record that points to it. A partial record or index entry at the end of a file (an append
// that did not complete) is not counted and is not damage. A set that fails its other checks when opened
// (a short or invalid header, data offsets outside ".xelgdd", indexes out of step with the table, an
// interrupted compaction) opens for reading with correct in-memory indexes and is reported by
// Damaged()/DamageReport(); every writing operation then refuses until the caller asks for Repair().
// Nothing is written to a damaged set before that. A writing operation whose file steps fail raises
// "AddData: cannot open database." (SetDescription and SetRevision name themselves).
//
// Record numbers in the public interface are 1-based positions in the table; identifiers (ItemId) are
// issued from the header's HighestID and never reused. Deleting an item removes its record, so the
// records after it move up one place; SearchForItemID finds an item's current record number.
#pragma once

#include <qvgeo/geodb/geo_text.h>
#include <qvgeo/geodb/records.h>

#include <array>
#include <atomic>
#include <cstdint>
#include <functional>
#include <iosfwd>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace qv {

class TGeoDB;
class TBoxTree;

// Progress of a long operation (opening, bulk writing, index rebuild, compaction), 0 to 100 percent.
using TOnPercentDoneEvent = std::function<void(TGeoDB& Sender, double PercentDone)>;

class TGeoDB {
public:
    // Name is the component name that the error messages quote.
    explicit TGeoDB(std::string Name = {});
    TGeoDB(const TGeoDB&) = delete;
    TGeoDB& operator=(const TGeoDB&) = delete;
    // Writes pending bulk additions and, with LazyWrite on, the indexes; errors are swallowed here.
    ~TGeoDB();

    const std::string& Name() const noexcept { return FName; }
    void SetName(std::string Name) { FName = std::move(Name); }

    // ---- the file set -------------------------------------------------------------------------------
    // A non-empty name opens the database (creating any of the seven files that does not exist); an
    // empty name closes it. A name with an extension names the same database as without it.
    void SetGDBName(const std::string& Name);
    const std::string& GetGDBName() const noexcept { return FDBName; }
    const std::string& DBName() const noexcept { return FDBName; }
    bool IsOpen() const noexcept { return FOpen; }

    // With LazyWrite on, the index files are rewritten only when it is switched off, when the database
    // is closed and when the component is destroyed; otherwise after every change.
    bool LazyWrite() const noexcept { return FLazyWrite; }
    void SetLazyWrite(bool Value);

    int NumEntries() const noexcept { return FNumEntries; }
    TOnPercentDoneEvent OnPercentDone;

    const std::string& DataFileName() const noexcept { return FDataFName; }
    const std::string& BlobFileName() const noexcept { return FBlobFName; }
    const std::string& IndexFileName(int IndexNo) const;  // 0..4

    // Rewrites index file IndexNo (0..4) whole from memory.
    void SaveIndex(int IndexNo);

    // ---- damage -------------------------------------------------------------------------------------
    bool Damaged() const noexcept { return !FDamage.empty(); }
    const std::vector<std::string>& DamageReport() const noexcept { return FDamage; }
    // Brings a damaged set back in order, keeping only what checks out: completes an interrupted
    // compaction; replaces an invalid header by a new one; drops table records that no writer of the
    // format produces (and repeated identifiers); keeps a polygon item without points when its points lie
    // outside ".xelgdd" or outside its bounding box; drops a BLOB whose bytes lie outside the file or
    // whose meta data is invalid; raises HighestID to the largest identifier; rebuilds the indexes from
    // the kept records and rewrites header, table, data file and indexes. Also valid on a sound set.
    void Repair();

    // ---- header, description, revision ------------------------------------------------------------
    std::string GetDescription() const { return FSysData.Description; }
    // Stores the first 60 characters and writes the header; no database open: does nothing.
    void SetDescription(std::string_view Text);
    std::int32_t GetRevision() const noexcept { return FSysData.Revision; }
    void SetRevision(std::int32_t Rev);
    std::int32_t GetDBVersion() const noexcept { return FSysData.DBVersion; }
    std::int32_t HighestID() const noexcept { return FSysData.HighestID; }
    const TgdbSystemData& SystemData() const noexcept { return FSysData; }
    // Reads the header from ".xelgdd" again (another program may have changed it).
    void ReadSystemInformation();

    // ---- index accessors and searches (1-based; out-of-range positions are clamped) ---------------
    TIxItemIDRec GetIxItemID(int i) const;
    TIxLLRec GetIxLatLow(int i) const;
    TIxLLRec GetIxLatHigh(int i) const;
    TIxLLRec GetIxLongLow(int i) const;
    TIxLLRec GetIxLongHigh(int i) const;
    TgdbData GetSumdata(int i) const;  // the i-th record in table order

    std::int32_t GetClosestItemIDIx(std::int32_t Id) const;
    std::int32_t GetClosestLatLowIx(double Value) const;   // degrees
    std::int32_t GetClosestLatHighIx(double Value) const;
    std::int32_t GetClosestLongLowIx(double Value) const;
    std::int32_t GetClosestLongHighIx(double Value) const;
    // 1-based record number of the item with this identifier, 0 if there is none.
    std::int32_t SearchForItemID(std::int32_t Id) const;

    // The index arrays themselves (index 0 identifiers, 1..4 corners), for inspection.
    const TIxItemIDRecArray& IxItemIDArray() const;
    const TIxLLRecArray& IxLLArray(int IndexNo) const;

    // Maintenance used by the editing operations: RecNo is 1-based; InsertIntoIndex expects every index
    // array to be one entry longer already, RemoveIndexEntries neither shortens them nor renumbers.
    void InsertIntoIndex(int RecNo, const TgdbData& Data);
    void RemoveIndexEntries(int RecNo);

    // ---- items ----------------------------------------------------------------------------------------
    // Adds an item with its points (degrees) and returns its record number (the new NumEntries). The
    // identifier is issued (HighestID + 1) and written back into Data, as are the bounding box (computed
    // from the points; kept as given when there are none), BlobOffset and NumPoints. The name is cut to
    // 59 characters. Non-finite coordinates are refused.
    int AddData(TgdbData& Data, std::span<const TSCoords> Points);
    int AddBorder(std::string_view Name, std::span<const TSCoords> Points);  // closed
    int AddLake(std::string_view Name, std::span<const TSCoords> Points);    // closed
    int AddRiver(std::string_view Name, std::span<const TSCoords> Points);
    int AddRoad(std::string_view Name, std::span<const TSCoords> Points);
    int AddRoute(std::string_view Name, std::span<const TSCoords> Points);
    // A place: one point (degrees) and its altitude (metres).
    int AddTown(std::string_view Name, double Latit, double Longit, double Altitude = 0);
    int AddCity(std::string_view Name, double Latit, double Longit, double Altitude = 0);

    // Replaces the item at RecNo by Data and Points, keeping its identifier; the old points become
    // garbage in ".xelgdd" until GarbageCollection.
    void ReplaceData(int RecNo, TgdbData& Data, std::span<const TSCoords> Points);
    void ReplaceBorder(int RecNo, std::string_view Name, std::span<const TSCoords> Points);
    void ReplaceLake(int RecNo, std::string_view Name, std::span<const TSCoords> Points);
    void ReplaceRiver(int RecNo, std::string_view Name, std::span<const TSCoords> Points);
    void ReplaceRoad(int RecNo, std::string_view Name, std::span<const TSCoords> Points);
    void ReplaceRoute(int RecNo, std::string_view Name, std::span<const TSCoords> Points);
    void ReplaceTown(int RecNo, std::string_view Name, double Latit, double Longit, double Altitude = 0);
    void ReplaceCity(int RecNo, std::string_view Name, double Latit, double Longit, double Altitude = 0);
    // Changes name, altitude, class, tag, date and state of an item; geometry and data stay.
    void UpdateBasicData(int RecNo, const TgdbData& Data);

    // Removes the item: later records move up one place and every index is renumbered and shortened.
    void DeleteData(int RecNo);
    // Removes several items at once (record numbers in any order, repeats allowed) with one rewrite of
    // the table: what a loop of single deletions does, without rewriting the table per item.
    void DeleteData(std::span<const int> RecNos);

    // BLOBs: the bytes are stored in ".xelgdd" behind their 1024-byte TMetaInfo; Size is the byte count.
    // Data supplies name, place (bounding box), altitude, class, tag and date. Returns the record number.
    int AddBLOB(TgdbData& Data, const std::string& FileName);  // FilePath of the meta data = FileName
    int AddBLOB(TgdbData& Data, const std::string& FileName, const TMetaInfo& MetaInfo);
    int AddBLOB(TgdbData& Data, std::span<const std::uint8_t> Buffer);
    int AddBLOB(TgdbData& Data, std::span<const std::uint8_t> Buffer, const TMetaInfo& MetaInfo);
    int AddBLOB(TgdbData& Data, std::istream& Stream, const TMetaInfo& MetaInfo);
    // To a file (replaced whole), to a caller's buffer of SizeOfBlobData = Buffer.size() bytes (returns
    // the BLOB's size), or to a stream.
    void RetrieveBLOB(int RecNo, const std::string& FileName, TMetaInfo& MetaInfo);
    std::int32_t RetrieveBLOB(int RecNo, std::span<std::uint8_t> Buffer, TMetaInfo& MetaInfo);
    void RetrieveBLOB(int RecNo, std::ostream& Stream, TMetaInfo& MetaInfo);
    TMetaInfo GetMetaInfo(int RecNo);
    void UpdateMetaInfo(int RecNo, const TMetaInfo& MetaInfo);

    // The item's NumPoints points; empty when its BlobOffset is below 0 or it is a BLOB.
    TgdbPolygon RetrievePolygon(int RecNo);
    // Centre of the item's bounding box (degrees) with its altitude (metres) as height.
    TPositionData ExtractLocation(int RecNo) const;

    // Record numbers (ascending) of the items whose bounding box meets the rectangle, edges included,
    // optionally only of one kind. Plain latitude/longitude rectangles: no wrap at the antimeridian; a
    // rectangle whose low edge lies above its high edge meets nothing. Searches and the other const
    // accessors may run in several threads at once (they settle the indexes and build the in-memory
    // search tree under a lock, then read without one); a change to the database may not overlap them.
    std::vector<int> SearchData(double LatLow, double LongLow, double LatHigh, double LongHigh) const;
    std::vector<int> SearchData(double LatLow, double LongLow, double LatHigh, double LongHigh,
                                TgdbItem Kind) const;

    // Rebuilds all five indexes from the table and writes them (unless LazyWrite is on).
    void RecalcIndexes();
    // Rewrites ".xelgdd" with only the data that records point to, in table order, and the table with the
    // new offsets. Bytes that deletions and replacements left behind are reclaimed.
    void GarbageCollection();
    // Bytes of ".xelgdd" beyond its header that no record points to.
    std::int64_t GarbageBytes() const;

    // A readable dump for debugging: header, every record, the five indexes and the damage report,
    // one tab-separated line each.
    void ExportDataDebug(std::ostream& Out) const;

    // Bulk bracket: between BeginUpdate and the matching EndUpdate, additions are collected and index
    // entries appended unsorted; EndUpdate writes the data, the records and (unless LazyWrite is on) the
    // indexes once, after one sort-and-merge per index. Searches inside the bracket sort first. Any other
    // writing operation inside the bracket writes what has been collected before it runs.
    void BeginUpdate();
    void EndUpdate();
    int UpdateDepth() const noexcept { return FUpdateDepth; }

private:
    void OpenSet(const std::string& Name);
    void CloseSet();
    void ResetSystemData();
    void LoadIndexFile(int IndexNo);
    void LoadTable();
    void LoadHeader();
    void CheckSet();
    void RecalcExtents();
    void NoteExtent(int RecNo0, const TgdbData& Data);
    void ForgetExtent(int RecNo0, bool Deleted);

    [[noreturn]] void Raise(std::string_view Op, std::string_view Text) const;
    [[noreturn]] void RaiseCannotOpen(std::string_view Op) const;
    // The one message of every writing operation whose file steps fail (SetDescription and SetRevision
    // name themselves instead): "AddData: cannot open database.".
    [[noreturn]] void RaiseWriteFailed() const;
    void CheckWritable(std::string_view Op) const;
    int CheckRecNo(std::string_view Op, int RecNo) const;
    void WriteHeader(std::string_view Op);
    void WriteRecordAt(int RecNo0, const TgdbData& Data);
    // Writes an existing record in place; on failure the old record is written back.
    void OverwriteRecord(int RecNo0, const TgdbData& Data);
    void SaveAllIndexes();
    void WriteIndexTemp(int IndexNo);

    TgdbData PrepareItem(std::string_view Op, const TgdbData& Data, std::span<const TSCoords> Points,
                         std::vector<std::uint8_t>& Payload) const;
    int AppendItem(std::string_view Op, TgdbData& Data, std::span<const std::uint8_t> Payload);
    void ReplaceItem(std::string_view Op, int RecNo, TgdbData& Data, std::span<const TSCoords> Points);
    int AddTyped(TgdbItem Kind, bool Closed, std::string_view Name, std::span<const TSCoords> Points);
    void ReplaceTyped(int RecNo, TgdbItem Kind, bool Closed, std::string_view Name,
                      std::span<const TSCoords> Points);
    // Towns and cities: one point, which also gives the bounding box.
    int AddPoint(TgdbItem Kind, std::string_view Name, double Latit, double Longit, double Altitude);
    void ReplacePoint(int RecNo, TgdbItem Kind, std::string_view Name, double Latit, double Longit,
                      double Altitude);
    int AddBLOBBytes(TgdbData& Data, std::span<const std::uint8_t> Bytes, const TMetaInfo& MetaInfo);
    // Writing: whether a file failure is reported as a writing operation's.
    const TgdbData& BlobRecord(std::string_view Op, int RecNo, TMetaInfo& MetaInfo, bool Writing = false);
    std::vector<std::uint8_t> ReadBlobBytes(std::string_view Op, const TgdbData& Rec) const;

    void FlushPending();
    void SettleIndexes() const;
    void CompactSet(bool WriteIndexes);
    void SalvageForRepair();
    void Progress(double Percent);

    std::string FName;
    std::string FDBName;
    std::string FDataFName;  // ".xelgds"
    std::string FBlobFName;  // ".xelgdd"
    std::array<std::string, 5> FIxFName;
    std::vector<TgdbData> FData;
    int FNumEntries = 0;
    bool FLazyWrite = false;
    bool FOpen = false;
    TgdbSystemData FSysData;
    std::vector<std::string> FDamage;

    // The indexes; mutable because a search inside a bulk bracket sorts the appended entries first.
    mutable TIxItemIDRecArray FIxItemID;
    mutable std::array<TIxLLRecArray, 4> FIxLL;  // indexes 1..4
    // Entries [0, FIxSorted) of every index are in order. Atomic, and the sort done under FLazyLock, so
    // that const readers in several threads settle the indexes once: a reader that sees it complete
    // (acquire) sees the sorted entries.
    mutable std::atomic<std::size_t> FIxSorted = 0;
    // Guards what const members change lazily: the sort of appended index entries, the search tree and
    // the scan debt.
    mutable std::mutex FLazyLock;

    // Largest latitude and longitude extent of the bounding box of any narrow item (degrees, rounded
    // up): how far below a rectangle a narrow item's low corner may lie and the item still meet it. Only
    // ever an over-estimate. Wide items (an extent beyond gdbWideExtent) are kept apart in FWide (0-based
    // record numbers, ascending) and tested one by one, so that a few country borders do not widen the
    // index bands of a million towns.
    double FMaxLatExtent = 0;
    double FMaxLongExtent = 0;
    std::vector<std::int32_t> FWide;

    // The rectangle search's box tree over the table, dropped by every change of a box (the three
    // extent functions above and closing). While there is none, searches scan index bands and add up
    // what they scanned; once that is about what a build costs, the next search builds the tree. A table
    // that keeps changing thus never costs more than about twice its scans.
    // Shared so that a search goes on with the tree it took while a concurrent search replaces it.
    mutable std::shared_ptr<const TBoxTree> FTree;
    mutable double FScanDebt = 0;
    void DropSearchTree() const;

    // Bulk bracket state.
    int FUpdateDepth = 0;
    int FPendingFrom = 0;  // first record (0-based) not yet written to ".xelgds"
    std::int64_t FPendingBlobStart = 0;
    std::vector<std::uint8_t> FPendingBlob;
    std::int32_t FPendingHighestID = 0;  // header value on disk before the bracket
    bool FHasPending = false;
};

}  // namespace qv
