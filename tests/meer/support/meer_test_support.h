#pragma once
// Helpers for the tests of the engine's support library: capturing the fatal and warning
// reports from standard error, checking where a report points to, mixed-tolerance
// comparison, and temporary text files.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <sstream>
#include <string>

namespace meertest {

// One report as it appears on standard error:
// "\n\n <head>:  <message> (<source>:<line>).  !!!\n\n".
struct Report {
    bool wellFormed = false;
    std::string head;
    std::string message;
    std::string source;
    int line = 0;
};

inline Report parseReport(const std::string& text) {
    Report r;
    const std::string tail = ").  !!!\n\n";
    if (text.size() < 4 + tail.size() || text.compare(0, 3, "\n\n ") != 0 ||
        text.compare(text.size() - tail.size(), tail.size(), tail) != 0)
        return r;
    const std::size_t colonHead = text.find(":  ", 3);
    const std::size_t open = text.rfind(" (");
    if (colonHead == std::string::npos || open == std::string::npos || open < colonHead)
        return r;
    const std::size_t colonLine = text.rfind(':', text.size() - tail.size());
    if (colonLine == std::string::npos || colonLine < open)
        return r;
    r.head = text.substr(3, colonHead - 3);
    r.message = text.substr(colonHead + 3, open - colonHead - 3);
    r.source = text.substr(open + 2, colonLine - open - 2);
    const std::string digits =
        text.substr(colonLine + 1, text.size() - tail.size() - colonLine - 1);
    if (digits.empty() || digits.find_first_not_of("0123456789") != std::string::npos)
        return r;
    r.line = std::stoi(digits);
    r.wellFormed = true;
    return r;
}

// What a call that is expected to end in the fatal routine left behind.
struct Fatal {
    bool threw = false; // an int was thrown
    int value = 0;      // the int
    std::string stderrText;
    Report report;
};

inline Fatal runFatal(const std::function<void()>& call) {
    Fatal f;
    testing::internal::CaptureStderr();
    try {
        call();
    } catch (int v) {
        f.threw = true;
        f.value = v;
    }
    f.stderrText = testing::internal::GetCapturedStderr();
    f.report = parseReport(f.stderrText);
    return f;
}

// Line `line` (1-based) of a file of the source tree.
inline std::string sourceLine(const std::string& relativePath, int line) {
    const char* root = std::getenv("SLABADAPT_SOURCE_DIR");
    std::ifstream in(std::string(root ? root : ".") + "/" + relativePath);
    std::string text;
    for (int i = 0; i < line && std::getline(in, text); ++i) {
    }
    return text;
}

// The call ended in ERROR with exactly this message, reported from sourceName, and the line
// number points at a line of meer/<sourceName>.cpp that raises this report (it contains
// `marker`, a piece of the call's text).
inline void expectFatalAt(const std::function<void()>& call, const std::string& message,
                          const std::string& sourceName, const std::string& marker) {
    Fatal f = runFatal(call);
    ASSERT_TRUE(f.threw) << "no int was thrown";
    EXPECT_EQ(f.value, 201);
    ASSERT_TRUE(f.report.wellFormed) << "stderr: [" << f.stderrText << "]";
    EXPECT_EQ(f.report.head, "ERROR");
    EXPECT_EQ(f.report.message, message);
    EXPECT_EQ(f.report.source, sourceName);
    const std::string line = sourceLine("meer/" + sourceName + ".cpp", f.report.line);
    EXPECT_NE(line.find("ERROR("), std::string::npos) << "line " << f.report.line << ": " << line;
    EXPECT_NE(line.find(marker), std::string::npos) << "line " << f.report.line << ": " << line;
}

// The general internal-error message of the library.
inline const std::string kGeneral =
    "za ktery muze autor teto sqele utility, bezte ho vytahat za usi";

// |a - b| <= absTol + relTol * max(|a|, |b|), symmetric in a and b.
inline testing::AssertionResult near(double a, double b, double absTol = 1e-12,
                                     double relTol = 1e-12) {
    const double diff = std::fabs(a - b);
    const double bound = absTol + relTol * std::fmax(std::fabs(a), std::fabs(b));
    if (diff <= bound)
        return testing::AssertionSuccess();
    std::ostringstream s;
    s.precision(17);
    s << a << " vs " << b << " differ by " << diff << " > " << bound;
    return testing::AssertionFailure() << s.str();
}

// A temporary file holding text, open for reading and writing at its start.
class TextFile {
public:
    explicit TextFile(const std::string& text = "") : m_file(std::tmpfile()) {
        if (m_file != nullptr) {
            std::fwrite(text.data(), 1, text.size(), m_file);
            std::rewind(m_file);
        }
    }
    TextFile(const TextFile&) = delete;
    TextFile& operator=(const TextFile&) = delete;
    ~TextFile() {
        if (m_file != nullptr)
            std::fclose(m_file);
    }
    std::FILE* get() const { return m_file; }
    // Everything in the file, from its start; the position is left at the end.
    std::string contents() const {
        std::fflush(m_file);
        std::rewind(m_file);
        std::string text;
        for (int c = std::fgetc(m_file); c != EOF; c = std::fgetc(m_file))
            text.push_back(static_cast<char>(c));
        return text;
    }
    // What is left to read from the current position (consumes it).
    std::string rest() const {
        std::string text;
        for (int c = std::fgetc(m_file); c != EOF; c = std::fgetc(m_file))
            text.push_back(static_cast<char>(c));
        return text;
    }

private:
    std::FILE* m_file;
};

} // namespace meertest
