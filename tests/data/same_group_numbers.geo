// One slab (Physical Surface 1) with a supported edge numbered 1 as well (Physical Curve 1),
// both unnamed: physical groups are numbered per dimension, so the two are different groups.
SetFactory("Built-in");
h = 0.5;
Point(1) = {0, 0, 0, h};
Point(2) = {2, 0, 0, h};
Point(3) = {2, 1, 0, h};
Point(4) = {0, 1, 0, h};
Line(1) = {1, 2};
Line(2) = {2, 3};
Line(3) = {3, 4};
Line(4) = {4, 1};
Curve Loop(1) = {1, 2, 3, 4};
Plane Surface(1) = {1};
Physical Surface(1) = {1};
Physical Curve(1) = {4};
Physical Point(2) = {3};
