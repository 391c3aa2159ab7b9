// Text scanning: stream and cursor readers, keyword expectations, string builders and the
// copying routines.
#include "meer/arrays.h"
#include "meer/obecne.h"
#include "meer/retezce.h"
#include "support/meer_test_support.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>
#include <string>
#include <vector>

using namespace meerspace;
using meertest::expectFatalAt;
using meertest::Fatal;
using meertest::runFatal;
using meertest::TextFile;

namespace {

// A writable copy of a text for the cursor readers.
struct Text {
    explicit Text(const std::string& s) : chars(s.begin(), s.end()) {
        chars.push_back('\0');
        cursor = chars.data();
    }
    std::vector<char> chars;
    char* cursor;
};

std::unique_ptr<char[]> owned(char* p) {
    return std::unique_ptr<char[]>(p);
}

} // namespace

// ---- character classes -----------------------------------------------------------------

TEST(CharacterClasses, TokenLineBlankDigit) {
    for (int c : std::initializer_list<int>{' ', '\t', '\n', '\r', '\0', 0xFF, EOF})
        EXPECT_FALSE(isTokenChar(c)) << c;
    for (int c : std::initializer_list<int>{'a', '#', '-', '1'})
        EXPECT_TRUE(isTokenChar(c)) << c;
    for (int c : std::initializer_list<int>{'\n', '\r', '\0', 0xFF, EOF})
        EXPECT_FALSE(isLineChar(c)) << c;
    for (int c : std::initializer_list<int>{' ', '\t', 'x'})
        EXPECT_TRUE(isLineChar(c)) << c;
    EXPECT_TRUE(isBlank(' '));
    EXPECT_TRUE(isBlank('\t'));
    EXPECT_FALSE(isBlank('\n'));
    EXPECT_TRUE(isDigit('0'));
    EXPECT_TRUE(isDigit('9'));
    EXPECT_FALSE(isDigit('a'));
    EXPECT_FALSE(isDigit('+'));
}

// ---- stream readers --------------------------------------------------------------------

TEST(StreamReadLine, CarriageReturnAndLineFeed) {
    TextFile f("abc\r\nnext");
    char line[kLineBufferSize];
    EXPECT_EQ(readLine(f.get(), line), 3);
    EXPECT_STREQ(line, "abc");
    EXPECT_EQ(f.rest(), "next");
}

TEST(StreamReadLine, EndOfFile) {
    TextFile f("last");
    char line[kLineBufferSize];
    EXPECT_EQ(readLine(f.get(), line), 4);
    EXPECT_STREQ(line, "last");
    EXPECT_EQ(readLine(f.get(), line), -1);
    EXPECT_STREQ(line, "");
    TextFile empty("");
    EXPECT_EQ(readLine(empty.get(), line), -1);
}

TEST(StreamReadLine, EmptyLinesAndLoneCarriageReturn) {
    TextFile f("\nab\rx\n");
    char line[kLineBufferSize];
    EXPECT_EQ(readLine(f.get(), line), 0);
    EXPECT_EQ(readLine(f.get(), line), 2);
    EXPECT_STREQ(line, "ab");
    EXPECT_EQ(f.rest(), "x\n");
}

TEST(StreamReadLine, ByteFFEndsTheInput) {
    TextFile f("ab\xFF"
               "cd");
    char line[kLineBufferSize];
    EXPECT_EQ(readLine(f.get(), line), 2);
    EXPECT_STREQ(line, "ab");
    TextFile g("\xFF");
    EXPECT_EQ(readLine(g.get(), line), -1);
}

// Buffers are the caller's; a buffer of kLineBufferSize holds a line one shorter.
TEST(StreamReadLine, LineFillingTheLibraryBufferSize) {
    const std::string longLine(kLineBufferSize - 1, 'z');
    TextFile f(longLine + "\n");
    std::vector<char> line(kLineBufferSize);
    EXPECT_EQ(readLine(f.get(), line.data()), kLineBufferSize - 1);
    EXPECT_EQ(std::string(line.data()), longLine);
    EXPECT_EQ(kLineBufferSize, 10000);
}

