#include "host/shapekit/point3d.h"

#include <gtest/gtest.h>

#include <cmath>

namespace {

bool near(double a, double b, double abs = 1e-12, double rel = 1e-12) {
    return std::fabs(a - b) <= abs + rel * std::max(std::fabs(a), std::fabs(b));
}

TEST(CKQPoint3DTest, DefaultIsTheOriginAndAccessorsReadTheMembers) {
    CKQPoint3D o;
    EXPECT_EQ(o.X(), 0.0);
    EXPECT_EQ(o.Y(), 0.0);
    EXPECT_EQ(o.Z(), 0.0);
    CKQPoint3D p(1.0, -2.0, 3.5);
    EXPECT_EQ(p.x, 1.0);
    EXPECT_EQ(p.Y(), -2.0);
    EXPECT_EQ(p.z, 3.5);
    p.Set(4, 5, 6);
    EXPECT_EQ(p, CKQPoint3D(4, 5, 6));
}

TEST(CKQPoint3DTest, TheNoSuchPointMarkerCompares) {
    CKQPoint3D none(1e20, 1e20, 1e20);
    EXPECT_EQ(none, CKQPoint3D(1e20, 1e20, 1e20));
    EXPECT_NE(none, CKQPoint3D());
}

TEST(CKQPoint3DTest, DifferenceIsTheVectorFromTheSecondToTheFirst) {
    CKQPoint3D a(4.0, 6.0, 3.0);
    CKQPoint3D b(1.0, 2.0, 3.0);
    CKQVector3D v = a - b;
    EXPECT_EQ(v, CKQVector3D(3.0, 4.0, 0.0));
    EXPECT_TRUE(near(v.Length(), 5.0));
    EXPECT_TRUE(near(a.Distance(b), 5.0));
    EXPECT_EQ(b + v, a);
    EXPECT_EQ(a - v, b);
}

TEST(CKQVector3DTest, DotCrossAndNormalisation) {
    CKQVector3D ex(1, 0, 0), ey(0, 1, 0);
    EXPECT_EQ(ex.Dot(ey), 0.0);
    EXPECT_EQ(ex.Cross(ey), CKQVector3D(0, 0, 1));
    CKQVector3D v(0, 3, 4);
    CKQVector3D n = v.Normalized();
    EXPECT_TRUE(near(n.Length(), 1.0));
    EXPECT_TRUE(near(n.y, 0.6));
    EXPECT_EQ(CKQVector3D().Normalized(), CKQVector3D());
    EXPECT_EQ(2.0 * v, CKQVector3D(0, 6, 8));
    EXPECT_EQ(v / 2.0, CKQVector3D(0, 1.5, 2));
    EXPECT_EQ(v + v - v, v);
}

} // namespace
