#include "host/shapekit/point3d.h"

#include <cmath>

double CKQVector3D::Length() const {
    return std::sqrt(LengthSquared());
}

CKQVector3D CKQVector3D::Normalized() const {
    double length = Length();
    return length == 0.0 ? *this : *this / length;
}

double CKQPoint3D::Distance(const CKQPoint3D& o) const {
    return (*this - o).Length();
}
