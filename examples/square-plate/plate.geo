// Simply supported unit square plate; written by validation/squareplate.py
h = 0.0625;
Mesh.RecombineAll = 1; Mesh.Algorithm = 6; Mesh.RecombinationAlgorithm = 1;
Point(1) = {0,0,0,h}; Point(2) = {1,0,0,h}; Point(3) = {1,1,0,h}; Point(4) = {0,1,0,h};
Line(1) = {1,2}; Line(2) = {2,3}; Line(3) = {3,4}; Line(4) = {4,1};
Curve Loop(1) = {1,2,3,4}; Plane Surface(1) = {1};
Physical Surface("plate", 1) = {1};
Physical Curve("xedges", 11) = {2,4};
Physical Curve("yedges", 12) = {1,3};
Physical Point("origin", 13) = {1};
Physical Point("xcorner", 14) = {2};
