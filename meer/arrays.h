#pragma once
// The engine's own arrays: bounds-checked vectors of doubles (Dvctr) and of 32-bit integers
// (Lvctr), the row-major matrix of doubles (Dmtrx) with the small dense algebra the engine
// needs, and the 3-D point and direction types (PoinT, VectoR) with their geometric helpers.
//
// Conventions worth knowing before use:
// - Element access is a plain index with no check.
// - Copy-assignment of a vector is SHALLOW: both objects share one buffer and both believe
//   they own it. Deep copies are explicit (copyFrom). Whoever keeps a shallow copy must make
//   sure only one of the two frees the buffer (detach() forgets it without freeing).
// - resize() keeps old values only while the capacity suffices; nothing is zero-filled.
// - Every failed check ends in ERROR (meer/obecne.h), which throws the int 201 before the
//   object is changed.
// - Six-component symmetric tensors are held as (xx, yy, zz, yz, xz, xy), shear components
//   not doubled.
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>

namespace meerspace {

class Dvctr;
class Dmtrx;

// Root of vectors and matrices; no data.
class Array {
public:
    Array() = default;
    Array(const Array&) = default;
    Array& operator=(const Array&) = default;
    virtual ~Array() = default;     // slot 0
    virtual int isReal() const = 0; // slot 1: 1 for arrays of doubles, 0 otherwise
};

// One-dimensional array; no data.
class Array1d : public Array {
public:
    virtual std::int32_t size() const = 0; // slot 2
    // Characters a caller allocates for printAll with this p.
    virtual std::int32_t printLength(int p) const = 0; // slot 3
    // All elements into buffer (p: digits after the point for doubles, field width for
    // integers; values strictly inside (-zeroLimit, zeroLimit) print as 0 for doubles).
    virtual void printAll(char* buffer, int p, double zeroLimit) const = 0; // slot 4
};

// Bookkeeping shared by the vectors of both element types.
class Xvctr : public Array1d {
public:
    std::int8_t borrowed = 0;  // 1: the buffer belongs to somebody else (never freed here)
    std::int8_t viewKind = 0;  // 0 set by attach, 1 by attachView (informational only)
    std::int32_t shifted = 0;  // elements the data pointer was moved by shift()
    std::int32_t n = 0;        // elements in use
    std::int32_t capacity = 0; // elements allocated; 0 for a borrowed buffer

    std::int32_t size() const override { return n; } // slot 2, the only one defined here

    virtual int isInteger() const = 0; // slot 5
    // this[i] = other[j]; other must be of this vector's own concrete type.
    virtual void copyElement(std::int32_t i, const Array& other, std::int32_t j) = 0; // 6
    // Moves the view k elements; returns the new data pointer, or this object when empty.
    virtual void* shift(std::int32_t k) = 0; // slot 7
    // Reads size() elements from a text cursor (size must be set and at least 1).
    virtual bool scan(char** cursor) = 0;               // slot 8
    virtual double norm() const = 0;                    // slot 9
    virtual std::int32_t printLength3(int p) const = 0; // slot 10
    virtual std::int32_t printLength9(int p) const = 0; // slot 11
    // Elements 0-2 as one line (missing elements print as 0).
    virtual void printPoint(char* buffer, int p, double zeroLimit, bool allowShort) const = 0;
    // A six-component tensor as a 3 x 3 block of three lines.
    virtual void printTensor(std::FILE* file, int p, double zeroLimit,
                             bool allowEmpty) const = 0; // slot 13
    virtual void printTensor(char* buffer, int p, double zeroLimit,
                             bool allowEmpty) const = 0; // slot 14
};

// Vector of doubles.
class Dvctr : public Xvctr {
public:
    double* data = nullptr;

    Dvctr() = default;
    // n elements, all 0.0.
    explicit Dvctr(std::int32_t n);
    // A copy constructor makes a deep copy (a fresh vector never shares by construction);
    // assignment stays shallow.
    Dvctr(const Dvctr& other);
    // Shallow: takes over flags, shift, size, capacity and the element pointer of other, and
    // does nothing else. The buffer this object held before is NOT freed (another vector may
    // still share it); release() it first when nothing else holds it.
    Dvctr& operator=(const Dvctr& other);
    ~Dvctr() override; // unshift, then free unless borrowed

    double& operator[](std::ptrdiff_t i) { return data[i]; }
    const double& operator[](std::ptrdiff_t i) const { return data[i]; }

    // Array / Array1d / Xvctr slots.
    int isReal() const override;
    std::int32_t printLength(int p) const override;
    void printAll(char* buffer, int p, double zeroLimit) const override;
    int isInteger() const override;
    void copyElement(std::int32_t i, const Array& other, std::int32_t j) override;
    void* shift(std::int32_t k) override;
    bool scan(char** cursor) override;
    double norm() const override;
    std::int32_t printLength3(int p) const override;
    std::int32_t printLength9(int p) const override;
    void printPoint(char* buffer, int p, double zeroLimit, bool allowShort) const override;
    void printTensor(std::FILE* file, int p, double zeroLimit, bool allowEmpty) const override;
    void printTensor(char* buffer, int p, double zeroLimit, bool allowEmpty) const override;

