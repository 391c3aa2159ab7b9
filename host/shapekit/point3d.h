#pragma once
// The geometry library's 3-D point and the vector between two points.
#include <cmath>

// A direction or difference in space.
class CKQVector3D {
public:
    constexpr CKQVector3D() = default;
    constexpr CKQVector3D(double vx, double vy, double vz) : x(vx), y(vy), z(vz) {}

    constexpr double X() const { return x; }
    constexpr double Y() const { return y; }
    constexpr double Z() const { return z; }
    double Length() const { return std::sqrt(LengthSquared()); }
    constexpr double LengthSquared() const { return x * x + y * y + z * z; }
    constexpr double Dot(const CKQVector3D& o) const { return x * o.x + y * o.y + z * o.z; }
    constexpr CKQVector3D Cross(const CKQVector3D& o) const {
        return {y * o.z - z * o.y, z * o.x - x * o.z, x * o.y - y * o.x};
    }
    // The vector divided by its length; the zero vector stays as it is.
    CKQVector3D Normalized() const;

    friend constexpr CKQVector3D operator+(const CKQVector3D& a, const CKQVector3D& b) {
        return {a.x + b.x, a.y + b.y, a.z + b.z};
    }
    friend constexpr CKQVector3D operator-(const CKQVector3D& a, const CKQVector3D& b) {
        return {a.x - b.x, a.y - b.y, a.z - b.z};
    }
    friend constexpr CKQVector3D operator*(const CKQVector3D& a, double f) {
        return {a.x * f, a.y * f, a.z * f};
    }
    friend constexpr CKQVector3D operator*(double f, const CKQVector3D& a) { return a * f; }
    friend constexpr CKQVector3D operator/(const CKQVector3D& a, double f) {
        return {a.x / f, a.y / f, a.z / f};
    }
    friend constexpr bool operator==(const CKQVector3D&, const CKQVector3D&) = default;

    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
};

// A point; the default is the origin. The difference of two points is the vector from the
// second to the first.
class CKQPoint3D {
public:
    constexpr CKQPoint3D() = default;
    constexpr CKQPoint3D(double px, double py, double pz) : x(px), y(py), z(pz) {}

    constexpr double X() const { return x; }
    constexpr double Y() const { return y; }
    constexpr double Z() const { return z; }
    constexpr void Set(double px, double py, double pz) {
        x = px;
        y = py;
        z = pz;
    }
    double Distance(const CKQPoint3D& o) const { return (*this - o).Length(); }

    friend constexpr CKQVector3D operator-(const CKQPoint3D& a, const CKQPoint3D& b) {
        return {a.x - b.x, a.y - b.y, a.z - b.z};
    }
    friend constexpr CKQPoint3D operator+(const CKQPoint3D& p, const CKQVector3D& v) {
        return {p.x + v.x, p.y + v.y, p.z + v.z};
    }
    friend constexpr CKQPoint3D operator-(const CKQPoint3D& p, const CKQVector3D& v) {
        return {p.x - v.x, p.y - v.y, p.z - v.z};
    }
    friend constexpr bool operator==(const CKQPoint3D&, const CKQPoint3D&) = default;

    double x = 0.0;
    double y = 0.0;
    double z = 0.0;
};