TEST(MatchWord, DifferenceLeavesThePrefixConsumed) {
    TextFile f("ENX rest");
    EXPECT_FALSE(matchWord(f.get(), "END", true));
    EXPECT_EQ(f.rest(), "X rest");
}

TEST(MatchWord, CaseHandling) {
    TextFile a("end");
    EXPECT_TRUE(matchWord(a.get(), "END", false));
    TextFile b("end");
    EXPECT_FALSE(matchWord(b.get(), "END", true));
    EXPECT_EQ(b.rest(), "end"); // the first character differed and was put back
    TextFile c("END");
    EXPECT_TRUE(matchWord(c.get(), "END", true));
    TextFile d("EN");
    EXPECT_FALSE(matchWord(d.get(), "END", true));
}

TEST(SkipDataLines, CommentLinesDoNotCountEmptyLinesDo) {
    TextFile f("# comment\n\ndata one\ndata two\n");
    skipDataLines(f.get(), 2);
    EXPECT_EQ(f.rest(), "data two\n");
}

TEST(SkipDataLines, StopsAtEndOfFile) {
    TextFile f("a\n#b\n");
    skipDataLines(f.get(), 5);
    EXPECT_EQ(f.rest(), "");
}

TEST(StreamSkipping, WhitespaceAndBlanks) {
    TextFile f("  \n\t x");
    EXPECT_TRUE(skipWhitespace(f.get()));
    EXPECT_EQ(f.rest(), "x");
    TextFile g(" \t \n");
    EXPECT_FALSE(skipWhitespace(g.get()));
    TextFile h(" \t\nx");
    EXPECT_TRUE(skipBlanks(h.get()));
    EXPECT_EQ(h.rest(), "\nx");
    TextFile i("  ");
    EXPECT_FALSE(skipBlanks(i.get()));
}

TEST(StreamSkipping, SkipToToken) {
    TextFile f("  # comment\n  \n # more\n tok");
    EXPECT_TRUE(skipToToken(f.get()));
    EXPECT_EQ(f.rest(), "tok");
    TextFile g("# only a comment\n   ");
    EXPECT_FALSE(skipToToken(g.get()));
}

TEST(StreamSkipping, SkipCommentLines) {
    TextFile f("#a\n#b\nc\n#d\n");
    skipCommentLines(f.get());
    EXPECT_EQ(f.rest(), "c\n#d\n");
    TextFile g(" #a\n");
    skipCommentLines(g.get());
    EXPECT_EQ(g.rest(), " #a\n");
}

TEST(StreamSkipping, SkipLines) {
    TextFile f("a\nb\nc");
    EXPECT_TRUE(skipLines(f.get(), 2));
    EXPECT_EQ(f.rest(), "c");
    TextFile g("a\nb");
    EXPECT_FALSE(skipLines(g.get(), 2));
}

TEST(FindWord, AtTheStartOfALine) {
    TextFile f("first\nEND of it\nEND again");
    EXPECT_TRUE(findWord(f.get(), "END", true));
    EXPECT_EQ(f.rest(), " of it\nEND again");
    TextFile g("a END\nb\n");
    EXPECT_FALSE(findWord(g.get(), "END", true)); // not at a line start
    TextFile h("x\nend\n");
    EXPECT_TRUE(findWord(h.get(), "END", false));
}

TEST(FindWord, SkipLineVariant) {
    TextFile f("x\n*NODE, rest\nnext");
    EXPECT_TRUE(findWordSkipLine(f.get(), "*NODE", true));
    EXPECT_EQ(f.rest(), "next");
    TextFile g("x\n*NODE");
    EXPECT_FALSE(findWordSkipLine(g.get(), "*NODE", true)); // no line end after it
    TextFile h("x\n");
    EXPECT_FALSE(findWordSkipLine(h.get(), "*NODE", true));
}

