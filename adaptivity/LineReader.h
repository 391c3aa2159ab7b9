#pragma once
// Line-by-line reading of the text files the module reads (STRINTG files), shared by the
// module's reader and the project check so that both split a file into the same lines.
#include <algorithm>
#include <cstddef>
#include <cstdio>
#include <cstring>
#include <string_view>
#include <vector>

// Reads a text file line by line as the framework's text-mode reader does: "\n" ends a line,
// one "\r" in front of it (or at the end of the last line) is dropped, and the last line needs
// no line end. Lines are handed out as the file's bytes, without copying or decoding.
class CLineReader {
public:
    // Reads at most `limit` bytes from the file's present position.
    explicit CLineReader(std::FILE* file, std::size_t limit = static_cast<std::size_t>(-1))
        : m_file(file), m_buffer(c_nChunk), m_left(limit) {}

    // Bytes of the lines handed out so far, their line ends included: where the next line
    // starts, counted from where the reader began.
    std::size_t Consumed() const { return m_consumed; }

    // True when reading stopped on an error rather than at the end of the file.
    bool Failed() const { return m_failed; }

    bool Next(std::string_view& line) {
        for (;;) {
            const char* begin = m_buffer.data() + m_begin;
            const std::size_t available = m_end - m_begin;
            if (const void* nl = std::memchr(begin, '\n', available)) {
                const auto length = static_cast<std::size_t>(static_cast<const char*>(nl) - begin);
                line = Strip(std::string_view(begin, length));
                m_begin += length + 1;
                m_consumed += length + 1;
                return true;
            }
            if (m_eof) {
                if (available == 0)
                    return false;
                line = Strip(std::string_view(begin, available));
                m_begin = m_end;
                m_consumed += available;
                return true;
            }
            Refill();
        }
    }

private:
    static constexpr std::size_t c_nChunk = std::size_t{1} << 22;

    static std::string_view Strip(std::string_view line) {
        if (!line.empty() && line.back() == '\r')
            line.remove_suffix(1);
        return line;
    }

    void Refill() {
        // Keep the unfinished line; grow the buffer only for a line longer than it.
        const std::size_t kept = m_end - m_begin;
        if (m_begin > 0 && kept > 0)
            std::memmove(m_buffer.data(), m_buffer.data() + m_begin, kept);
        m_begin = 0;
        m_end = kept;
        if (m_end == m_buffer.size())
            m_buffer.resize(m_buffer.size() * 2);
        const std::size_t want = std::min(m_buffer.size() - m_end, m_left);
        const std::size_t got =
            want == 0 ? 0 : std::fread(m_buffer.data() + m_end, 1, want, m_file);
        m_end += got;
        m_left -= got;
        if (got == 0) {
            m_eof = true;
            m_failed = want != 0 && std::ferror(m_file) != 0;
        }
    }

    std::FILE* m_file;
    std::vector<char> m_buffer;
    std::size_t m_begin = 0;
    std::size_t m_end = 0;
    std::size_t m_left; // bytes the reader may still take from the file
    std::size_t m_consumed = 0;
    bool m_eof = false;
    bool m_failed = false;
};
