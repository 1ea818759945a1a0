// The tool in this process, with its outputs in files: what each command answers, and with which exit code.
#include "tool.h"

#include "errors.h"
#include "tool_test_support.h"

#include <gtest/gtest.h>

#include <string>

namespace {

using namespace std::string_literals;
using namespace nq_test;

Answer run(std::string_view command) { return run_tool("nq_tool_test", words_of(command)); }

const ToolCase s_cases[] = {
    {"time --json 2020-02-29T12:30Z", 0,
     "{\"utc\":\"2020-02-29 12:30:00.0\",\"iso\":\"2020-02-29T12:30:00.0Z\",\"components\":{\"year\":2020,\"month\":2,"
     "\"day\":29,\"hour\":12,\"minute\":30,\"second\":0,\"nanosecond\":0,\"dayOfWeek\":\"Saturday\"},"
     "\"jdn\":2458909,\"jd\":2458909.0208333335,\"ns\":1582979400000000000}\n"},
    {"time --json --iso --jd INF", 0, "{\"iso\":\"9999-12-31T23:59:59.999999999Z\",\"jd\":null}\n"},
    {"time --from ns --iso 1 2", 0, "1970-01-01T00:00:00.000000001Z\n1970-01-01T00:00:00.000000002Z\n"},
    {"time --from=s --iso -- -1", 0, "1969-12-31T23:59:59.0Z\n"},
    {"time --from jdn --iso 2440588", 0, "1970-01-01T12:00:00.0Z\n"},
    {"time --from jd --iso 2440587.5", 0, "1970-01-01T00:00:00.0Z\n"},
    {"time --brief --ns 1970-01-01T00:00:00 x INF", 1, "0\n9223372036854775807\n",
     "nq: Invalid UTC time string: \"x\" [error.nqcore.absoluteTime.invalidUtcString]\n"},
    {"time --from s 9223372037", 1, "", "error.nqcore.absoluteTime.range"},
    {"time --from zoned --utc --local --offset --zoned 2020-01-01T12:00:00-05:30 2020-01-01T12:00:00Z", 0,
     "2020-01-01 12:00:00.0\t2020-01-01 12:00:00.0-05:30\t-05:30\t2020-01-01 06:30:00.0\n"
     "2020-01-01 12:00:00.0\t2020-01-01 12:00:00.0Z\t+00:00\t2020-01-01 12:00:00.0\n"},
    {"time --from zoned 2020-01-01T12:30:00+02:00", 0,
     "UTC          2020-01-01 12:30:00.0\n"
     "ISO 8601     2020-01-01T12:30:00.0Z\n"
     "components   year 2020, month 1, day 1, hour 12, minute 30, second 0, nanosecond 0, Wednesday\n"
     "Julian day   2458850\n"
     "Julian date  2458850.0208333335\n"
     "nanoseconds  1577881800000000000\n"
     "zoned        2020-01-01 12:30:00.0+02:00\n"
     "offset       +02:00\n"
     "local time   2020-01-01 14:30:00.0\n"},
    {"time --from zoned --json --offset --local 2020-01-01T12:00:00+13:00 inf", 0,
     "{\"offset\":-660,\"local\":\"2020-01-02 01:00:00.0\"}\n{\"offset\":0,\"local\":\"##INFINITE##\"}\n"},
    {"time --utc 2020-01-01T12:00:00+02:00", 1, "", "time must be UTC, no timezone offset"},
    {"duration 1h2m3.5s PT0.25S", 0,
     "duration     1h 2m 3.5s\n"
     "ISO 8601     PT1H2M3.5S\n"
     "nanoseconds  3723500000000\n"
     "seconds      3723.5\n"
     "\n"
     "duration     250.0ms\n"
     "ISO 8601     PT0.25S\n"
     "nanoseconds  250000000\n"
     "seconds      0.25\n"},
    {"duration --seconds --iso -- -1.000000001s INF 60s -9223372036.854775808s", 0,
     "-PT1.000000001S\t-1.000000001\nP999999DT23H59M59.999999999S\tinf\nPT1M\t60\n"
     "-P106751DT23H47M16.854775808S\t-9223372036.854775808\n"},
    {"duration --json inf", 0,
     "{\"human\":\"##INFINITE##\",\"iso\":\"P999999DT23H59M59.999999999S\",\"ns\":9223372036854775807,"
     "\"seconds\":null}\n"},
    {"duration --ns 1us -- -5ns --ns", 1, "1000\n-5\n", "\"--ns\""},
    {"duration --brief --ns 1H 7ns P1Y", 1, "7\n",
     "nq: Invalid value in time string \"1H\", length=2 [error.nqcore.relativeTime.invalidTimeString]\n"},
    {"error list error.nqcore.cast.valueTooBig", 0,
     "nqcore_cast_valueTooBig                 error.nqcore.cast.valueTooBig\n"
     "nqcore_cast_valueTooBig_signReversal    error.nqcore.cast.valueTooBig.signReversal\n"},
    {"error list error.nqcore.future.nullError --json", 0,
     "{\"constant\":\"nqcore_future_nullError\",\"code\":\"error.nqcore.future.nullError\"}\n"},
    {"error show --brief 0x2", 0, "nq: No such file, directory, or resource [error.errno.ENOENT]\n"},
    {"error show zz", 2, "", "error.nqcore.string.extraction"},
    {"error match a a --json", 0, "{\"code\":\"a\",\"prefix\":\"a\",\"matches\":true}\n"},
    {"error match error.a.b error.a", 0, "true\n"},
    {"error match error.ab error.a", 1, "false\n"},
    {"error match a", 2, "", "PREFIX is required"},
    {"encode FILE", 2, "", "one of --base64, --base32 and --hex is required"},
    {"encode --hex -w x FILE", 2, "", "--wrap takes a number of columns"},
    {"decode --hex --base32 FILE", 2, "", "--base32 and --hex exclude each other"},
    {"wash", 2, "", "error.nq.usage"},
    {"scrub /help", 1, "", "cannot open '/help'"},  // no option, on Windows either
    {"--brief scrub [a,b]", 1, "", "nq: cannot open '[a,b]' [error.nq.input]: "},
    {"utf8 repair --replacement \x80", 2, "", "--replacement takes one ASCII"},
    {"utf8 repair --replacement ab", 2, "", "--replacement takes one ASCII"},
    {"--brief scrubb FILE", 2, "", "nq: no command 'scrubb' (nq --help"},
    {"utf8 chek FILE", 2, "", "no command 'utf8 chek' (nq --help"},
    {"utf8 to-utf16 --be --le -", 2, "", "exclude each other"},
    {"dump --reverse --skip 1", 2, "", "go with dumping"},
    {"dump --length 1x", 2, "", "--length takes a number of bytes"},
    {"scrub FILE -o FILE", 2, "", "the output is also an input"},
    {"scrub nq_no_such_file -o nq_no_such_file", 2, "", "also an input"},
    {"scrub --jobs 257 FILE", 2, "", "--jobs takes a number from 0 to 256, not '257'"},
    {"scrub --jobs 4x FILE", 2, "", "not '4x'"},
    {"scrub --jobs= FILE", 2, "", "error.nq.usage"},
    {"scrub --quiet --jobs 0 FILE", 0, "x\n"},
    {"scrub --quiet -j256 FILE", 0, "x\n"},
    {"scrub --brief --jobs 3 FILE nq_no_such_file", 1, "x\n", "nq: cannot open 'nq_no_such_file'"},
    {"scrub --brief .", 1, "", "[error.errno.EISDIR]"},
    {"scrub --brief -o . FILE", 1, "", "cannot create '.' [error.nq.output]"},
    {"scrub --quiet FILE", 0, "2026-11-01T12:34:56.0Z 41111-------1111 ?\r\n", "",
     "2026-11-01 12:34:56 4111111111111111 \xFF\r\n"},
    {"scrub FILE", 0, "x\n", "lines             1\nbytes             2 in, 2 out\n"},
    // Commands that read a file: its content comes last.
    {"utf8 check FILE", 0, "'nq_tool_test.in': valid, 4 bytes\n", "", "a\xC3\xA9\n"},
    {"utf8 check --brief FILE", 1, "'nq_tool_test.in': invalid at offset 5, line 2, column 3\n",
     "[error.nq.text]: Invalid subsequent byte in UTF-8 character sequence [error.nqcore.string.utf8.invalid]",
     "a\n\xC3\xA9z\xE2\x82\n"},
    {"utf8 check --json FILE", 0, "{\"input\":\"nq_tool_test.in\",\"valid\":true,\"bytes\":7,\"lines\":2}\n", "",
     "one\ntwo"},
    {"utf8 repair --replacement _ FILE", 0, "a__\n_", "", "a\xC0\x80\n\xF0"},
    {"utf8 to-utf16 FILE", 0, "h\0\xE9\0\x3D\xD8\x00\xDE"s, "", "h\xC3\xA9\xF0\x9F\x98\x80"},
    {"utf8 to-utf16 --be --bom FILE", 0, "\xFE\xFF\0h\0\xE9"s, "", "h\xC3\xA9"},
    {"utf8 to-utf16 FILE", 1, "a\0b\0"s, "at offset 2 (line 1, column 3)", "ab\xF4\x90\x80\x80"},
    {"utf8 from-utf16 FILE", 0, "a\n\xC3\xA9", "", "a\0\n\0\xE9\0"s},
    {"utf8 from-utf16 --bom FILE", 0, "a\xF0\x9F\x98\x80", "", "\xFE\xFF\0a\xD8\x3D\xDE\x00"s},
    {"utf8 from-utf16 --bom FILE", 0, "", "", "\xFF\xFE"},
    {"utf8 from-utf16 FILE", 1, "", "at offset 0", "\xFF\xFEz\0"s},
    {"utf8 from-utf16 FILE", 1, "a", "at offset 2 (line 1, column 2)", "a\0\0\xDCz\0"s},
    {"utf8 from-utf16 FILE", 1, "a", "at offset 2 (line 1, column 2)", "a\0\0\xD8"s},
    {"utf8 from-utf16 FILE", 1, "a", "at offset 2 (line 1, column 2)", "a\0b"s},
    {"encode --base64 --wrap 0 FILE", 0, "Zm9vYmFy", "", "foobar"},
    {"encode --hex -w 5 FILE", 0, "666f6\nf6261\n72\n", "", "foobar"},
    {"encode --hex -w 6 FILE", 0, "666f6f\n626172\n", "", "foobar"},
    {"encode --base64 --unpadded FILE", 0, "Zm8\n", "", "fo"},
    {"decode --base64 FILE", 0, "foob", "", "Zm9v\r\nYg\n==\n"},
    {"decode --hex --strict FILE", 1, "foo", "at offset 6 (line 1, column 7)", "666F6f\n"},
    {"decode --hex FILE", 1, "f", "at offset 3 (line 1, column 4)", "666"},
    {"decode --base64 --unpadded FILE", 0, "fo", "", "Zm8"},
    {"decode --base32 --ignore-case FILE", 0, "fooba", "", "mzxw6ytb"},
    {"decode --base32 --brief FILE", 1, "fooba",
     "nq: invalid base-32 in 'nq_tool_test.in' at offset 12 (line 2, column 4) [error.nq.text]: Encountered "
     "non-padding character in padding of base-32 sequence [error.nqcore.transforms.base32.padding]\n",
     "MZXW6YTB\nMY=Y"},
    {"dump --skip 0xf --length 2 FILE", 0, "0000000f: 66 7f                                           : f\x7F\n", "",
     "0123456789abcdef\x7F\n"},
    {"dump --length 3 FILE FILE", 0, "00000000: 61 62 61                                        : aba\n", "", "ab"},
    {"dump --skip 9 FILE", 0, "", "", "ab"},
    {"dump -r FILE", 0, "01JK\0"s, "", "00000ff0: 30 31 : whatever\r\n000000000FF2: 4A4b 00  \n"},
    {"dump -r FILE", 1, "01", "line 2 of 'nq_tool_test.in' begins at 0x00000003 where 0x00000002 should follow",
     "0: 30 31\n3: 32"},
    {"dump -r FILE", 1, "", "line 1 of 'nq_tool_test.in' is no line of a hex dump (column 8)", "0: 30 3"},
};

TEST(Tool, AnswersCommands) {
    for (const ToolCase& row : s_cases) {
        expect_answer("nq_tool_test", row);
    }
    expect_answer("nq_tool_test", {"scrub -q FILE -o nq_tool_test.clean", 0, ""});
    EXPECT_EQ(content_of("nq_tool_test.clean"), "x\n");
}

TEST(Tool, HelpEverywhere) {
    for (const char* const command :
         {"",      "scrub", "time",      "duration", "utf8", "utf8 check", "utf8 to-utf16", "encode",          "decode",
          "dump",  "uuid",  "uuid new",  "hash",     "cpu",  "env",        "env get",       "env set-and-run", "run",
          "trace", "error", "error show"}) {
        const Answer answer = run(command + " --help"s);
        EXPECT_EQ(answer.exitCode, 0);
        EXPECT_NE(answer.out.find("Usage: nq"), std::string::npos) << answer.out;
        EXPECT_EQ(answer.err, "");
    }
}

TEST(Tool, Trace) {
    const Answer demo = run("trace --demo");
    EXPECT_EQ(demo.exitCode, 0);
    for (const char* const text :
         {"error.exception.assert", "Debug Assertion Failed! ", "Expression: order->weightKg > 0", "Details: harbour",
          "Stack Trace:\n", "> Frame 1 -- fp="}) {
        EXPECT_NE(demo.out.find(text), std::string::npos) << text << "\nin\n" << demo.out;
    }
    EXPECT_EQ(run("trace --demo --json").out.find("{\"code\":\"error.exception.assert\""), 0u);
    EXPECT_NE(run("trace").out.find("[0x"), std::string::npos);
    const std::string full = run("trace --full").out;
    EXPECT_LT(full.find("SP="), full.find("\n\n[0x"));
    EXPECT_LT(full.find("\n\n[0x"), full.find("> Frame 1 -- fp="));
    EXPECT_NE(full.find("> Frame 1 -- fp="), std::string::npos);
    EXPECT_EQ(run("trace --json").out.find("{\"address\":"), 0u);
}

TEST(ErrorText, CannotSteerATerminal) {
    const auto error = nqcore::ErrorInfo::create("error.nq.text", "a\x1b[2Jb\nc", NQCORE_HERE);
    const std::string brief = nq::error_text(*error, {.brief = true, .forTerminal = true, .colour = true});
    EXPECT_EQ(brief, "\x1b[1;31mnq:\x1b[0m a\\x1b[2Jb\\x0ac [error.nq.text]\n");
    const std::string full = nq::error_text(*error, {.brief = false, .forTerminal = true, .colour = false});
    EXPECT_NE(full.find("a\\x1b[2Jb\n"), std::string::npos) << full;
}

}  // namespace