TEST(FindLineStartingWith, PutsTheCharacterBack) {
    TextFile f("a\n\nb*\n*NODE\n");
    EXPECT_TRUE(findLineStartingWith(f.get(), '*'));
    EXPECT_EQ(f.rest(), "*NODE\n");
    TextFile g("a\nb\n");
    EXPECT_FALSE(findLineStartingWith(g.get(), '*'));
}

TEST(ReadNumbers, IntsLongsDoubles) {
    TextFile f("1 -2\n3 40000 -5 6 1.5 -2e3");
    int ints[3];
    std::int32_t longs[3];
    double doubles[2];
    EXPECT_TRUE(readInts(f.get(), 3, ints));
    EXPECT_EQ(ints[2], 3);
    EXPECT_TRUE(readLongs(f.get(), 3, longs));
    EXPECT_EQ(longs[0], 40000);
    EXPECT_EQ(longs[1], -5);
    EXPECT_TRUE(readDoubles(f.get(), 2, doubles));
    EXPECT_EQ(doubles[0], 1.5);
    EXPECT_EQ(doubles[1], -2000.0);
    EXPECT_FALSE(readDoubles(f.get(), 1, doubles));
    TextFile g("1 x 3");
    EXPECT_FALSE(readInts(g.get(), 3, ints));
    EXPECT_EQ(ints[0], 1);
}

TEST(Counting, TokensAndLines) {
    TextFile f(" a bb\n c\t# d  ");
    EXPECT_EQ(countTokens(f.get()), 5); // "#" and "d" are tokens like any other
    TextFile g("a\nb\nc");
    EXPECT_EQ(countLines(g.get(), true), 2);
    EXPECT_EQ(g.rest(), "a\nb\nc");
    TextFile h("x\ny\n");
    char line[16];
    readLine(h.get(), line);
    EXPECT_EQ(countLines(h.get(), false), 1);
    EXPECT_EQ(h.rest(), "");
}

TEST(ReadDataLine, SkipsBlanksCommentsAndEmptyLines) {
    TextFile f("  # comment\n\n   \n\r\n  data here\nnext\n");
    char line[kLineBufferSize];
    EXPECT_EQ(readDataLine(f.get(), line), 9);
    EXPECT_STREQ(line, "data here");
    EXPECT_EQ(f.rest(), "next\n");
    TextFile g("# c\n\n");
    EXPECT_EQ(readDataLine(g.get(), line), -1);
}

TEST(StreamReadWord, TokenAndDelimiter) {
    TextFile f("  tok1 tok2");
    char word[32];
    EXPECT_EQ(readWord(f.get(), word), 4);
    EXPECT_STREQ(word, "tok1");
    EXPECT_EQ(f.rest(), " tok2");
    TextFile g("   ");
    EXPECT_EQ(readWord(g.get(), word), 0);
    EXPECT_STREQ(word, "");
}

TEST(StreamReadLineAlloc, AllocatesTheLine) {
    TextFile f("hello\r\nworld");
    char* line = nullptr;
    EXPECT_EQ(readLineAlloc(f.get(), &line), 5);
    auto guard = owned(line);
    EXPECT_STREQ(line, "hello");
    EXPECT_EQ(f.rest(), "world");
}

TEST(StreamReadLineAlloc, SetDestinationIsFatal) {
    TextFile f("x\n");
    char existing[] = "set";
    char* line = existing;
    expectFatalAt([&] { readLineAlloc(f.get(), &line); }, "allocated", "retezce", "\"allocated\"");
    EXPECT_EQ(line, existing);
    EXPECT_EQ(f.rest(), "x\n");
}

