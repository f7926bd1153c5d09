// TMapImage: the raster picture of a map view and its loading rules, without a widget. The picture
// (GrafBmp), its file name and size, the pyramid of halved copies kept for large images, loading a BMP or
// JPEG file with progress and cancel, the size limit and its message, taking a bitmap held by the caller,
// renaming the file on disk, resampling and saving as JPEG. Or, opened by Open (any raster GDAL reads), a
// picture too large to hold whole: a tiled picture, read by window through a TTileCache, with no GrafBmp.
//
// The owning map control calls down and hears back only through the results and the per-call events it
// passes in; it then moves its view and pushes the new name and size into its calibration.
//
// The name and size are those of the accepted picture. A picture refused by the size check stays in
// Bitmap() (as documented for the control) while Name(), Width() and Height() keep their old values, so
// Bitmap()'s size may differ from Width() x Height() until the next accepted picture.
#pragma once

#include <qvgeo/mapview/map_render.h>
#include <qvgeo/platform/bitmap.h>
#include <qvgeo/platform/tile_cache.h>

#include <array>
#include <cstdint>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

namespace qv {

// Stage of a long load reported by a progress event.
enum TProgressStage : std::uint8_t { pgStarting, pgRunning, pgEnding };

class TMapImage {
public:
    // The events of one load, passed by the owner for that call (each may be empty).
    struct TLoadEvents {
        // May replace the name of the file that is loaded (the map's OnMapImageRequest).
        std::function<void(std::string& FileName)> Request;
        // PercentDone 0..100; JPEG images report every batch of decoded rows, BMP images only the start and
        // the end. What it throws is the owner's to catch: this class lets it through.
        std::function<void(TProgressStage Stage, std::int32_t PercentDone)> Progress;
        // A calibration file being read: a name that names no file is looked for beside it, letter case
        // ignored (FindImageBeside), since the calibration reader lower-cases it. Only without Request.
        std::string BesideFile;
        // Check the size in the file's header before decoding (a map switch, which puts the old picture
        // back anyway, need not spend seconds decoding a picture it must refuse).
        bool CheckHeaderFirst = false;
        // Open only: a missing file raises "Cannot load map image \"<file>\": no such file" instead of
        // emptying the map (an explicit open, not a calibration naming its image).
        bool MissingIsError = false;
    };
    enum TLoadResult : std::uint8_t {
        lrTaken,     // a picture (or, for another existing file type, the previous one) under the new name
        lrMissing,   // no such file: name and size emptied, the picture kept
        lrCancelled  // CancelLoading during a JPEG decode: nothing changed
    };

    // Name used in error messages ("Component \"<name>\": ...").
    void SetComponentName(std::string Name) { FComponentName = std::move(Name); }

    const std::string& Name() const { return FName; }
    std::int32_t Width() const { return FWidth; }
    std::int32_t Height() const { return FHeight; }
    const TBitmap& Bitmap() const { return FBitmap; }
    // Halved copies (only for images above LargeMapPixels), made once per picture; null beyond the
    // last level.
    const TBitmap* PyramidLevel(int Level) const;
    const std::array<TBitmap, 4>& Pyramid() const { return FPyramid; }
    // A tiled picture: the source it is read from (through its tile cache), null for a whole picture.
    // Bitmap() is then empty and PyramidLevel() null; Width() and Height() are the source's.
    bool Tiled() const { return FTiled != nullptr; }
    const TTileCache* TiledSource() const { return FTiled.get(); }
    // The picture as levels read by window: the tiled source, or Bitmap() and its halved copies as a
    // TBitmapPyramid sharing their pixels; null without a picture.
    std::shared_ptr<const TImageSource> Levels() const;
    // Raised by every replacement of the picture (also one refused by the size check afterwards): the
    // owner's scaled copies of an earlier generation are stale.
    std::uint64_t Generation() const { return FGeneration; }

    // Size limit in pixels (width x height); at least 1, at most 2^31 - 1.
    std::int64_t MaxPixels() const { return FMaxPixels; }
    void SetMaxPixels(std::int64_t Value);
    // Raises EXELGeoMapError "Cannot use map image, maximum of <limit> pixels exceeded (size of map is
    // <W> x <H>)" when W x H exceeds MaxPixels.
    void CheckSize(std::int64_t W, std::int64_t H) const;

