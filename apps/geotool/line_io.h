// Streaming record I/O for geotool's conversions: records are read from standard input one line at a
// time (whitespace-separated fields) and results are written through a large buffer, so that millions of
// points stream through without iostream overhead. Output line N answers input line N: comments and blank
// lines are copied, a bad record gets a placeholder, and fields after the ones a conversion reads are
// passed through. Also the checks of standard output and of input files that every command shares.
#pragma once

#include "command.h"

#include <qvgeo/support/text.h>

#include <cstdio>
#include <fstream>
#include <ostream>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace geotool {

using Fields = std::vector<std::string_view>;

// Reads whole lines from a FILE* in large blocks. Fields and Line() are views into the current line,
// valid until the next call.
class RecordReader {
public:
    explicit RecordReader(std::FILE* in);
    // Next line, blank and comment lines included; false at the end of input. Fails with an
    // InputError when the input cannot be read.
    bool NextLine(Fields& fields);
    // Next record that is neither blank nor a comment (first field starting with '#').
    bool Next(Fields& fields);
    long LineNumber() const { return FLine; }
    // The current line without its line end.
    std::string_view Line() const { return FCurrent; }

private:
    bool ReadLine(std::string_view& line);
    std::FILE* FIn;
    std::vector<char> FBuf;
    std::size_t FBegin = 0, FEnd = 0;
    bool FEof = false;
    long FLine = 0;
    std::string FLong;  // a line longer than the buffer
    std::string_view FCurrent;
};

bool IsComment(const Fields& fields);

// Standard output (or input) failed: the message names the stream and the system's reason.
struct OutputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};
struct InputError : std::runtime_error {
    using std::runtime_error::runtime_error;
};

// Buffered output with fast fixed-point formatting ('.' as separator whatever the locale). The buffer is
// written out only at a line end (or by Flush), so a record under construction can be taken back.
class RecordWriter {
public:
    explicit RecordWriter(std::FILE* out) : FOut(out) { FBuf.reserve(1 << 16); }
    // Writes what is left; a failure here is found by CloseStandardOutput.
    ~RecordWriter();
    RecordWriter(const RecordWriter&) = delete;
    RecordWriter& operator=(const RecordWriter&) = delete;
    RecordWriter& Fixed(double value, int decimals);
    RecordWriter& Text(std::string_view text);
    RecordWriter& Int(long long value);
    RecordWriter& Char(char c);
    RecordWriter& EndLine();
    // Writes the buffer and flushes the stream; throws OutputError when that fails.
    void Flush();
    std::size_t Mark() const { return FBuf.size(); }
    void Rewind(std::size_t mark) { FBuf.resize(mark); }

private:
    bool TryFlush();
    std::FILE* FOut;
    std::string FBuf;
};

// Flushes a stream over standard output (std::cout) and throws OutputError if anything was lost.
void CheckStandardOutput(std::ostream& out);

// Flushes and closes standard output at the end of a command. False, with a message on standard error
// naming the reason, when anything written to it was lost.
bool CloseStandardOutput(std::string_view command);

// "cannot open \"NAME\": REASON" from errno; use it right after the failing call.
std::string FileError(const std::string& name, std::string_view what = "cannot open");
// An input file opened for reading, or a runtime_error naming the file and the reason ("-" is not
// special here). A directory is refused as such.
std::ifstream OpenInput(const std::string& name);
// The whole content of a file, or of standard input for "-".
std::string ReadWholeFile(const std::string& name);

// Parses a whole field as a double (from_chars; "." separator, exponent allowed). False if the field is
// not entirely a number or is not finite.
bool ParseDouble(std::string_view field, double& value);
bool ParseInt(std::string_view field, long long& value);
// A field for an error message: at most 40 characters, anything unprintable shown as '?'.
std::string Quote(std::string_view field);
// Fields first .. first+count-1 as numbers, or a message naming the first that is not one.
bool Numbers(const Fields& f, std::size_t first, std::size_t count, double* values, std::string& error);
// The shortest text that reads back as the same double ("84.0000001", "179.99999999999997"): a value
// quoted in a message beside a range can then never look as if it lay inside it.
using qv::ShortestText;
// Latitude within −90..90 and longitude within −180..180, or a message quoting the value.
bool LatLongInRange(double lat, double lon, std::string& error);

