#include "host/shapekit/point3d.h"

CKQVector3D CKQVector3D::Normalized() const {
    double length = Length();
    return length == 0.0 ? *this : *this / length;
}
