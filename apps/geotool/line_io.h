// Streaming record I/O for geotool's conversions: records are read from standard input one line at a
// time (whitespace-separated fields; blank lines and lines starting with '#' skipped) and results are
// written through a large buffer, so that millions of points stream through without iostream overhead.
#pragma once

#include <cstdio>
#include <string>
#include <string_view>
#include <vector>

namespace geotool {

// Reads whole lines from a FILE* in large blocks. Fields are views into the current line, valid until
// the next call.
class RecordReader {
public:
    explicit RecordReader(std::FILE* in);
    // Next record that is neither blank nor a comment; false at the end of input.
    bool Next(std::vector<std::string_view>& fields);
    long LineNumber() const { return FLine; }

private:
    bool NextLine(std::string_view& line);
    std::FILE* FIn;
    std::vector<char> FBuf;
    std::size_t FBegin = 0, FEnd = 0;
    bool FEof = false;
    long FLine = 0;
    std::string FLong;  // a line longer than the buffer
};

// Buffered output with fast fixed-point formatting ('.' as separator whatever the locale).
class RecordWriter {
public:
    explicit RecordWriter(std::FILE* out) : FOut(out) { FBuf.reserve(1 << 16); }
    ~RecordWriter() { Flush(); }
    RecordWriter& Fixed(double value, int decimals);
    RecordWriter& Text(std::string_view text);
    RecordWriter& Int(long long value);
    RecordWriter& Char(char c);
    RecordWriter& EndLine() { return Char('\n'); }
    void Flush();

private:
    std::FILE* FOut;
    std::string FBuf;
};

// Parses a whole field as a double (from_chars; "." separator, exponent allowed). False if the field is
// not entirely a number or is not finite.
bool ParseDouble(std::string_view field, double& value);
bool ParseInt(std::string_view field, long long& value);

// Reports a bad input line on standard error as "geotool CMD: line N: message".
void ReportLineError(std::string_view command, long line, std::string_view message);

}  // namespace geotool