// Reports a bad input line on standard error as "geotool CMD: line N: message".
void ReportLineError(std::string_view command, long line, std::string_view message);

// Decimals of the numbers a conversion prints: degrees and metres by default, both N with --precision N.
struct Decimals {
    int Degrees = 10;
    int Metres = 4;
};
Decimals PrecisionOption(Args& args);
inline constexpr std::string_view PrecisionNote =
    "--precision N prints every number with N decimals (0 to 17) instead of the defaults, 10 for\n"
    "degrees and 4 for metres.\n";

inline constexpr std::string_view StreamNote =
    "Records are read one a line from standard input (fields separated by blanks), or one record is\n"
    "taken from the command line. Output line N answers input line N: blank lines and lines starting\n"
    "with '#' are copied, fields after the record's are passed through unchanged, and a rejected\n"
    "record prints '*' in place of each result field and is reported on standard error with its line\n"
    "number; the run goes on and the exit code is 1.\n";

// What one record of a conversion reads and writes.
struct RecordShape {
    std::size_t InFields;   // fields read; any further fields are passed through after the result
    std::size_t OutFields;  // fields written; a rejected record prints as many '*'
    const char* Layout;     // the fields read, for messages: "lat lon"
};

namespace detail {
void WriteRest(RecordWriter& out, const Fields& fields, std::size_t first, std::string_view line);
void Placeholder(RecordWriter& out, std::size_t count);
}  // namespace detail

// Runs Convert over every record: the positional words as one record when there are any, else each line
// of standard input. Convert(fields, out, error) writes the result fields of fields[0 .. InFields-1]
// separated by blanks (no line end) and returns true, or returns false with a message: the record is then
// printed as a placeholder and reported on standard error with its line number, and the run goes on.
// Returns 1 if any record was rejected, else 0.
template <class ConvertFn>
int StreamRecords(std::string_view command, const std::vector<std::string>& positional, RecordShape shape,
                  ConvertFn&& Convert)
{
    RecordWriter out(stdout);
    std::string error;
    const auto one = [&](const Fields& fields, std::string_view line) {
        error.clear();
        const std::size_t mark = out.Mark();
        if (fields.size() < shape.InFields) {
            error = "expected " + std::to_string(shape.InFields) + " fields (" + shape.Layout + "), got " +
                    std::to_string(fields.size());
        } else if (Convert(fields, out, error)) {
            detail::WriteRest(out, fields, shape.InFields, line);
            out.EndLine();
            return true;
        }
        out.Rewind(mark);
        detail::Placeholder(out, shape.OutFields);
        detail::WriteRest(out, fields, shape.InFields, line);
        out.EndLine();
        return false;
    };
    if (!positional.empty()) {
        const Fields fields(positional.begin(), positional.end());
        if (one(fields, {}))
            return 0;
        out.Flush();
        std::fprintf(stderr, "geotool %.*s: %s\n", static_cast<int>(command.size()), command.data(), error.c_str());
        return 1;
    }
    RecordReader in(stdin);
    Fields fields;
    fields.reserve(8);
    bool failed = false;
    while (in.NextLine(fields)) {
        if (fields.empty() || IsComment(fields)) {
            detail::WriteRest(out, fields, 0, in.Line());
            out.EndLine();
        } else if (!one(fields, in.Line())) {
            out.Flush();  // keep standard output and the message in line order on a shared terminal
            ReportLineError(command, in.LineNumber(), error);
            failed = true;
        }
    }
    return failed ? 1 : 0;
}

}  // namespace geotool