// At end of file nothing is allocated and -1 is returned; a line longer than the library's
// line buffer is read whole.
TEST(StreamReadLineAlloc, EndOfFileAndOverlongLines) {
    TextFile f("");
    char* line = nullptr;
    EXPECT_EQ(readLineAlloc(f.get(), &line), -1);
    EXPECT_EQ(line, nullptr);
    const std::string longLine(3 * kLineBufferSize, 'q');
    TextFile g(longLine + "\n");
    EXPECT_EQ(readLineAlloc(g.get(), &line), 3 * kLineBufferSize);
    auto guard = owned(line);
    EXPECT_EQ(std::string(line), longLine);
}

TEST(ExpectWord, SkipsWhitespaceAndTheRestOfTheToken) {
    TextFile f("  \n ENDING x");
    EXPECT_TRUE(expectWord(f.get(), "END", true));
    EXPECT_EQ(f.rest(), " x");
    TextFile g("  BEGIN");
    EXPECT_FALSE(expectWord(g.get(), "END", true));
    TextFile h("   ");
    EXPECT_FALSE(expectWord(h.get(), "END", true));
}

TEST(ExpectWordAtLineEnd, LineMustEndThere) {
    TextFile f(" END  \r\nx");
    EXPECT_TRUE(expectWordAtLineEnd(f.get(), "END", true));
    EXPECT_EQ(f.rest(), "x");
    TextFile g("end \n");
    EXPECT_TRUE(expectWordAtLineEnd(g.get(), "END", false));
    TextFile h("END x\n");
    EXPECT_FALSE(expectWordAtLineEnd(h.get(), "END", true));
    EXPECT_EQ(h.rest(), "x\n");
    TextFile i("END");
    EXPECT_FALSE(expectWordAtLineEnd(i.get(), "END", true));
    TextFile j("\nEND\n");
    EXPECT_FALSE(expectWordAtLineEnd(j.get(), "END", true)); // blanks only, not line ends
}

// ---- keyword expectations on a stream --------------------------------------------------

TEST(ExpectOrDie, StreamWordAtTheCallersLocation) {
    TextFile f("BEGIN");
    Fatal r =
        runFatal([&] { expectWordOrDie("mesh", 77, f.get(), "END", "reading header", true); });
    ASSERT_TRUE(r.threw);
    EXPECT_EQ(r.value, 201);
    // The text found is reported as a null string, which the C runtime prints as "(null)".
    EXPECT_EQ(r.stderrText,
              "\n\n ERROR:  reading header, expected \"END\"  != \"(null)\" (mesh:77).  !!!\n\n");
    TextFile g(" END\n");
    EXPECT_NO_THROW(expectWordOrDie("mesh", 1, g.get(), "END", "ctx", true));
}

TEST(ExpectOrDie, StreamWordAtLineEnd) {
    TextFile f("END more\n");
    Fatal r =
        runFatal([&] { expectWordAtLineEndOrDie("obecne", 12, f.get(), "END", "closing", false); });
    ASSERT_TRUE(r.threw);
    EXPECT_EQ(r.report.message, "closing, expected \"END\"  != \"(null)\"");
    EXPECT_EQ(r.report.source, "obecne");
    EXPECT_EQ(r.report.line, 12);
    TextFile g("end\n");
    EXPECT_NO_THROW(expectWordAtLineEndOrDie("x", 1, g.get(), "END", "ctx", false));
}

// ---- cursor readers --------------------------------------------------------------------

TEST(CutComment, CutsAndRemovesSpacesBefore) {
    char a[] = "abc   # comment";
    EXPECT_TRUE(cutComment(a));
    EXPECT_STREQ(a, "abc");
    char b[] = "no comment ";
    EXPECT_FALSE(cutComment(b));
    EXPECT_STREQ(b, "no comment ");
    char c[] = "abc\t# c";
    EXPECT_TRUE(cutComment(c));
    EXPECT_STREQ(c, "abc\t"); // spaces only
    char d[] = "  #";
    EXPECT_TRUE(cutComment(d));
    EXPECT_STREQ(d, "");
}

