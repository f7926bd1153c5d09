// JPEG with libjpeg-turbo, BMP and PNG with Qt.
//
// libjpeg reports errors through error_exit, which must not return. It is given a longjmp back into the
// one function that holds the decoder (JpegDecode / JpegEncode); those functions keep only trivially
// destructible locals, so the jump skips no destructor, and they destroy the decoder on every path. Qt
// objects and exceptions stay in the callers.
#include <qvgeo/platform/image_files.h>

#include <QImageReader>
#include <QImageWriter>
#include <QString>

#include <algorithm>
#include <cctype>
#include <cerrno>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <exception>
#include <memory>

#include <jpeglib.h>

namespace qv {

namespace {

[[noreturn]] void Fail(const std::string& FileName, const std::string& Text)
{
    throw EXELImageError("\"" + FileName + "\": " + Text);
}

struct TFileCloser {
    void operator()(std::FILE* F) const { std::fclose(F); }
};
using TFilePtr = std::unique_ptr<std::FILE, TFileCloser>;

TFilePtr OpenFile(const std::string& FileName, const char* Mode)
{
    TFilePtr f(std::fopen(FileName.c_str(), Mode));
    if (!f)
        Fail(FileName, std::string("cannot open: ") + std::strerror(errno));
    return f;
}

// ---- libjpeg glue --------------------------------------------------------------------------------

struct TJpegErrorMgr {
    jpeg_error_mgr Mgr;  // first member: libjpeg sees a jpeg_error_mgr*
    std::jmp_buf Jump;
    char Message[JMSG_LENGTH_MAX];
};

extern "C" void JpegErrorExit(j_common_ptr Info)
{
    auto* err = reinterpret_cast<TJpegErrorMgr*>(Info->err);
    (*Info->err->format_message)(Info, err->Message);
    std::longjmp(err->Jump, 1);
}

// Warnings (level -1) are corrupt data: the decoder would go on and fill the rest with grey.
extern "C" void JpegEmitMessage(j_common_ptr Info, int Level)
{
    if (Level < 0)
        JpegErrorExit(Info);
}

enum TJpegResult : int { jrOk, jrError, jrCancelled };

// The progress callback is called through this, so that nothing thrown unwinds through the decoder.
struct TProgressCall {
    const TImageProgress* Progress;
    std::exception_ptr Thrown;
};

bool CallProgress(TProgressCall& Call, std::int32_t Done, std::int32_t Total) noexcept
{
    try {
        return (*Call.Progress)(Done, Total);
    } catch (...) {
        Call.Thrown = std::current_exception();
        return false;
    }
}

bool AllocateImage(QImage& Image, std::int32_t Width, std::int32_t Height) noexcept
{
    try {
        Image = QImage(Width, Height, QImage::Format_RGB32);
        return !Image.isNull();
    } catch (...) {
        return false;
    }
}

constexpr int kBatchRows = 16;

TJpegResult JpegDecode(std::FILE* F, TJpegErrorMgr& Err, QImage& Image, TProgressCall& Call, int ScaleDenom)
{
    jpeg_decompress_struct info;
    info.err = jpeg_std_error(&Err.Mgr);
    Err.Mgr.error_exit = JpegErrorExit;
    Err.Mgr.emit_message = JpegEmitMessage;
    if (setjmp(Err.Jump)) {
        jpeg_destroy_decompress(&info);
        return jrError;
    }
    jpeg_create_decompress(&info);
    jpeg_stdio_src(&info, F);
    jpeg_read_header(&info, TRUE);
    info.out_color_space = JCS_EXT_BGRX;  // 0xffRRGGBB words on a little-endian machine: Format_RGB32
    info.dct_method = JDCT_ISLOW;
    info.scale_num = 1;
    info.scale_denom = static_cast<unsigned>(ScaleDenom);
    jpeg_start_decompress(&info);
    const auto w = static_cast<std::int32_t>(info.output_width), h = static_cast<std::int32_t>(info.output_height);
    if (!AllocateImage(Image, w, h)) {
        std::snprintf(Err.Message, sizeof Err.Message, "image of %d x %d pixels too large", w, h);
        jpeg_destroy_decompress(&info);
        return jrError;
    }
    unsigned char* bits = Image.bits();
    const qsizetype stride = Image.bytesPerLine();
    JSAMPROW rows[kBatchRows];
    while (info.output_scanline < info.output_height) {
        const unsigned y = info.output_scanline;
        const unsigned n = std::min<unsigned>(kBatchRows, info.output_height - y);
        for (unsigned i = 0; i < n; ++i)
            rows[i] = bits + static_cast<qsizetype>(y + i) * stride;
        jpeg_read_scanlines(&info, rows, n);
        if (Call.Progress && *Call.Progress &&
            !CallProgress(Call, static_cast<std::int32_t>(info.output_scanline), h)) {
            jpeg_destroy_decompress(&info);
            return jrCancelled;
        }
    }
    jpeg_finish_decompress(&info);
    jpeg_destroy_decompress(&info);
    return jrOk;
}

TJpegResult JpegEncode(std::FILE* F, TJpegErrorMgr& Err, const QImage& Image, int Quality)
{
    jpeg_compress_struct info;
    info.err = jpeg_std_error(&Err.Mgr);
    Err.Mgr.error_exit = JpegErrorExit;
    Err.Mgr.emit_message = JpegEmitMessage;
    if (setjmp(Err.Jump)) {
        jpeg_destroy_compress(&info);
        return jrError;
    }
    jpeg_create_compress(&info);
    jpeg_stdio_dest(&info, F);
    info.image_width = static_cast<JDIMENSION>(Image.width());
    info.image_height = static_cast<JDIMENSION>(Image.height());
    info.input_components = 4;
    info.in_color_space = JCS_EXT_BGRX;
    jpeg_set_defaults(&info);
    jpeg_set_quality(&info, Quality, TRUE);
    info.optimize_coding = TRUE;
    jpeg_start_compress(&info, TRUE);
    const unsigned char* bits = Image.constBits();
    const qsizetype stride = Image.bytesPerLine();
    while (info.next_scanline < info.image_height) {
        // libjpeg's row type is not const, but compression only reads the rows.
        JSAMPROW row = const_cast<unsigned char*>(bits + static_cast<qsizetype>(info.next_scanline) * stride);
        jpeg_write_scanlines(&info, &row, 1);
    }
    jpeg_finish_compress(&info);
    jpeg_destroy_compress(&info);
    return jrOk;
}

std::string Lower(std::string S)
{
    std::transform(S.begin(), S.end(), S.begin(), [](unsigned char c) { return static_cast<char>(std::tolower(c)); });
    return S;
}

QString QtName(const std::string& FileName) { return QString::fromStdString(FileName); }

void LoadWithQt(TBitmap& Bitmap, const std::string& FileName, const char* Format, const char* Kind)
{
    {
        TFilePtr probe = OpenFile(FileName, "rb");  // a missing file says so, not "not a BMP file"
    }
    QImageReader reader(QtName(FileName), Format);
    reader.setAutoDetectImageFormat(false);
    if (!reader.canRead())
        Fail(FileName, std::string("not a ") + Kind + " file");
    QImage image;
    if (!reader.read(&image))
        Fail(FileName, std::string("corrupt ") + Kind + " data: " + reader.errorString().toStdString());
    Bitmap = TBitmap(std::move(image));
}

void SaveWithQt(const TBitmap& Bitmap, const std::string& FileName, const char* Format)
{
    QImageWriter writer(QtName(FileName), Format);
    if (!writer.write(Bitmap.Image()))
        Fail(FileName, "cannot write: " + writer.errorString().toStdString());
}

}  // namespace

TImageFormat ImageFormatOfContent(const std::string& FileName)
{
    TFilePtr f(std::fopen(FileName.c_str(), "rb"));
    unsigned char head[8] = {};
    if (!f || std::fread(head, 1, sizeof head, f.get()) < 3)
        return ifUnknown;
    if (head[0] == 0xFF && head[1] == 0xD8 && head[2] == 0xFF)
        return ifJPEG;
    if (head[0] == 'B' && head[1] == 'M')
        return ifBMP;
    static constexpr unsigned char png[8] = {0x89, 'P', 'N', 'G', '\r', '\n', 0x1A, '\n'};
    if (std::memcmp(head, png, sizeof png) == 0)
        return ifPNG;
    return ifUnknown;
}

TImageFormat ImageFormatOfName(const std::string& FileName)
{
    const std::size_t dot = FileName.find_last_of('.');
    const std::size_t slash = FileName.find_last_of("/\\");
    if (dot == std::string::npos || (slash != std::string::npos && dot < slash))
        return ifUnknown;
    const std::string ext = Lower(FileName.substr(dot));
    if (ext == ".jpg" || ext == ".jpeg" || ext == ".jpe")
        return ifJPEG;
    if (ext == ".bmp")
        return ifBMP;
    if (ext == ".png")
        return ifPNG;
    return ifUnknown;
}

bool LoadJPEG(TBitmap& Bitmap, const std::string& FileName, const TImageProgress& Progress, std::int32_t ScaleDenom)
{
    if (ScaleDenom != 2 && ScaleDenom != 4 && ScaleDenom != 8)
        ScaleDenom = 1;
    TFilePtr f = OpenFile(FileName, "rb");
    unsigned char head[3] = {};
    if (std::fread(head, 1, 3, f.get()) != 3 || head[0] != 0xFF || head[1] != 0xD8 || head[2] != 0xFF)
        Fail(FileName, "not a JPEG file");
    std::rewind(f.get());
    TJpegErrorMgr err{};
    TProgressCall call{&Progress, nullptr};
    QImage image;
    const TJpegResult r = JpegDecode(f.get(), err, image, call, ScaleDenom);
    if (call.Thrown)
        std::rethrow_exception(call.Thrown);
    if (r == jrError)
        Fail(FileName, std::string("corrupt JPEG data: ") + err.Message);
    if (r == jrCancelled) {
        Bitmap = TBitmap();
        return false;
    }
    Bitmap = TBitmap(std::move(image));
    return true;
}

void SaveJPEG(const TBitmap& Bitmap, const std::string& FileName, std::int32_t Quality)
{
    if (Bitmap.Width() == 0 || Bitmap.Height() == 0)
        Fail(FileName, "cannot write an empty image as JPEG");
    TFilePtr f = OpenFile(FileName, "wb");
    TJpegErrorMgr err{};
    const TJpegResult r = JpegEncode(f.get(), err, Bitmap.Image(), std::clamp(Quality, 1, 100));
    const bool flushed = std::fflush(f.get()) == 0;
    f.reset();
    if (r != jrOk || !flushed) {
        std::remove(FileName.c_str());
        Fail(FileName, r != jrOk ? std::string("cannot write JPEG: ") + err.Message : std::string("cannot write"));
    }
}

void LoadBMP(TBitmap& Bitmap, const std::string& FileName) { LoadWithQt(Bitmap, FileName, "bmp", "BMP"); }
void SaveBMP(const TBitmap& Bitmap, const std::string& FileName) { SaveWithQt(Bitmap, FileName, "bmp"); }
void LoadPNG(TBitmap& Bitmap, const std::string& FileName) { LoadWithQt(Bitmap, FileName, "png", "PNG"); }
void SavePNG(const TBitmap& Bitmap, const std::string& FileName) { SaveWithQt(Bitmap, FileName, "png"); }

bool LoadImageFile(TBitmap& Bitmap, const std::string& FileName, const TImageProgress& Progress)
{
    TImageFormat format = ImageFormatOfContent(FileName);
    if (format == ifUnknown)
        format = ImageFormatOfName(FileName);
    switch (format) {
    case ifJPEG: return LoadJPEG(Bitmap, FileName, Progress);
    case ifBMP: LoadBMP(Bitmap, FileName); return true;
    case ifPNG: LoadPNG(Bitmap, FileName); return true;
    case ifUnknown: break;
    }
    { TFilePtr probe = OpenFile(FileName, "rb"); }
    Fail(FileName, "not an image file (BMP, JPEG or PNG)");
}

void SaveImageFile(const TBitmap& Bitmap, const std::string& FileName, std::int32_t JpegQuality)
{
    switch (ImageFormatOfName(FileName)) {
    case ifJPEG: SaveJPEG(Bitmap, FileName, JpegQuality); return;
    case ifPNG: SavePNG(Bitmap, FileName); return;
    default: SaveBMP(Bitmap, FileName); return;
    }
}

}  // namespace qv
