#pragma once
// Character-level readers for line-oriented text input, keyword expectations and string
// builders of the engine's library.
//
// Two families of readers:
// - stream readers work on an open C file and look ahead one character at a time, putting
//   back exactly the one character that belongs to what follows (so a failed matchWord
//   leaves the matched prefix consumed);
// - cursor readers work on a position inside a character string (char**), which they
//   advance past what they consume.
// A comment starts with '#' and runs to the end of the line; the byte 0xFF read as a
// character counts as end of file; a blank is a space or a tab.
//
// Destination buffers of readLine, readWord and the cursor copies are the caller's: none of
// these routines knows or checks their size, so size them for the longest line the input
// may hold (kLineBufferSize is what the library itself uses).
#include <cstdint>
#include <cstdio>

namespace meerspace {

class Dvctr;

// Size of the local line buffer of readLineAlloc(FILE*, ...), and a sensible size for
// callers' buffers.
inline constexpr int kLineBufferSize = 10000;

// Character classes.
bool isTokenChar(int c); // not space, tab, '\n', '\r', '\0', 0xFF, EOF
bool isLineChar(int c);  // not '\n', '\r', '\0', 0xFF, EOF
bool isBlank(int c);     // space or tab
bool isDigit(int c);     // '0' .. '9'

// ---- Stream readers ----------------------------------------------------------------------

// Reads up to the first token character and puts it back; false at end of file.
bool skipWhitespace(std::FILE* f);
// Reads up to the first non-blank and puts it back; false at end of file.
bool skipBlanks(std::FILE* f);
// Skips whitespace and comment lines; true when a token follows.
bool skipToToken(std::FILE* f);
// While the next character is '#', skips that line.
void skipCommentLines(std::FILE* f);
// Consumes n lines, each through its '\n'; false when end of file comes first.
bool skipLines(std::FILE* f, int n);
// Consumes lines until n lines that are not comments have passed (empty lines count).
void skipDataLines(std::FILE* f, int n);
// Compares the input with word character by character; on a difference puts back only the
// differing character. caseSensitive false compares through tolower().
bool matchWord(std::FILE* f, const char* word, bool caseSensitive);
// matchWord here, else on the next lines; false at end of file.
bool findWord(std::FILE* f, const char* word, bool caseSensitive);
// findWord, then consumes the rest of that line; result of the line skip.
bool findWordSkipLine(std::FILE* f, const char* word, bool caseSensitive);
// Consumes lines until one starting with ch, and puts ch back; false at end of file.
bool findLineStartingWith(std::FILE* f, char ch);
// n formatted reads ("%d", "%ld", "%lf"); false at the first failed read.
bool readInts(std::FILE* f, int n, int* dst);
bool readLongs(std::FILE* f, int n, std::int32_t* dst);
bool readDoubles(std::FILE* f, int n, double* dst);
// Whitespace-separated tokens to end of file.
std::int32_t countTokens(std::FILE* f);
// '\n' characters to end of file; with restore the position is set back afterwards.
std::int32_t countLines(std::FILE* f, bool restore);
// Copies line characters into dst, consumes the line end ("\r\n" as one), terminates dst.
// Returns the length, or -1 at end of file with nothing read.
int readLine(std::FILE* f, char* dst);
// Skips blanks, comment lines and empty lines, then readLine.
int readDataLine(std::FILE* f, char* dst);
// Skips whitespace and copies one token; 0 at end of file.
int readWord(std::FILE* f, char* dst);
// *dst must be null ("allocated" otherwise); reads one line and allocates a copy for *dst
// (new[]; the caller frees it with delete[]).
int readLineAlloc(std::FILE* f, char** dst);
// Skips whitespace, matchWord, then skips the rest of the token.
bool expectWord(std::FILE* f, const char* word, bool caseSensitive);
// Skips blanks, matchWord, skips blanks; the line must end there (optional '\r').
bool expectWordAtLineEnd(std::FILE* f, const char* word, bool caseSensitive);

// ---- Cursor readers ----------------------------------------------------------------------

// Cuts s at the first '#' and removes the spaces before it; false when there is none.
bool cutComment(char* s);
// Advances over blanks; true.
bool skipBlanks(char** cursor);
// n times: skip blanks, then token characters; false when the line or string ends first.
bool skipTokens(char** cursor, int n);
// Skips blanks, then an optional sign or digit and the digits after it; false at a line end.
bool skipNumber(char** cursor);
// Skips blanks and takes one character; false at '\n', '\r' or the end of the string.
bool readChar(char** cursor, char* ch);
// Skips blanks and copies one token into dst; returns its length.
int readWord(char** cursor, char* dst);
// Copies line characters (blanks included) into dst ("destination is not allocated" when
// dst is null); returns the length.
int readLine(char** cursor, char* dst);
// *dst must be null ("allocated" otherwise); skips blanks and allocates a copy of the rest
// of the line for *dst (new[]).
int readLineAlloc(char** cursor, char** dst);
// Read "%d" / "%ld" at the cursor, then skipNumber; return the skipNumber result.
bool scanInt(char** cursor, int* i);
bool scanLong(char** cursor, std::int32_t* l);
// Reads "%lf" at the cursor, then skips one token; returns the skipTokens result.
bool scanDouble(char** cursor, double* x);
// Moves back over blanks and over word, which must be the text there ("unscan error").
void unscan(char** cursor, const char* word);
// A count, then n doubles. A count other than n warns and returns false.
bool scanCountedDoubles(char** cursor, int n, double* values);
// A count, then n doubles into v (resized to n). A count other than n is fatal.
bool scanCountedVector(char** cursor, int n, Dvctr& v);

// ---- Keyword expectations (fatal at the caller's sourceFile and line) ----------------------

void expectWordOrDie(const char* sourceFile, int line, std::FILE* f, const char* word,
                     const char* context, bool caseSensitive);
void expectWordAtLineEndOrDie(const char* sourceFile, int line, std::FILE* f, const char* word,
                              const char* context, bool caseSensitive);
// The cursor forms skip blanks and then advance only over a word that matched whole: unlike a
// stream, which can put back one character only, a cursor needs to give nothing back, so the
// next word is tried from the same place and a failure reports the text where the word was
// expected.
void expectCursorWord(const char* sourceFile, int line, char** cursor, const char* word,
                      const char* context, bool caseSensitive);
// Tries word2, then word1; returns the number (1 or 2) of the word that matched.
int expectCursorWord2(const char* sourceFile, int line, char** cursor, const char* word1,
                      const char* word2, const char* context, bool caseSensitive);
// Tries word3, word2, word1; returns the number (1, 2 or 3) of the word that matched.
int expectCursorWord3(const char* sourceFile, int line, char** cursor, const char* word1,
                      const char* word2, const char* word3, const char* context,
                      bool caseSensitive);
[[noreturn]] void reportExpectedInt(const char* sourceFile, int line, const char* context,
                                    int expected, const char* found);
[[noreturn]] void reportExpectedLong(const char* sourceFile, int line, const char* context,
                                     std::int32_t expected, const char* found);

// ---- String builders (results are new[] arrays the caller frees with delete[]) ------------

char* duplicate(const char* s); // null for null
char* concat(const char* a, const char* b);
char* concat(const char* a, const char* b, const char* c);
// A copy of path ending in exactly one more backslash unless it already ends in one.
char* withTrailingBackslash(const char* path);
// Appends " <word>" for each of n words to the text in dst (in place; dst must have room).
void appendWords(char* dst, const char* const* words, int n);

// ---- Copying between open files ------------------------------------------------------------

// Copies up to the next '*', which is put back; false when end of file came first.
bool copyToStar(std::FILE* from, std::FILE* to);
// Copies n whole lines; false when end of file came first.
bool copyLines(std::FILE* from, std::FILE* to, int n);
// Copies the rest of the line; the '\n' is put back. False at end of file.
bool copyRestOfLine(std::FILE* from, std::FILE* to);
// Copies everything to end of file.
void copyToEnd(std::FILE* from, std::FILE* to);
// Reads up to the next '*' and puts it back; false at end of file.
bool skipToStar(std::FILE* f);

// 1 + index of the first of two equal values (pairs in row order), 0 when all differ.
int firstDuplicate(int n, const std::int32_t* values);
// Finds key in text and reads "%ld" / "%lf" right behind it: 0 when found, 1 when absent.
int findAfter(const char* text, const char* key, std::int32_t* l);
int findAfter(const char* text, const char* key, double* x);

} // namespace meerspace