TEST(CursorSkipping, BlanksTokensNumbers) {
    Text t(" \t x");
    EXPECT_TRUE(skipBlanks(&t.cursor));
    EXPECT_STREQ(t.cursor, "x");
    Text u("a bb c");
    EXPECT_TRUE(skipTokens(&u.cursor, 2));
    EXPECT_STREQ(u.cursor, " c");
    Text v("a\n b");
    EXPECT_FALSE(skipTokens(&v.cursor, 2));
    Text w("  ");
    EXPECT_FALSE(skipTokens(&w.cursor, 1));
    Text n1("  -12x");
    EXPECT_TRUE(skipNumber(&n1.cursor));
    EXPECT_STREQ(n1.cursor, "x");
    Text n2(" \r\n");
    EXPECT_FALSE(skipNumber(&n2.cursor));
    Text n3("abc");
    EXPECT_TRUE(skipNumber(&n3.cursor));
    EXPECT_STREQ(n3.cursor, "abc");
    Text n4("+7 8");
    EXPECT_TRUE(skipNumber(&n4.cursor));
    EXPECT_STREQ(n4.cursor, " 8");
}

TEST(CursorRead, CharAndWord) {
    Text t("  xy");
    char ch = 0;
    EXPECT_TRUE(readChar(&t.cursor, &ch));
    EXPECT_EQ(ch, 'x');
    EXPECT_STREQ(t.cursor, "y");
    Text u("  \n");
    EXPECT_FALSE(readChar(&u.cursor, &ch));
    Text v("");
    EXPECT_FALSE(readChar(&v.cursor, &ch));
    Text w("  ab cd");
    char word[16];
    EXPECT_EQ(readWord(&w.cursor, word), 2);
    EXPECT_STREQ(word, "ab");
    EXPECT_STREQ(w.cursor, " cd");
}

TEST(CursorRead, LineKeepsLeadingBlanks) {
    Text t("  ab\ncd");
    char line[16];
    EXPECT_EQ(readLine(&t.cursor, line), 4);
    EXPECT_STREQ(line, "  ab");
    EXPECT_STREQ(t.cursor, "\ncd");
}

TEST(CursorRead, LineIntoNullIsFatal) {
    Text t("ab");
    expectFatalAt([&] { readLine(&t.cursor, nullptr); }, "destination is not allocated", "retezce",
                  "destination is not allocated");
}

TEST(CursorRead, LineAlloc) {
    Text t("  ab cd\nx");
    char* line = nullptr;
    EXPECT_EQ(readLineAlloc(&t.cursor, &line), 5);
    auto guard = owned(line);
    EXPECT_STREQ(line, "ab cd");
    EXPECT_STREQ(t.cursor, "\nx");
    char* set = line;
    expectFatalAt([&] { readLineAlloc(&t.cursor, &set); }, "allocated", "retezce", "\"allocated\"");
}

TEST(CursorScan, IntLongDouble) {
    Text t(" 12 -7 2.5e1 last");
    int i = 0;
    std::int32_t l = 0;
    double x = 0;
    EXPECT_TRUE(scanInt(&t.cursor, &i));
    EXPECT_EQ(i, 12);
    EXPECT_TRUE(scanLong(&t.cursor, &l));
    EXPECT_EQ(l, -7);
    EXPECT_TRUE(scanDouble(&t.cursor, &x));
    EXPECT_EQ(x, 25.0);
    EXPECT_STREQ(t.cursor, " last");
    Text e("  ");
    EXPECT_FALSE(scanDouble(&e.cursor, &x));
    EXPECT_FALSE(scanInt(&e.cursor, &i));
    EXPECT_EQ(i, 12); // a failed read leaves the value
}

TEST(Unscan, MovesBackOverBlanksAndTheWord) {
    Text t("key value  rest");
    char* start = t.cursor;
    t.cursor = start + std::strlen("key value  ");
    unscan(&t.cursor, "value");
    EXPECT_EQ(t.cursor, start + 4);
    Text u("key value rest");
    u.cursor += std::strlen("key value ");
    expectFatalAt([&] { unscan(&u.cursor, "other"); }, "unscan error", "retezce", "unscan error");
}

