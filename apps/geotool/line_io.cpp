#include "line_io.h"

#include <cerrno>
#include <charconv>
#include <cmath>
#include <cstring>
#include <filesystem>

namespace geotool {

namespace {
constexpr std::size_t BlockSize = 1 << 16;

// The reason of the first failed write to standard output, for the message at the end of the command.
int FirstOutputErrno = 0;

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }
}  // namespace

RecordReader::RecordReader(std::FILE* in) : FIn(in), FBuf(BlockSize) {}

bool RecordReader::ReadLine(std::string_view& line)
{
    FLong.clear();
    for (;;) {
        if (FBegin < FEnd) {
            const char* start = FBuf.data() + FBegin;
            const void* nl = std::memchr(start, '\n', FEnd - FBegin);
            if (nl) {
                const std::size_t len = static_cast<const char*>(nl) - start;
                FBegin += len + 1;
                ++FLine;
                if (FLong.empty()) {
                    line = std::string_view(start, len);
                } else {
                    FLong.append(start, len);
                    line = FLong;
                }
                return true;
            }
            // No line end in the buffer: keep the partial line aside and read on.
            FLong.append(start, FEnd - FBegin);
            FBegin = FEnd;
        }
        if (FEof) {
            if (FLong.empty())
                return false;
            ++FLine;
            line = FLong;
            return true;
        }
        FBegin = 0;
        FEnd = std::fread(FBuf.data(), 1, FBuf.size(), FIn);
        if (FEnd == 0) {
            if (std::ferror(FIn))
                throw InputError(std::string("cannot read standard input: ") + std::strerror(errno));
            FEof = true;
        }
    }
}

bool RecordReader::NextLine(Fields& fields)
{
    std::string_view line;
    if (!ReadLine(line))
        return false;
    FCurrent = line;
    fields.clear();
    std::size_t i = 0;
    const std::size_t n = line.size();
    while (i < n) {
        while (i < n && IsBlank(line[i]))
            ++i;
        if (i >= n)
            break;
        const std::size_t start = i;
        while (i < n && !IsBlank(line[i]))
            ++i;
        fields.push_back(line.substr(start, i - start));
    }
    return true;
}

bool RecordReader::Next(Fields& fields)
{
    while (NextLine(fields))
        if (!fields.empty() && !IsComment(fields))
            return true;
    return false;
}

bool IsComment(const Fields& fields) { return !fields.empty() && fields.front().front() == '#'; }

RecordWriter& RecordWriter::Fixed(double value, int decimals)
{
    char tmp[400];
    auto [end, ec] = std::to_chars(tmp, tmp + sizeof tmp, value, std::chars_format::fixed, decimals);
    if (ec != std::errc())
        return Text("nan");
    // "-0.0000" reads as a sign error to a user; print zero unsigned.
    if (tmp[0] == '-' && value > -0.5 * std::pow(10.0, -decimals)) {
        bool allZero = true;
        for (const char* p = tmp + 1; p < end; ++p)
            if (*p != '0' && *p != '.') {
                allZero = false;
                break;
            }
        if (allZero)
            return Text(std::string_view(tmp + 1, end - tmp - 1));
    }
    return Text(std::string_view(tmp, end - tmp));
}

RecordWriter& RecordWriter::Text(std::string_view text)
{
    FBuf.append(text);
    return *this;
}

RecordWriter& RecordWriter::Int(long long value)
{
    char tmp[24];
    auto [end, ec] = std::to_chars(tmp, tmp + sizeof tmp, value);
    (void)ec;
    return Text(std::string_view(tmp, end - tmp));
}

RecordWriter& RecordWriter::Char(char c)
{
    FBuf.push_back(c);
    return *this;
}

RecordWriter& RecordWriter::EndLine()
{
    FBuf.push_back('\n');
    if (FBuf.size() >= BlockSize)
        Flush();
    return *this;
}

bool RecordWriter::TryFlush()
{
    bool ok = true;
    if (!FBuf.empty()) {
        ok = std::fwrite(FBuf.data(), 1, FBuf.size(), FOut) == FBuf.size();
        FBuf.clear();
    }
    ok = std::fflush(FOut) == 0 && ok;
    if (!ok && FirstOutputErrno == 0)
        FirstOutputErrno = errno;
    return ok;
}

void RecordWriter::Flush()
{
    if (!TryFlush())
        throw OutputError(std::string("cannot write standard output: ") + std::strerror(errno));
}

RecordWriter::~RecordWriter() { TryFlush(); }

void CheckStandardOutput(std::ostream& out)
{
    out.flush();
    if (!out || std::fflush(stdout) != 0 || std::ferror(stdout))
        throw OutputError(std::string("cannot write standard output: ") + std::strerror(errno));
}