    // Frees the buffer unless borrowed (as it stands: not for shifted vectors) and empties.
    void release();
    // Forgets the buffer without freeing it (for the partner of a shallow copy).
    void detach();
    // Capacity becomes exactly n when n is larger; the first size elements are kept.
    void reserve(std::int32_t n);
    // Fatal "exta" on a borrowed vector. Old values survive only within the capacity.
    void resize(std::int32_t n);
    // resize(n), then n values from a plain array.
    void assign(const double* values, std::int32_t n);
    // Deep copy of v.
    void copyFrom(const Dvctr& v);
    // Borrowed views of n elements of somebody else's buffer (fatal when data is held).
    void attach(double* buffer, std::int32_t n);
    void attachView(double* buffer, std::int32_t n);
    // Undoes every shift().
    void unshift();
    // Sets every element to 0.0.
    void zero();

    // Element-wise, sizes must match ("size mismatch").
    void add(const Dvctr& v);
    void subtract(const Dvctr& v);
    void addScaled(const Dvctr& v, double a); // this += a * v
    void scale(double a);
    void divide(double a); // no test for a == 0
    double sum() const;
    double dot(const Dvctr& v) const; // over this vector's size, no size check
    // this = u x v; both must have size 3.
    void cross(const Dvctr& u, const Dvctr& v);
    // this = mean of the rows of m (length = m.cols).
    void meanOfRows(const Dmtrx& m);

    // this = (m00, m11, m22, m12, m02, m01).
    void toTensor6(const Dmtrx& m);
    // this = r * S * r^T with S the tensor this holds (size 6).
    void rotateTensor(const Dmtrx& r);
    // Rotation of the tensor about z by angle (radians) (size 6).
    void rotateTensorZ(double angle);
    // Divides by norm() (no test for 0).
    void normalize();
};

// Vector of 32-bit signed integers (the engine's long).
class Lvctr : public Xvctr {
public:
    std::int32_t* data = nullptr;

    Lvctr() = default;
    // n elements, all 0.
    explicit Lvctr(std::int32_t n);
    // Deep copy; assignment stays shallow (see Dvctr).
    Lvctr(const Lvctr& other);
    Lvctr& operator=(const Lvctr& other);
    ~Lvctr() override;

    std::int32_t& operator[](std::ptrdiff_t i) { return data[i]; }
    const std::int32_t& operator[](std::ptrdiff_t i) const { return data[i]; }

    int isReal() const override;
    std::int32_t printLength(int p) const override;
    void printAll(char* buffer, int p, double zeroLimit) const override;
    int isInteger() const override;
    void copyElement(std::int32_t i, const Array& other, std::int32_t j) override;
    void* shift(std::int32_t k) override;
    bool scan(char** cursor) override;
    double norm() const override;
    std::int32_t printLength3(int p) const override;
    std::int32_t printLength9(int p) const override;
    void printPoint(char* buffer, int p, double zeroLimit, bool allowShort) const override;
    void printTensor(std::FILE* file, int p, double zeroLimit, bool allowEmpty) const override;
    void printTensor(char* buffer, int p, double zeroLimit, bool allowEmpty) const override;

    void release();
    void detach();
    void reserve(std::int32_t n);
    // No borrowed test here (unlike Dvctr::resize). Within the capacity only the count
    // changes, which the engine's loops do once per node.
    void resize(std::int32_t count) {
        if (count <= capacity) {
            n = count;
            return;
        }
        grow(count);
    }
    // Grows to n keeping the existing elements; new elements are not initialised.
    void extend(std::int32_t n);
    void assign(const std::int32_t* values, std::int32_t n);
    void copyFrom(const Lvctr& v);
    void attach(std::int32_t* buffer, std::int32_t n);
    void attachView(std::int32_t* buffer, std::int32_t n);
    void unshift();
    void zero();

    std::int32_t sum() const; // wraps modulo 2^32 like the 32-bit arithmetic it stands for
    std::int32_t countNonZero() const;
    std::int32_t countZero() const;

private:
    void grow(std::int32_t count); // resize beyond the capacity
};

// Matrix bookkeeping.
class Xmtrx : public Array {
public:
    std::int32_t rows = 0;
    std::int32_t cols = 0;
    std::int32_t capacity = 0; // elements allocated
};

// Row-major matrix of doubles: element (i, j) is data[i * cols + j].
class Dmtrx : public Xmtrx {
public:
    double* data = nullptr;

    Dmtrx() = default;
    // rows x cols, all 0.0.
    Dmtrx(std::int32_t rows, std::int32_t cols);
    // Deep copies (a matrix always owns its buffer).
    Dmtrx(const Dmtrx& other);
    Dmtrx& operator=(const Dmtrx& other);
    ~Dmtrx() override;