TEST(ScanCounted, DoublesWithTheRightCount) {
    Text t("3 1 2 3");
    double values[3] = {};
    EXPECT_TRUE(scanCountedDoubles(&t.cursor, 3, values));
    EXPECT_EQ(values[0], 1.0);
    EXPECT_EQ(values[2], 3.0);
}

TEST(ScanCounted, DoublesWithAWrongCountWarn) {
    Text t("3 1 2 3");
    double values[4] = {9, 9, 9, 9};
    testing::internal::CaptureStderr();
    EXPECT_FALSE(scanCountedDoubles(&t.cursor, 4, values));
    const std::string err = testing::internal::GetCapturedStderr();
    meertest::Report r = meertest::parseReport(err);
    ASSERT_TRUE(r.wellFormed) << err;
    EXPECT_EQ(r.head, "WARNING");
    EXPECT_EQ(r.message, "The length of array of doubles is not \"4\"");
    EXPECT_EQ(r.source, "retezce");
    EXPECT_NE(meertest::sourceLine("meer/retezce.cpp", r.line).find("WARNING("), std::string::npos);
    EXPECT_EQ(values[0], 9.0);
}

TEST(ScanCounted, VectorFilled) {
    Text t("3 1.0 2.0 3.0");
    Dvctr v;
    scanCountedVector(&t.cursor, 3, v);
    ASSERT_EQ(v.n, 3);
    EXPECT_EQ(v[0], 1.0);
    EXPECT_EQ(v[1], 2.0);
    EXPECT_EQ(v[2], 3.0);
}

TEST(ScanCounted, VectorWithAWrongCountIsFatal) {
    Text t("3 1.0 2.0 3.0");
    Dvctr v;
    expectFatalAt([&] { scanCountedVector(&t.cursor, 4, v); },
                  "unexpected number of components in scanned array", "retezce",
                  "unexpected number of components");
    EXPECT_EQ(v.n, 0);
}

// ---- keyword expectations on a cursor --------------------------------------------------

TEST(ExpectCursorWord, MatchAdvances) {
    Text t("  KEY rest");
    expectCursorWord("m", 1, &t.cursor, "KEY", "ctx", true);
    EXPECT_STREQ(t.cursor, " rest");
    Text u("key");
    expectCursorWord("m", 1, &u.cursor, "KEY", "ctx", false);
    EXPECT_STREQ(u.cursor, "");
}

TEST(ExpectCursorWord, MismatchReportsTheRestOfTheString) {
    Text t("  FOO bar");
    Fatal r = runFatal([&] { expectCursorWord("reader", 40, &t.cursor, "KEY", "section", true); });
    ASSERT_TRUE(r.threw);
    EXPECT_EQ(r.stderrText,
              "\n\n ERROR:  section, expected \"KEY\"  != \"FOO bar\" (reader:40).  !!!\n\n");
}

// The two- and three-word forms return which word matched (1-based).
TEST(ExpectCursorWord, TwoWordsTryTheSecondFirst) {
    Text t("AB");
    EXPECT_EQ(expectCursorWord2("m", 1, &t.cursor, "A", "AB", "ctx", true), 2);
    EXPECT_STREQ(t.cursor, "");
    Text u("AB");
    EXPECT_EQ(expectCursorWord2("m", 1, &u.cursor, "AB", "A", "ctx", true), 2);
    EXPECT_STREQ(u.cursor, "B");
    Text v(" x1");
    EXPECT_EQ(expectCursorWord2("m", 1, &v.cursor, "X", "Y", "ctx", false), 1);
    EXPECT_STREQ(v.cursor, "1");
    Text w("C d");
    Fatal r = runFatal([&] { expectCursorWord2("m", 9, &w.cursor, "A", "B", "ctx", true); });
    ASSERT_TRUE(r.threw);
    EXPECT_EQ(r.report.message, "ctx, expected \"A\" or \"B\" != \"C d\"");
    EXPECT_EQ(r.report.line, 9);
}

