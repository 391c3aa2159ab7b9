#include "meer/arrays.h"

#include "meer/obecne.h"
#include "meer/retezce.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <string>
#include <type_traits>
#include <vector>

namespace meerspace {
namespace {

constexpr const char* kSource = "arrays";

// Doubles are printed "% .*e" with a three-digit exponent ("1.500000e+000"), so that every
// field is exactly p + 8 characters long: the buffer printers lay their fields out by that
// width and the lengths of printLength* are computed from it. The C library here prints at
// least two exponent digits, so the exponent is widened to three when it has two.
std::string eField(int p, double x) {
    char text[512];
    std::snprintf(text, sizeof text, "% .*e", p, x);
    std::string s(text);
    std::size_t e = s.find('e');
    if (e != std::string::npos && e + 2 < s.size() && s.size() - (e + 2) == 2)
        s.insert(e + 2, 1, '0');
    return s;
}

// Copies text with its terminator to dst.
void put(char* dst, const std::string& text) {
    std::memcpy(dst, text.c_str(), text.size() + 1);
}

// Values strictly inside (-zeroLimit, zeroLimit) become 0. A zero limit of 0 keeps the stored
// values; a NaN limit snaps nothing (both comparisons are false).
std::vector<double> snapped(const double* values, std::int32_t n, double zeroLimit) {
    std::vector<double> copy(values, values + n);
    if (zeroLimit != 0.0) {
        for (double& x : copy)
            if (-zeroLimit < x && x < zeroLimit)
                x = 0.0;
    }
    return copy;
}

std::string doubleLine(int p, double a, double b, double c) {
    return eField(p, a) + " " + eField(p, b) + " " + eField(p, c);
}

std::string longLine(int p, long a, long b, long c) {
    char text[256];
    std::snprintf(text, sizeof text, "%*ld %*ld %*ld", p, a, p, b, p, c);
    return text;
}

// The three rows (c0 c5 c4), (c5 c1 c3), (c4 c3 c2) of a six-component tensor.
template <typename T> void tensorRows(const T* c, T rows[3][3]) {
    const int order[3][3] = {{0, 5, 4}, {5, 1, 3}, {4, 3, 2}};
    for (int i = 0; i < 3; ++i)
        for (int j = 0; j < 3; ++j)
            rows[i][j] = c[order[i][j]];
}

std::string doubleTensorText(const double* c, bool empty, int p) {
    double zeros[6] = {0.0, 0.0, 0.0, 0.0, 0.0, 0.0};
    double rows[3][3];
    tensorRows(empty ? zeros : c, rows);
    std::string text;
    for (auto& row : rows)
        text += doubleLine(p, row[0], row[1], row[2]) + "\n";
    return text;
}

std::string longTensorText(const std::int32_t* c, bool empty, int p) {
    std::string text;
    if (empty) {
        char line[256];
        std::snprintf(line, sizeof line, "%*d %*d %*d\n", p, 0, p, 0, p, 0);
        return std::string(line) + line + line;
    }
    std::int32_t rows[3][3];
    tensorRows(c, rows);
    for (auto& row : rows)
        text += longLine(p, row[0], row[1], row[2]) + "\n";
    return text;
}

// The allocation behind a possibly shifted data pointer.
template <typename T> T* baseOf(T* data, std::int32_t shifted) {
    return data == nullptr ? nullptr : data - shifted;
}

// Buffer bookkeeping shared by Dvctr and Lvctr (V is either; only the element type of its data
// pointer differs). The checks stay in the classes, so each reports its own source line.

// Every field taken over from other, nothing freed: assignment shares the buffer.
template <typename V> void takeFields(V& v, const V& other) {
    v.borrowed = other.borrowed;
    v.viewKind = other.viewKind;
    v.shifted = other.shifted;
    v.n = other.n;
    v.capacity = other.capacity;
    v.data = other.data;
}

// The empty state, without freeing anything.
template <typename V> void forget(V& v) {
    v.data = nullptr;
    v.n = v.capacity = v.shifted = 0;
    v.borrowed = v.viewKind = 0;
}

template <typename V> void* shiftBy(V& v, std::int32_t k) {
    if (v.data == nullptr)
        return &v;
    v.shifted += k;
    v.data += k;
    return v.data;
}

template <typename V> void reserveExactly(V& v, std::int32_t count) {
    if (count <= v.capacity)
        return;
    using T = std::remove_pointer_t<decltype(v.data)>;
    auto* fresh = new T[static_cast<std::size_t>(count)];
    if (v.n > 0)
        std::copy(v.data, v.data + v.n, fresh);
    // A borrowed buffer is never freed here; the vector owns what it allocated from now on.
    if (v.borrowed == 0)
        delete[] baseOf(v.data, v.shifted);
    v.data = fresh;
    v.capacity = count;
    v.shifted = 0;
    v.borrowed = v.viewKind = 0;
}

// A borrowed view of count elements of buffer; the view kind only records which attach made
// the view, nothing else reads it.
template <typename V, typename T>
void borrow(V& v, T* buffer, std::int32_t count, std::int8_t kind) {
    v.borrowed = 1;
    v.viewKind = kind;
    v.shifted = 0;
    v.n = count;
    v.capacity = 0;
    v.data = buffer;
}

template <typename V> void deepCopy(V& v, const V& other) {
    if (other.n > 0) {
        v.reserve(other.n);
        std::copy(other.data, other.data + other.n, v.data);
        v.n = other.n;
    }
}

// Squares in 32-bit arithmetic: a square beyond the 32-bit range wraps (modulo 2^32) before
// it is converted to double, as the engine's integer norm always has.
std::int32_t wrappedSquare(std::int32_t v) {
    auto u = static_cast<std::uint32_t>(v);
    return static_cast<std::int32_t>(u * u);
}

} // namespace

// ---- Dvctr -------------------------------------------------------------------------------

Dvctr::Dvctr(std::int32_t count) {
    resize(count);
    zero();
}

Dvctr::Dvctr(const Dvctr& other) : Xvctr() {
    deepCopy(*this, other);
}

Dvctr& Dvctr::operator=(const Dvctr& other) {
    // A plain field copy and nothing else: the buffer this vector held before is neither freed
    // nor touched, because another vector may still share it through an earlier assignment
    // (solve leaves x and b sharing b's buffer). Whoever drops a buffer this way frees it.
    takeFields(*this, other);
    return *this;
}

Dvctr::~Dvctr() {
    unshift();
    if (borrowed == 0)
        delete[] data;
}

int Dvctr::isReal() const {
    return 1;
}
int Dvctr::isInteger() const {
    return 0;
}

std::int32_t Dvctr::printLength(int p) const {
    return size() * (p + 9) + 1;
}
std::int32_t Dvctr::printLength3(int p) const {
    return (p + 9) * 3 + 1;
}
std::int32_t Dvctr::printLength9(int p) const {
    return (p + 9) * 9 + 1;
}

void Dvctr::printAll(char* buffer, int p, double zeroLimit) const {
    if (n == 0)
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    std::vector<double> v = snapped(data, n, zeroLimit);
    // The position advances by the nominal field width (p + 8, then p + 9 with the blank),
    // not by what was written, so the fields abut only because each is exactly that wide.
    char* position = buffer;
    put(position, eField(p, v[0]));
    position += p + 8;
    for (std::int32_t i = 1; i < n; ++i) {
        // The blank and the field are written separately: building " " + field as one string
        // draws a false -Wrestrict from GCC 12's inlined char_traits copy in optimised builds.
        *position = ' ';
        put(position + 1, eField(p, v[static_cast<std::size_t>(i)]));
        position += p + 9;
    }
}

void Dvctr::printPoint(char* buffer, int p, double zeroLimit, bool allowShort) const {
    if (!allowShort && n < 3)
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    double e[3];
    for (int i = 0; i < 3; ++i)
        e[i] = i < n ? data[i] : 0.0;
    std::vector<double> v = snapped(e, 3, zeroLimit);
    put(buffer, doubleLine(p, v[0], v[1], v[2]));
}

void Dvctr::printTensor(std::FILE* file, int p, double zeroLimit, bool allowEmpty) const {
    if (!(n == 6 || (allowEmpty && n == 0)))
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    std::vector<double> v = snapped(data, n, zeroLimit);
    std::fputs(doubleTensorText(v.data(), n == 0, p).c_str(), file);
}

void Dvctr::printTensor(char* buffer, int p, double zeroLimit, bool allowEmpty) const {
    if (!(n == 6 || (allowEmpty && n == 0)))
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    std::vector<double> v = snapped(data, n, zeroLimit);
    put(buffer, doubleTensorText(v.data(), n == 0, p));
}

void Dvctr::copyElement(std::int32_t i, const Array& other, std::int32_t j) {
    const auto* same = dynamic_cast<const Dvctr*>(&other);
    if (same == nullptr)
        ERROR(kSource, __LINE__, "%s", "");
    data[i] = same->data[j];
}

void* Dvctr::shift(std::int32_t k) {
    return shiftBy(*this, k);
}

bool Dvctr::scan(char** cursor) {
    bool result = scanDouble(cursor, &data[0]);
    // size - 1 further reads counted in unsigned arithmetic: a size of 0 is not guarded.
    const auto further = static_cast<std::uint32_t>(n - 1);
    for (std::uint32_t i = 0; i < further; ++i)
        result = scanDouble(cursor, &data[i + 1]);
    return result;
}

double Dvctr::norm() const {
    double s = 0.0;
    for (std::int32_t i = 0; i < size(); ++i)
        s += data[i] * data[i];
    return std::sqrt(s);
}

void Dvctr::release() {
    if (borrowed == 0)
        delete[] data;
    forget(*this);
}

void Dvctr::detach() {
    forget(*this);
}

void Dvctr::reserve(std::int32_t count) {
    reserveExactly(*this, count);
}

void Dvctr::resize(std::int32_t count) {
    if (borrowed != 0)
        ERROR(kSource, __LINE__, "exta");
    // Size is 0 during the reserve, so a vector that grows keeps none of its old values.
    n = 0;
    reserve(count);
    n = count;
}

void Dvctr::assign(const double* values, std::int32_t count) {
    resize(count);
    std::copy(values, values + count, data);
}

void Dvctr::copyFrom(const Dvctr& v) {
    // resize first even for a copy onto itself, so that its checks apply alike.
    resize(v.size());
    if (v.data != data)
        std::copy(v.data, v.data + v.size(), data);
}

void Dvctr::attach(double* buffer, std::int32_t count) {
    if (data != nullptr)
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    borrow(*this, buffer, count, 0);
}

void Dvctr::attachView(double* buffer, std::int32_t count) {
    if (data != nullptr)
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    borrow(*this, buffer, count, 1);
}

void Dvctr::unshift() {
    shift(-shifted);
}

void Dvctr::zero() {
    std::fill(data, data + n, 0.0);
}

void Dvctr::add(const Dvctr& v) {
    if (v.size() != n)
        ERROR(kSource, __LINE__, "size mismatch");
    for (std::int32_t i = 0; i < n; ++i)
        data[i] += v.data[i];
}

void Dvctr::subtract(const Dvctr& v) {
    if (v.size() != n)
        ERROR(kSource, __LINE__, "size mismatch");
    for (std::int32_t i = 0; i < n; ++i)
        data[i] -= v.data[i];
}

void Dvctr::addScaled(const Dvctr& v, double a) {
    if (v.size() != n)
        ERROR(kSource, __LINE__, "size mismatch");
    for (std::int32_t i = 0; i < n; ++i)
        data[i] += a * v.data[i];
}

void Dvctr::scale(double a) {
    for (std::int32_t i = 0; i < n; ++i)
        data[i] *= a;
}

void Dvctr::divide(double a) {
    for (std::int32_t i = 0; i < n; ++i)
        data[i] /= a;
}

double Dvctr::sum() const {
    double s = 0.0;
    for (std::int32_t i = 0; i < n; ++i)
        s += data[i];
    return s;
}

double Dvctr::dot(const Dvctr& v) const {
    double s = 0.0;
    for (std::int32_t i = 0; i < n; ++i)
        s += data[i] * v.data[i];
    return s;
}

void Dvctr::cross(const Dvctr& u, const Dvctr& v) {
    if (u.size() != 3 || v.size() != 3)
        ERROR(kSource, __LINE__, "size of vectors is not equal to 3");
    const double c0 = u[1] * v[2] - v[1] * u[2];
    const double c1 = u[2] * v[0] - v[2] * u[0];
    const double c2 = u[0] * v[1] - v[0] * u[1];
    resize(3);
    data[0] = c0;
    data[1] = c1;
    data[2] = c2;
}

void Dvctr::meanOfRows(const Dmtrx& m) {
    resize(m.cols);
    std::copy(m.data, m.data + m.cols, data);
    if (m.rows > 1) {
        for (std::int32_t i = 1; i < m.rows; ++i)
            for (std::int32_t j = 0; j < m.cols; ++j)
                data[j] += m.element(i, j);
        divide(m.rows);
    }
}

void Dvctr::toTensor6(const Dmtrx& m) {
    // Only a matrix with neither dimension 3 is refused.
    if (m.rows != 3 && m.cols != 3)
        ERROR(kSource, __LINE__, "size of mtrx != 3x3");
    const double c[6] = {m.element(0, 0), m.element(1, 1), m.element(2, 2),
                         m.element(1, 2), m.element(0, 2), m.element(0, 1)};
    resize(6);
    std::copy(c, c + 6, data);
}

void Dvctr::rotateTensor(const Dmtrx& r) {
    if (size() != 6)
        ERROR(kSource, __LINE__, "size of vectors is not equal to 6");
    const double* s = data;
    // Shear term (k, l) of the six-component order: (0,1) -> 5, (0,2) -> 4, (1,2) -> 3.
    const int pairs[3][3] = {{0, 1, 5}, {0, 2, 4}, {1, 2, 3}};
    const int targets[6][2] = {{0, 0}, {1, 1}, {2, 2}, {1, 2}, {0, 2}, {0, 1}};
    double fresh[6];
    for (int t = 0; t < 6; ++t) {
        const int i = targets[t][0];
        const int j = targets[t][1];
        double v = 0.0;
        for (int k = 0; k < 3; ++k)
            v += r.element(i, k) * r.element(j, k) * s[k];
        for (const auto& pr : pairs) {
            const int k = pr[0];
            const int l = pr[1];
            v += (r.element(i, k) * r.element(j, l) + r.element(i, l) * r.element(j, k)) * s[pr[2]];
        }
        fresh[t] = v;
    }
    std::copy(fresh, fresh + 6, data);
}

void Dvctr::rotateTensorZ(double angle) {
    if (size() != 6)
        ERROR(kSource, __LINE__, "size of vectors is not equal to 6");
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double* o = data;
    const double fresh[6] = {c * c * o[0] + s * s * o[1] - 2.0 * c * s * o[5],
                             s * s * o[0] + c * c * o[1] + 2.0 * s * c * o[5],
                             o[2],
                             c * o[3] + s * o[4],
                             -s * o[3] + c * o[4],
                             c * s * o[0] - s * c * o[1] + (c * c - s * s) * o[5]};
    std::copy(fresh, fresh + 6, data);
}

void Dvctr::normalize() {
    divide(norm());
}

// ---- Lvctr -------------------------------------------------------------------------------

Lvctr::Lvctr(std::int32_t count) {
    resize(count);
    zero();
}

Lvctr::Lvctr(const Lvctr& other) : Xvctr() {
    deepCopy(*this, other);
}

Lvctr& Lvctr::operator=(const Lvctr& other) {
    // A plain field copy, as for Dvctr: the previous buffer is left alone.
    takeFields(*this, other);
    return *this;
}

Lvctr::~Lvctr() {
    unshift();
    if (borrowed == 0)
        delete[] data;
}

int Lvctr::isReal() const {
    return 0;
}
int Lvctr::isInteger() const {
    return 1;
}

std::int32_t Lvctr::printLength(int) const {
    return size() * 26;
}
std::int32_t Lvctr::printLength3(int) const {
    return 78;
}
std::int32_t Lvctr::printLength9(int) const {
    return 234;
}

void Lvctr::printAll(char* buffer, int p, double) const {
    if (n == 0)
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    // The first number is not padded but the position still advances by p, so when it is
    // shorter than p its terminator stays inside the text; the further fields are " %*ld".
    char field[64];
    char* position = buffer;
    std::snprintf(field, sizeof field, "%ld", static_cast<long>(data[0]));
    put(position, field);
    position += p;
    for (std::int32_t i = 1; i < n; ++i) {
        std::snprintf(field, sizeof field, " %*ld", p, static_cast<long>(data[i]));
        put(position, field);
        position += p + 1;
    }
}

void Lvctr::printPoint(char* buffer, int p, double, bool allowShort) const {
    if (!allowShort && n < 3)
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    long e[3];
    for (int i = 0; i < 3; ++i)
        e[i] = i < n ? data[i] : 0;
    put(buffer, longLine(p, e[0], e[1], e[2]));
}

void Lvctr::printTensor(std::FILE* file, int p, double, bool allowEmpty) const {
    if (!(n == 6 || (allowEmpty && n == 0)))
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    std::fputs(longTensorText(data, n == 0, p).c_str(), file);
}

void Lvctr::printTensor(char* buffer, int p, double, bool allowEmpty) const {
    if (!(n == 6 || (allowEmpty && n == 0)))
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    put(buffer, longTensorText(data, n == 0, p));
}

void Lvctr::copyElement(std::int32_t i, const Array& other, std::int32_t j) {
    const auto* same = dynamic_cast<const Lvctr*>(&other);
    if (same == nullptr)
        ERROR(kSource, __LINE__, "%s", "");
    data[i] = same->data[j];
}

void* Lvctr::shift(std::int32_t k) {
    return shiftBy(*this, k);
}

bool Lvctr::scan(char** cursor) {
    bool result = scanLong(cursor, &data[0]);
    const auto further = static_cast<std::uint32_t>(n - 1);
    for (std::uint32_t i = 0; i < further; ++i)
        result = scanLong(cursor, &data[i + 1]);
    return result;
}

double Lvctr::norm() const {
    double s = 0.0;
    for (std::int32_t i = 0; i < size(); ++i)
        s += static_cast<double>(wrappedSquare(data[i]));
    return std::sqrt(s);
}

void Lvctr::release() {
    if (borrowed == 0)
        delete[] data;
    forget(*this);
}

void Lvctr::detach() {
    forget(*this);
}

void Lvctr::reserve(std::int32_t count) {
    reserveExactly(*this, count);
}

void Lvctr::grow(std::int32_t count) {
    n = 0;
    reserve(count);
    n = count;
}

void Lvctr::extend(std::int32_t count) {
    reserve(count);
    n = count;
}

void Lvctr::assign(const std::int32_t* values, std::int32_t count) {
    resize(count);
    std::copy(values, values + count, data);
}

void Lvctr::copyFrom(const Lvctr& v) {
    // resize first even for a copy onto itself, so that its checks apply alike.
    resize(v.size());
    if (v.data != data)
        std::copy(v.data, v.data + v.size(), data);
}

void Lvctr::attach(std::int32_t* buffer, std::int32_t count) {
    if (data != nullptr)
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    borrow(*this, buffer, count, 0);
}

void Lvctr::attachView(std::int32_t* buffer, std::int32_t count) {
    if (data != nullptr)
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    borrow(*this, buffer, count, 1);
}

void Lvctr::unshift() {
    shift(-shifted);
}

void Lvctr::zero() {
    std::fill(data, data + n, 0);
}

std::int32_t Lvctr::sum() const {
    std::uint32_t s = 0;
    for (std::int32_t i = 0; i < n; ++i)
        s += static_cast<std::uint32_t>(data[i]);
    return static_cast<std::int32_t>(s);
}

std::int32_t Lvctr::countNonZero() const {
    std::int32_t c = 0;
    for (std::int32_t i = 0; i < n; ++i)
        if (data[i] != 0)
            ++c;
    return c;
}

std::int32_t Lvctr::countZero() const {
    return n - countNonZero();
}

// ---- Dmtrx -------------------------------------------------------------------------------

Dmtrx::Dmtrx(std::int32_t r, std::int32_t c) {
    resize(r, c);
    zero();
}

Dmtrx::Dmtrx(const Dmtrx& other) : Xmtrx() {
    resize(other.rows, other.cols);
    assignFrom(other);
}

Dmtrx& Dmtrx::operator=(const Dmtrx& other) {
    if (this != &other) {
        resize(other.rows, other.cols);
        assignFrom(other);
    }
    return *this;
}

Dmtrx::~Dmtrx() {
    delete[] data;
}

int Dmtrx::isReal() const {
    return 1;
}

void Dmtrx::resize(std::int32_t r, std::int32_t c) {
    if (r == rows && c == cols)
        return;
    rows = r;
    cols = c;
    if (capacity < r * c) {
        delete[] data;
        capacity = r * c;
        data = new double[static_cast<std::size_t>(capacity)];
    }
}

void Dmtrx::zero() {
    std::fill(data, data + rows * cols, 0.0);
}

void Dmtrx::assign(const double* values) {
    std::copy(values, values + rows * cols, data);
}

void Dmtrx::assignFrom(const Dmtrx& m) {
    if (&m != this)
        std::copy(m.data, m.data + rows * cols, data);
}

void Dmtrx::multiply(const Dmtrx& a, const Dmtrx& b) {
    if (a.cols != b.rows)
        ERROR(kSource, __LINE__, "size mismatch");
    resize(a.rows, b.cols);
    zero();
    for (std::int32_t i = 0; i < rows; ++i)
        for (std::int32_t j = 0; j < cols; ++j)
            for (std::int32_t k = 0; k < a.cols; ++k)
                element(i, j) += a.element(i, k) * b.element(k, j);
}

void Dmtrx::preMultiply(const Dmtrx& b) {
    Dmtrx product;
    product.multiply(b, *this);
    assignFrom(product);
}

void Dmtrx::postMultiply(const Dmtrx& b) {
    Dmtrx product;
    product.multiply(*this, b);
    assignFrom(product);
}

void Dmtrx::transpose(const Dmtrx& m) {
    resize(m.cols, m.rows);
    // The source's row stride is taken as this->cols (= m.rows): right for square matrices,
    // and kept as it is for the others.
    for (std::int32_t i = 0; i < rows; ++i)
        for (std::int32_t j = 0; j < cols; ++j)
            element(i, j) = m.data[j * cols + i];
}

void Dmtrx::fromTensor6(const Dvctr& v) {
    if (v.size() != 6)
        ERROR(kSource, __LINE__, "size of vectors is not equal to 6");
    resize(3, 3);
    element(0, 0) = v[0];
    element(1, 1) = v[1];
    element(2, 2) = v[2];
    element(1, 2) = element(2, 1) = v[3];
    element(0, 2) = element(2, 0) = v[4];
    element(0, 1) = element(1, 0) = v[5];
}

double Dmtrx::determinant() const {
    if (rows == 2 && cols == 2)
        return element(0, 0) * element(1, 1) - element(0, 1) * element(1, 0);
    if (rows == 3 && cols == 3) {
        const Dmtrx& a = *this;
        return a(0, 0) * a(1, 1) * a(2, 2) + a(1, 0) * a(2, 1) * a(0, 2) +
               a(2, 0) * a(0, 1) * a(1, 2) - a(2, 0) * a(1, 1) * a(0, 2) -
               a(2, 1) * a(1, 2) * a(0, 0) - a(2, 2) * a(1, 0) * a(0, 1);
    }
    ERROR(kSource, __LINE__, "cannot compute determinant of matrix %ld x %ld",
          static_cast<long>(rows), static_cast<long>(cols));
}

namespace {

// Gaussian elimination with partial pivoting of a (square, n = rows) on the k right-hand
// sides already in x, then back substitution. The pivot threshold is absolute.
bool eliminate(Dmtrx& a, Dvctr* x, std::int32_t k) {
    const std::int32_t n = a.rows;
    for (std::int32_t c = 0; c + 1 < n; ++c) {
        // Ties keep the upper row: a later row replaces the candidate only when larger.
        std::int32_t p = c;
        for (std::int32_t row = c + 1; row < n; ++row)
            if (std::fabs(a(row, c)) > std::fabs(a(p, c)))
                p = row;
        if (std::fabs(a(p, c)) < kPivotThreshold)
            return false;
        if (p != c) {
            for (std::int32_t j = c; j < n; ++j)
                std::swap(a(c, j), a(p, j));
            for (std::int32_t r = 0; r < k; ++r)
                std::swap(x[r][c], x[r][p]);
        }
        for (std::int32_t i = c + 1; i < n; ++i) {
            const double f = a(i, c) / a(c, c);
            for (std::int32_t j = c; j < n; ++j)
                a(i, j) -= a(c, j) * f;
            for (std::int32_t r = 0; r < k; ++r)
                x[r][i] -= x[r][c] * f;
        }
    }
    if (std::fabs(a(n - 1, n - 1)) < kPivotThreshold)
        return false;
    for (std::int32_t i = n - 1; i >= 0; --i) {
        for (std::int32_t r = 0; r < k; ++r) {
            double s = 0.0;
            for (std::int32_t j = i + 1; j < n; ++j)
                s += a(i, j) * x[r][j];
            x[r][i] = (x[r][i] - s) / a(i, i);
        }
    }
    return true;
}

} // namespace

bool Dmtrx::solve(Dvctr& x, Dvctr& b) {
    // Shallow: the elimination runs in b's storage, which then holds the solution.
    x = b;
    return eliminate(*this, &x, 1);
}

bool Dmtrx::solveMany(Dvctr* x, const Dvctr* b, std::int32_t k) {
    for (std::int32_t r = 0; r < k; ++r)
        x[r].copyFrom(b[r]);
    return eliminate(*this, x, k);
}

void Dmtrx::print3x3(std::FILE* file, int p, double zeroLimit, bool allowEmpty) const {
    const bool empty = rows == 0 && cols == 0;
    if (!((rows == 3 && cols == 3) || (allowEmpty && empty)))
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    std::vector<double> v(9, 0.0);
    if (!empty)
        v = snapped(data, 9, zeroLimit);
    std::string text;
    for (int i = 0; i < 3; ++i)
        text += doubleLine(p, v[static_cast<std::size_t>(3 * i)],
                           v[static_cast<std::size_t>(3 * i + 1)],
                           v[static_cast<std::size_t>(3 * i + 2)]) +
                "\n";
    std::fputs(text.c_str(), file);
}

// ---- Points and directions ---------------------------------------------------------------

void Elem3D::setProduct(const Dmtrx& m, const Elem3D& q) {
    const double qx = q.x;
    const double qy = q.y;
    const double qz = q.z;
    x = m(0, 0) * qx + m(0, 1) * qy + m(0, 2) * qz;
    y = m(1, 0) * qx + m(1, 1) * qy + m(1, 2) * qz;
    z = m(2, 0) * qx + m(2, 1) * qy + m(2, 2) * qz;
}

void Rotation3::rotateComponents(Dvctr& v) const {
    const std::int32_t n = v.size();
    if (n != 3 && n != 6)
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    for (std::int32_t start = 0; start < n; start += 3) {
        const double a = v[start];
        const double b = v[start + 1];
        const double c = v[start + 2];
        v[start] = r[0] * a + r[1] * b + r[2] * c;
        v[start + 1] = r[3] * a + r[4] * b + r[5] * c;
        v[start + 2] = r[6] * a + r[7] * b + r[8] * c;
    }
}

} // namespace meerspace
