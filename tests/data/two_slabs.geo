// Two slabs side by side: a triangulated floor (physical surface 10) and a balcony meshed
// with quadrilaterals (physical surface 20). They share the edge x = 4.
SetFactory("Built-in");
h = 1.0;
Point(1) = {0, 0, 0, h};
Point(2) = {4, 0, 0, h};
Point(3) = {4, 3, 0, h};
Point(4) = {0, 3, 0, h};
Point(5) = {6, 0, 0, h};
Point(6) = {6, 3, 0, h};
Line(1) = {1, 2};
Line(2) = {2, 3};
Line(3) = {3, 4};
Line(4) = {4, 1};
Line(5) = {2, 5};
Line(6) = {5, 6};
Line(7) = {6, 3};
Curve Loop(1) = {1, 2, 3, 4};
Plane Surface(1) = {1};
Curve Loop(2) = {5, 6, 7, -2};
Plane Surface(2) = {2};
Transfinite Curve{5, 7} = 3;
Transfinite Curve{2, 6} = 4;
Transfinite Surface{2};
Recombine Surface{2};
Physical Surface("floor", 10) = {1};
Physical Surface("balcony", 20) = {2};
Physical Curve("support", 30) = {4};