TEST(ExpectCursorWord, ThreeWordsTryFromTheLast) {
    Text t("ABC");
    EXPECT_EQ(expectCursorWord3("m", 1, &t.cursor, "A", "AB", "ABC", "ctx", true), 3);
    Text u("ABC");
    EXPECT_EQ(expectCursorWord3("m", 1, &u.cursor, "ABC", "AB", "A", "ctx", true), 3);
    EXPECT_STREQ(u.cursor, "BC");
    Text v("two");
    EXPECT_EQ(expectCursorWord3("m", 1, &v.cursor, "one", "two", "three", "ctx", true), 2);
    Text w("one");
    EXPECT_EQ(expectCursorWord3("m", 1, &w.cursor, "one", "two", "three", "ctx", true), 1);
}

// A failed try on a cursor consumes nothing: the next word is tried from the same place, and
// the report shows the text where the word was expected.
TEST(ExpectCursorWord, FailedTryConsumesNothing) {
    Text t("ABX");
    EXPECT_EQ(expectCursorWord2("m", 1, &t.cursor, "ABX", "ABC", "ctx", true), 1);
    EXPECT_STREQ(t.cursor, "");
    Text u("ABD");
    EXPECT_EQ(expectCursorWord3("m", 1, &u.cursor, "ABD", "ABE", "ABC", "ctx", true), 1);
    EXPECT_STREQ(u.cursor, "");
    Text w("  ENX y");
    Fatal r = runFatal([&] { expectCursorWord("m", 2, &w.cursor, "END", "ctx", true); });
    ASSERT_TRUE(r.threw);
    EXPECT_EQ(r.report.message, "ctx, expected \"END\"  != \"ENX y\"");
}

TEST(ExpectCursorWord, ThreeWordMessageRepeatsTheSecondWord) {
    Text t("D x");
    Fatal r = runFatal([&] { expectCursorWord3("src", 3, &t.cursor, "A", "B", "C", "ctx", true); });
    ASSERT_TRUE(r.threw);
    EXPECT_EQ(r.value, 201);
    EXPECT_EQ(r.report.message, "ctx, expected \"A\" or \"B\" or \"B\" != \"D x\"");
    EXPECT_EQ(r.report.source, "src");
}

TEST(ReportExpected, IntAndLongTexts) {
    Fatal r = runFatal([] { reportExpectedInt("meer", 5, "nodes", 5, "abc"); });
    ASSERT_TRUE(r.threw);
    EXPECT_EQ(r.stderrText, "\n\n ERROR:  nodes, expected \"5\"  != \"abc\" (meer:5).  !!!\n\n");
    r = runFatal([] { reportExpectedLong("meer", 6, "elements", -7, "x"); });
    ASSERT_TRUE(r.threw);
    EXPECT_EQ(r.stderrText, "\n\n ERROR:  elements, expected \"-7\" != \"x\" (meer:6).  !!!\n\n");
}

// ---- string builders -------------------------------------------------------------------

TEST(StringBuilders, DuplicateAndConcat) {
    auto d = owned(duplicate("abc"));
    EXPECT_STREQ(d.get(), "abc");
    EXPECT_EQ(duplicate(nullptr), nullptr);
    auto e = owned(duplicate(""));
    EXPECT_STREQ(e.get(), "");
    auto c2 = owned(concat("ab", "cd"));
    EXPECT_STREQ(c2.get(), "abcd");
    auto c3 = owned(concat("a", "", "c"));
    EXPECT_STREQ(c3.get(), "ac");
}

TEST(StringBuilders, TrailingBackslash) {
    const char* withSlash = "C:\\data\\";
    auto a = owned(withTrailingBackslash(withSlash));
    EXPECT_STREQ(a.get(), withSlash);
    EXPECT_NE(a.get(), withSlash); // a copy
    auto b = owned(withTrailingBackslash("C:\\data"));
    EXPECT_STREQ(b.get(), "C:\\data\\");
    auto c = owned(withTrailingBackslash(""));
    EXPECT_STREQ(c.get(), "\\");
}

