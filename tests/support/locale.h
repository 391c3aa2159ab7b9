#pragma once
// The process's locale for a test, and a locale whose decimal separator is a comma.
#include <clocale>
#include <string>
#include <string_view>

namespace slabadapt::test {

// Sets the whole process locale for a test and puts the previous one back.
class ScopedLocale {
public:
    explicit ScopedLocale(const char* name) {
        const char* current = std::setlocale(LC_ALL, nullptr);
        m_saved = current != nullptr ? current : "C";
        m_ok = std::setlocale(LC_ALL, name) != nullptr;
    }
    ~ScopedLocale() { std::setlocale(LC_ALL, m_saved.c_str()); }
    ScopedLocale(const ScopedLocale&) = delete;
    ScopedLocale& operator=(const ScopedLocale&) = delete;
    bool Ok() const { return m_ok; }

private:
    std::string m_saved;
    bool m_ok = false;
};

// A locale whose decimal separator is a comma; scripts/install-deps.sh generates de_DE.UTF-8.
inline const char* CommaLocaleName() {
    for (const char* name : {"de_DE.UTF-8", "de_DE.utf8", "de_DE"}) {
        ScopedLocale probe(name);
        if (probe.Ok() && std::string_view(std::localeconv()->decimal_point) == ",")
            return name;
    }
    return nullptr;
}

} // namespace slabadapt::test
