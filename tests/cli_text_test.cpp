// The command line's texts: which words a code gets from where it came, terminal columns of wide
// characters, JSON string escapes and the progress line's counts, rate and time left.
#include <gtest/gtest.h>

#include <string>

#include "../cli/json.h"
#include "../cli/messages.h"
#include "../cli/progress.h"

namespace {

using cli::CodeSource;
using cli::CodeWords;

TEST(CliCodeWords, TheSameNumberMeansWhatItsSourceSays) {
    const struct {
        CodeSource source;
        long long code;
        const char* words;
    } cases[] = {
        // 126 is the shell's "folder onto a file" but Win32's missing module.
        {CodeSource::Shell, DE_FLDDESTISFILE, "the destination is a file, where a folder is needed"},
        {CodeSource::Win32, ERROR_MOD_NOT_FOUND, "a library it needs was not found"},
        // The copy exports' positive codes are the shell's, then Win32's; their negatives their own.
        {CodeSource::CopyFilesEx, DE_FLDDESTISFILE, "the destination is a file, where a folder is needed"},
        {CodeSource::CopyFilesEx, ERROR_PATH_NOT_FOUND, "the path was not found"},
        {CodeSource::CopyFilesEx, ERROR_CANCELLED, "it was cancelled"},
        {CodeSource::CopyFilesEx, -1, "cancelled at the replace question"},
        {CodeSource::CopyFilesMultiEx, -1, "no list of sources"},
        {CodeSource::CopyFilesMultiEx, -7, "none of the sources was found"},
        {CodeSource::CompressToZip, -1, "the source was not found"},
        // Zip detail codes are no shell results and no Win32 codes.
        {CodeSource::CompressToZip, 2, "error 2"},
        {CodeSource::Win32, 0x7E, "a library it needs was not found"},
        {CodeSource::Win32, 4242, "error 4242"},
        {CodeSource::CopyFilesEx, -99, "detail code -99"},
    };
    for (const auto& c : cases) EXPECT_EQ(CodeWords(c.source, c.code), c.words) << c.code;
}

TEST(CliColumns, WideCharactersTakeTwoAndMarksNone) {
    const struct {
        const char* text;
        size_t columns;
    } cases[] = {
        {"plain.txt", 9},
        {"報告書.txt", 10},
        {"ｶﾀｶﾅ", 4},             // half-width katakana: one column each
        {"ＡＢ", 4},             // full-width Latin
        {"한글", 4},
        {"\xF0\xA0\x80\x8B", 2},  // U+2000B, a CJK ideograph outside the BMP
        {"e\xCC\x81", 1},         // e and a combining acute accent
    };
    for (const auto& c : cases) {
        EXPECT_EQ(cli::DisplayWidth(c.text), c.columns) << c.text;
        const WString units = WStrFromUtf8(c.text);
        EXPECT_EQ(cli::DisplayWidth(units.data(), units.size()), c.columns) << c.text << " as UTF-16";
    }
    EXPECT_EQ(cli::Pad("報告", 6), "報告  ");
    EXPECT_EQ(cli::Pad("12", 5, true), "   12");
    EXPECT_EQ(cli::Pad("too long", 3), "too long");
}

TEST(CliColumns, Utf16IsAppendedAsUtf8UpToItsLengthAlone) {
    std::string line = "kept ";
    const WString path = _T("C:\\報告\xD840\xDC0B.txt");  // U+2000B as a surrogate pair
    WStrAppendUtf8(line, path.data(), path.size());
    EXPECT_EQ(line, "kept C:\\\xE5\xA0\xB1\xE5\x91\x8A\xF0\xA0\x80\x8B.txt");
    // A pair cut by the length is a lone surrogate there: the unit past the end is not read.
    line.clear();
    WStrAppendUtf8(line, path.data(), 6);
    EXPECT_EQ(line, "C:\\\xE5\xA0\xB1\xE5\x91\x8A\xEF\xBF\xBD");
}

TEST(CliJson, StringsAreEscapedAndCommasFallBetweenValues) {
    EXPECT_EQ(cli::JsonQuote("a\"b\\c\n\t\x01\x7F日本"), "\"a\\\"b\\\\c\\n\\t\\u0001\\u007f日本\"");
    cli::JsonWriter json;
    json.BeginObject().Key("n").Number(18446744073709551615ULL).Key("list").BeginArray();
    json.Integer(-1).Bool(true).Null().BeginObject().EndObject().BeginArray().EndArray();
    json.EndArray().Key("s").String("x").EndObject();
    EXPECT_EQ(json.text(), "{\"n\":18446744073709551615,\"list\":[-1,true,null,{},[]],\"s\":\"x\"}");
}

TEST(CliJson, ADocumentPrintedInPartsIsTheWholeDocument) {
    // The commas between a part printed and the next are the writer's state, not its text.
    testing::internal::CaptureStdout();
    cli::JsonWriter json;
    json.BeginObject().Key("list").BeginArray().Number(1);
    json.PrintSoFar();
    EXPECT_EQ(json.text(), "");
    json.Number(2).BeginObject().Key("k").Null();
    json.PrintSoFar();
    json.EndObject().EndArray().Key("done").Bool(true).EndObject().Print();
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "{\"list\":[1,2,{\"k\":null}],\"done\":true}\n");
}

TEST(CliProgress, TheLineTellsCountsRateAndTimeLeft) {
    using cli::ProgressLine;
    // Totals known: the share done, the rate and the time the rest takes at that rate.
    EXPECT_EQ(ProgressLine::Compose("copied", 1, 4, 1048576, 4194304, 0, 2.0, "C:\\a.bin"),
              "copied 1/4 files, 1.0 MiB/4.0 MiB 25%, 512.0 KiB/s, 0:06 left  C:\\a.bin");
    // Nothing to measure a rate by yet; the percentage by files when there are no bytes at all.
    EXPECT_EQ(ProgressLine::Compose("copied", 1, 2, 0, 0, 0, 0.0, "x"), "copied 1/2 files, 0 B/0 B 50%  x");
    // Totals unknown, as while counting: no percentage and no time left.
    EXPECT_EQ(ProgressLine::Compose("counted", 1, 0, 10, 0, 3, 1.0, "C:\\d\\"),
              "counted 1 file, 3 folders, 10 B, 10 B/s  C:\\d\\");
    EXPECT_EQ(cli::HumanDuration(3725), "1:02:05");
    EXPECT_EQ(cli::HumanBytes(1536), "1.5 KiB");
}

}  // namespace
