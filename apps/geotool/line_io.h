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

using Fields = std::vector<std::string_view>;

// Runs Convert over every record: the positional words as one record when there are any, else each line
// of standard input. Convert(fields, out, error) returns false with a message for a bad record, which is
// reported with its line number; the run goes on and the result is 1 if any record failed.
template <class ConvertFn>
int StreamRecords(std::string_view command, const std::vector<std::string>& positional, ConvertFn&& Convert)
{
    RecordWriter out(stdout);
    std::string error;
    if (!positional.empty()) {
        const Fields fields(positional.begin(), positional.end());
        if (!Convert(fields, out, error)) {
            out.Flush();
            std::fprintf(stderr, "geotool %.*s: %s\n", static_cast<int>(command.size()), command.data(),
                         error.c_str());
            return 1;
        }
        return 0;
    }
    RecordReader in(stdin);
    Fields fields;
    fields.reserve(8);
    bool failed = false;
    while (in.Next(fields)) {
        if (!Convert(fields, out, error)) {
            out.Flush();  // keep standard output and the message in line order on a shared terminal
            ReportLineError(command, in.LineNumber(), error);
            failed = true;
        }
    }
    return failed ? 1 : 0;
}

}  // namespace geotool