    int isReal() const override;

    // Contents are not kept; the buffer stays while the capacity suffices.
    void resize(std::int32_t rows, std::int32_t cols);
    double& element(std::int32_t i, std::int32_t j) { return data[i * cols + j]; }
    double element(std::int32_t i, std::int32_t j) const { return data[i * cols + j]; }
    double& operator()(std::int32_t i, std::int32_t j) { return data[i * cols + j]; }
    double operator()(std::int32_t i, std::int32_t j) const { return data[i * cols + j]; }
    void zero();
    // Copies rows x cols doubles from a plain array.
    void assign(const double* values);
    // Copies this matrix's rows x cols elements from m's buffer, without resizing.
    void assignFrom(const Dmtrx& m);

    // this = a * b ("size mismatch" unless a.cols == b.rows). this must not be a or b.
    void multiply(const Dmtrx& a, const Dmtrx& b);
    // this = b * this and this = this * b (meant for square factors).
    void preMultiply(const Dmtrx& b);
    void postMultiply(const Dmtrx& b);
    // this = m transposed; m is read with this->cols (= m.rows) as its row stride, which is
    // the transpose for square matrices only.
    void transpose(const Dmtrx& m);
    // this = 3 x 3 symmetric matrix of a six-component vector.
    void fromTensor6(const Dvctr& v);
    // 2 x 2 and 3 x 3 only.
    double determinant() const;
    // Solves this * x = b by Gaussian elimination with partial pivoting, destroying this.
    // x becomes a SHALLOW copy of b, so the solution ends up in b's buffer, shared by x and
    // b: afterwards only one of the two may free it (detach() the other).
    // False when a pivot's magnitude is below 1e-15.
    bool solve(Dvctr& x, Dvctr& b);
    // Solves this * x[r] = b[r] for k right-hand sides (x[r] become deep copies of b[r]
    // first), destroying this. False when a pivot's magnitude is below 1e-15.
    bool solveMany(Dvctr* x, const Dvctr* b, std::int32_t k);
    // Three lines of a 3 x 3 matrix (or zeros for 0 x 0 with allowEmpty).
    void print3x3(std::FILE* file, int p, double zeroLimit, bool allowEmpty) const;
};

// Absolute pivot threshold of the solvers.
inline constexpr double kPivotThreshold = 1e-15;

// A 3-D triple of doubles, the base of points and directions.
struct Elem3D {
    double x = 0.0;
    double y = 0.0;
    double z = 0.0;

    Elem3D() = default;
    Elem3D(double x_, double y_, double z_) : x(x_), y(y_), z(z_) {}
    Elem3D(const Elem3D&) = default;
    Elem3D& operator=(const Elem3D&) = default;
    virtual ~Elem3D() = default;

    // this = m * q for a 3 x 3 matrix m (q may be this object).
    void setProduct(const Dmtrx& m, const Elem3D& q);
};

// A point in space.
struct PoinT : Elem3D {
    using Elem3D::Elem3D;
};

// A direction in space. The small operations are defined here, where the compiler can put
// them in place in the engine's loops.
struct VectoR : Elem3D {
    using Elem3D::Elem3D;

    // this = a - b.
    void setDifference(const Elem3D& a, const Elem3D& b) {
        x = a.x - b.x;
        y = a.y - b.y;
        z = a.z - b.z;
    }
    // this = u x v (u or v may be this object).
    void setCross(const Elem3D& u, const Elem3D& v) {
        const double cx = u.y * v.z - u.z * v.y;
        const double cy = u.z * v.x - u.x * v.z;
        const double cz = u.x * v.y - u.y * v.x;
        x = cx;
        y = cy;
        z = cz;
    }
    // this += v.
    void add(const Elem3D& v) {
        x += v.x;
        y += v.y;
        z += v.z;
    }
    double length() const { return std::sqrt(x * x + y * y + z * z); }
    // Divides by the length (no test for 0).
    void normalize() {
        const double l = length();
        x /= l;
        y /= l;
        z /= l;
    }
};

// The direction from b to a.
inline VectoR operator-(const PoinT& a, const PoinT& b) {
    VectoR d;
    d.setDifference(a, b);
    return d;
}
inline VectoR operator+(const VectoR& a, const VectoR& b) {
    VectoR s(a.x, a.y, a.z);
    s.add(b);
    return s;
}
inline VectoR cross(const Elem3D& u, const Elem3D& v) {
    VectoR c;
    c.setCross(u, v);
    return c;
}

// A fixed 3 x 3 rotation held as nine doubles in row order.
struct Rotation3 {
    double r[9] = {1.0, 0.0, 0.0, 0.0, 1.0, 0.0, 0.0, 0.0, 1.0};

    // Applies the rotation to components 0-2 of v, and with size 6 also to 3-5; any other
    // size is fatal (general message).
    void rotateComponents(Dvctr& v) const;
};

} // namespace meerspace
