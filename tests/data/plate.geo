// One rectangular slab 4 x 2, triangles.
SetFactory("Built-in");
Point(1) = {0, 0, 0, 0.8};
Point(2) = {4, 0, 0, 0.8};
Point(3) = {4, 2, 0, 0.8};
Point(4) = {0, 2, 0, 0.8};
Line(1) = {1, 2};
Line(2) = {2, 3};
Line(3) = {3, 4};
Line(4) = {4, 1};
Curve Loop(1) = {1, 2, 3, 4};
Plane Surface(1) = {1};
Physical Surface("plate", 1) = {1};