bool CloseStandardOutput(std::string_view command)
{
    errno = 0;
    bool ok = std::fflush(stdout) == 0;
    int reason = errno ? errno : FirstOutputErrno;
    ok = !std::ferror(stdout) && ok;
    if (std::fclose(stdout) != 0 && ok) {
        ok = false;
        reason = errno;
    }
    if (!ok)
        std::fprintf(stderr, "geotool%s%.*s: cannot write standard output%s%s\n", command.empty() ? "" : " ",
                     static_cast<int>(command.size()), command.data(), reason ? ": " : "",
                     reason ? std::strerror(reason) : "");
    return ok;
}

std::string FileError(const std::string& name, std::string_view what)
{
    return std::string(what) + " \"" + name + "\": " + std::strerror(errno);
}

std::ifstream OpenInput(const std::string& name)
{
    std::error_code ec;
    if (std::filesystem::is_directory(name, ec)) {
        errno = EISDIR;
        throw std::runtime_error(FileError(name));
    }
    errno = 0;
    std::ifstream in(name, std::ios::binary);
    if (!in) {
        if (errno == 0)
            errno = EIO;
        throw std::runtime_error(FileError(name));
    }
    return in;
}

std::string ReadWholeFile(const std::string& name)
{
    std::FILE* f = name == "-" ? stdin : nullptr;
    std::error_code ec;
    if (!f && std::filesystem::is_directory(name, ec)) {
        errno = EISDIR;
        throw std::runtime_error(FileError(name));
    }
    if (!f && !(f = std::fopen(name.c_str(), "rb")))
        throw std::runtime_error(FileError(name));
    std::string text;
    std::vector<char> block(BlockSize);
    std::size_t got;
    while ((got = std::fread(block.data(), 1, block.size(), f)) > 0)
        text.append(block.data(), got);
    const bool bad = std::ferror(f) != 0;
    const int reason = errno;
    if (f != stdin)
        std::fclose(f);
    if (bad) {
        errno = reason;
        throw std::runtime_error(FileError(name == "-" ? std::string("standard input") : name, "cannot read"));
    }
    return text;
}

bool ParseDouble(std::string_view field, double& value)
{
    const char* first = field.data();
    const char* last = first + field.size();
    if (first != last && *first == '+')
        ++first;
    const auto [end, ec] = std::from_chars(first, last, value);
    return ec == std::errc() && end == last && std::isfinite(value);
}

bool ParseInt(std::string_view field, long long& value)
{
    const char* first = field.data();
    const char* last = first + field.size();
    if (first != last && *first == '+')
        ++first;
    const auto [end, ec] = std::from_chars(first, last, value);
    return ec == std::errc() && end == last;
}

std::string Quote(std::string_view field)
{
    std::string q = "\"";
    for (std::size_t i = 0; i < field.size() && i < 40; ++i) {
        const unsigned char c = static_cast<unsigned char>(field[i]);
        q.push_back(c >= 32 && c < 127 ? static_cast<char>(c) : '?');
    }
    return q + (field.size() > 40 ? "...\"" : "\"");
}

bool Numbers(const Fields& f, std::size_t first, std::size_t count, double* values, std::string& error)
{
    for (std::size_t i = 0; i < count; ++i) {
        if (!ParseDouble(f[first + i], values[i])) {
            error = "not a number: " + Quote(f[first + i]);
            return false;
        }
    }
    return true;
}

bool LatLongInRange(double lat, double lon, std::string& error)
{
    if (lat < -90.0 || lat > 90.0) {
        error = "latitude " + ShortestText(lat) + " is outside -90..90";
        return false;
    }
    if (lon < -180.0 || lon > 180.0) {
        error = "longitude " + ShortestText(lon) + " is outside -180..180";
        return false;
    }
    return true;
}

Decimals PrecisionOption(Args& args)
{
    bool found = false;
    const std::string text = args.Option("--precision", "", &found);
    if (!found)
        return {};
    long long n = -1;
    if (!ParseInt(text, n) || n < 0 || n > 17)
        throw UsageError{"--precision needs a whole number of decimals from 0 to 17, not \"" + text + "\""};
    return {static_cast<int>(n), static_cast<int>(n)};
}

namespace detail {

void WriteRest(RecordWriter& out, const Fields& fields, std::size_t first, std::string_view line)
{
    if (first >= fields.size())
        return;
    if (line.empty()) {  // a record from the command line
        for (std::size_t i = first; i < fields.size(); ++i)
            out.Char(' ').Text(fields[i]);
        return;
    }
    // The rest of the line as it stands, from the first field passed on to the end of the last.
    const char* begin = fields[first].data();
    const char* end = fields.back().data() + fields.back().size();
    if (first > 0)
        out.Char(begin[-1] == '\t' ? '\t' : ' ');
    out.Text(std::string_view(begin, static_cast<std::size_t>(end - begin)));
}

void Placeholder(RecordWriter& out, std::size_t count)
{
    for (std::size_t i = 0; i < count; ++i)
        out.Text(i ? " *" : "*");
}

}  // namespace detail

void ReportLineError(std::string_view command, long line, std::string_view message)
{
    std::fprintf(stderr, "geotool %.*s: line %ld: %.*s\n", static_cast<int>(command.size()), command.data(),
                 line, static_cast<int>(message.size()), message.data());
}

}  // namespace geotool