    // Loads the file Name (see TLoadEvents for Request and BesideFile): ".jpg"/".jpeg" and ".bmp" decode;
    // any other existing file keeps the previous picture but takes the name (after the size check of the
    // previous picture). The name stored is Name as passed, not the one Request left. A load that starts
    // reports pgStarting and always ends with pgEnding, also when it fails. Raises the size error, or
    // "Cannot load map image " followed by the reader's message for a file that is not a readable image
    // of its type; a failed load leaves name, size and picture as they were (an over-size picture excepted,
    // see above).
    TLoadResult Load(const std::string& Name, const TLoadEvents& Events);
    // Opens the file Name whatever its type (Request and BesideFile as for Load): BMP and JPEG pictures
    // within MaxPixels decode as Load decodes them; any other raster GDAL reads, and any picture above
    // MaxPixels, opens through GDAL: read whole when within MaxPixels, else kept tiled (exempt from the
    // limit, which is about memory). Progress as for Load (building a file's reduced levels, reading a
    // whole picture), CancelLoading stops it (lrCancelled, nothing changed). Raises "Cannot load map image "
    // followed by the reader's message when the file cannot be read; without GDAL, for files other than
    // BMP and JPEG ("... this build reads only BMP and JPEG files") and the size error above MaxPixels.
    TLoadResult Open(const std::string& Name, const TLoadEvents& Events);
    // Takes Source as a tiled picture named Name (read through a TTileCache of its own; exempt from
    // MaxPixels). A source of no pixels empties the picture as a missing file does.
    void TakeSource(std::shared_ptr<const TImageSource> Source, const std::string& Name);
    // Asks the JPEG decode in progress to stop after its current batch of rows (from a progress event).
    // Each load starts uncancelled.
    void CancelLoading() { FCancel = true; }
    bool LoadingCancelled() const { return FCancel; }
    void ResetCancel() { FCancel = false; }

    // A tiled picture may have a long step long after its open: a huge JPEG makes its tiled copy at the
    // first full-resolution read, inside a paint. The source then reports to Later, which the owner sets
    // (Owner names it, so that only it clears it again: copies of this image share the source). Later
    // returns false to cancel. Without one the step runs without reports.
    using TLaterProgress = std::function<bool(std::int64_t Done, std::int64_t Total)>;
    void SetLaterProgress(const void* Owner, TLaterProgress Later);
    void DropLaterProgress(const void* Owner);
    // Name and size emptied; the picture stays (an empty map shows none of it).
    void Drop();
    // A copy of Bitmap under the name "$unknown$"; raises the size error (the copy then stays, as above).
    void Assign(const TBitmap& Bitmap);
    // Renames the file on disk to NewName reduced to 8.3 characters, in the same folder with the same
    // extension; false (nothing renamed) when there is no current file or the reduced name is empty.
    bool Rename(const std::string& NewName);
    // The name stored without loading anything (SaveMap names the JPEG it is about to write).
    void SetName(std::string Name) { FName = std::move(Name); }
    // Encodes the picture as JPEG into FileName; a tiled picture is read whole first.
    void SaveJPEG(const std::string& FileName) const;
    // Raises EXELGeoMapError "Cannot save map image, maximum of <limit> pixels exceeded (size of map is
    // <W> x <H>)" for a tiled picture above MaxPixels, which SaveJPEG would have to hold whole.
    void CheckSavable() const;
    // Raises EXELGeoMapError "Cannot copy map image, maximum of <limit> pixels exceeded (size of copy is
    // <W> x <H>)" for an output bitmap of a tiled picture above MaxPixels (whole pictures draw any output).
    void CheckCopySize(std::int64_t W, std::int64_t H) const;
    // Resamples the picture by Factor (averaging when AntiAlias, pixel dropping otherwise) and takes the
    // new size. False, with nothing changed, for a factor that is not positive or a result under 1 pixel
    // or over MaxPixels. A tiled picture is resampled from its level that fits (as the view draws it) and
    // becomes a whole picture.
    bool Resample(double Factor, bool AntiAlias);

private:
    bool LoadPicture(TBitmap& Picture, const std::string& File, bool Bmp, const TLoadEvents& Events);
    void Accept(const std::string& Name);  // name and size from the picture, the pyramid when stale
    void Replace(TBitmap Picture);
    void BuildPyramid();
    [[noreturn]] void RaiseError(std::string_view Text) const;
    std::string ResolveName(const std::string& Name, const TLoadEvents& Events) const;
    TLoadResult OpenRaster(const std::string& Name, const std::string& File, const TLoadEvents& Events);

    std::string FComponentName;
    TBitmap FBitmap;
    std::string FName;
    std::int32_t FWidth = 0, FHeight = 0;
    std::array<TBitmap, 4> FPyramid;  // FBitmap halved 1..4 times; empty when unused
    bool FPyramidStale = true;        // FBitmap replaced since the pyramid was made
    std::shared_ptr<TTileCache> FTiled;  // the tiled picture (shared by copies of this image)
    // Where the tiled source's progress goes: the open's own report while it runs, the owner's after.
    struct TProgressRelay {
        std::function<bool(std::int64_t, std::int64_t)> During;
        TLaterProgress Later;
        const void* Owner = nullptr;
    };
    std::shared_ptr<TProgressRelay> FRelay;  // with FTiled
    std::uint64_t FGeneration = 0;
    std::int64_t FMaxPixels = LargeMapPixels;
    bool FCancel = false;
};

}  // namespace qv