TEST(StringBuilders, AppendWords) {
    char text[64] = "cmd";
    const char* words[] = {"a", "bc", ""};
    appendWords(text, words, 3);
    EXPECT_STREQ(text, "cmd a bc ");
    appendWords(text, words, 0);
    EXPECT_STREQ(text, "cmd a bc ");
}

// ---- copying between files -------------------------------------------------------------

TEST(Copying, ToStar) {
    TextFile in("abc\n*rest");
    TextFile out;
    EXPECT_TRUE(copyToStar(in.get(), out.get()));
    EXPECT_EQ(in.rest(), "*rest");
    EXPECT_EQ(out.contents(), "abc\n");
    TextFile in2("no star");
    TextFile out2;
    EXPECT_FALSE(copyToStar(in2.get(), out2.get()));
    EXPECT_EQ(out2.contents(), "no star");
}

TEST(Copying, Lines) {
    TextFile in("a\nb\nc");
    TextFile out;
    EXPECT_TRUE(copyLines(in.get(), out.get(), 2));
    EXPECT_EQ(in.rest(), "c");
    EXPECT_EQ(out.contents(), "a\nb\n");
    TextFile in2("a\nb");
    TextFile out2;
    EXPECT_FALSE(copyLines(in2.get(), out2.get(), 2));
    EXPECT_EQ(out2.contents(), "a\nb");
}

TEST(Copying, RestOfLineAndToEnd) {
    TextFile in("ab\ncd\nef");
    TextFile out;
    EXPECT_TRUE(copyRestOfLine(in.get(), out.get()));
    EXPECT_EQ(out.contents(), "ab");
    TextFile out2;
    copyToEnd(in.get(), out2.get());
    EXPECT_EQ(out2.contents(), "\ncd\nef");
    TextFile in3("xy");
    TextFile out3;
    EXPECT_FALSE(copyRestOfLine(in3.get(), out3.get()));
    EXPECT_EQ(out3.contents(), "xy");
}

TEST(Copying, SkipToStar) {
    TextFile f("ab\ncd*e");
    EXPECT_TRUE(skipToStar(f.get()));
    EXPECT_EQ(f.rest(), "*e");
    TextFile g("none");
    EXPECT_FALSE(skipToStar(g.get()));
}

TEST(Copying, ByteFFEndsTheInput) {
    TextFile in("ab\xFF"
                "cd");
    TextFile out;
    copyToEnd(in.get(), out.get());
    EXPECT_EQ(out.contents(), "ab");
}

// ---- lists and lookups -----------------------------------------------------------------

TEST(FirstDuplicate, FirstPairInRowOrder) {
    const std::int32_t a[] = {1, 2, 3, 2, 1};
    EXPECT_EQ(firstDuplicate(5, a), 1);
    const std::int32_t b[] = {5, 3, 4, 3};
    EXPECT_EQ(firstDuplicate(4, b), 2);
    const std::int32_t c[] = {1, 2, 3};
    EXPECT_EQ(firstDuplicate(3, c), 0);
    EXPECT_EQ(firstDuplicate(0, c), 0);
}

TEST(FindAfter, LongAndDouble) {
    std::int32_t l = -1;
    double x = -1;
    EXPECT_EQ(findAfter("n=42 x=1.5", "n=", &l), 0);
    EXPECT_EQ(l, 42);
    EXPECT_EQ(findAfter("n=42 x=1.5", "x=", &x), 0);
    EXPECT_EQ(x, 1.5);
    EXPECT_EQ(findAfter("n=42", "m=", &l), 1);
    EXPECT_EQ(l, 42);
    EXPECT_EQ(findAfter("n=42", "k", &x), 1);
    EXPECT_EQ(x, 1.5);
}
