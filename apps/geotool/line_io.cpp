#include "line_io.h"

#include <charconv>
#include <cmath>
#include <cstring>

namespace geotool {

namespace {
constexpr std::size_t BlockSize = 1 << 16;

bool IsBlank(char c) { return c == ' ' || c == '\t' || c == '\r' || c == '\v' || c == '\f'; }
}  // namespace

RecordReader::RecordReader(std::FILE* in) : FIn(in), FBuf(BlockSize) {}

bool RecordReader::NextLine(std::string_view& line)
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
        if (FEnd == 0)
            FEof = true;
    }
}

bool RecordReader::Next(std::vector<std::string_view>& fields)
{
    std::string_view line;
    while (NextLine(line)) {
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
        if (fields.empty() || fields.front().front() == '#')
            continue;
        return true;
    }
    return false;
}

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
    if (FBuf.size() >= BlockSize)
        Flush();
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
    if (FBuf.size() >= BlockSize)
        Flush();
    return *this;
}

void RecordWriter::Flush()
{
    if (!FBuf.empty()) {
        std::fwrite(FBuf.data(), 1, FBuf.size(), FOut);
        FBuf.clear();
    }
    std::fflush(FOut);
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

void ReportLineError(std::string_view command, long line, std::string_view message)
{
    std::fprintf(stderr, "geotool %.*s: line %ld: %.*s\n", static_cast<int>(command.size()), command.data(),
                 line, static_cast<int>(message.size()), message.data());
}

}  // namespace geotool
