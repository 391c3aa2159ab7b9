// Quarter of a square plate with a circular hole; written by validation/holeplate.py
a = 1.0; L = 4.0; h = 0.2;

Point(1) = {a,0,0,h}; Point(2) = {L,0,0,h}; Point(3) = {L,L,0,h};
Point(4) = {0,L,0,h}; Point(5) = {0,a,0,h}; Point(6) = {0,0,0,h};
Line(1) = {1,2}; Line(2) = {2,3}; Line(3) = {3,4}; Line(4) = {4,5};
Circle(5) = {5,6,1};
Curve Loop(1) = {1,2,3,4,5}; Plane Surface(1) = {1};
Physical Surface("plate", 1) = {1};
Physical Curve("bottom", 11) = {1};
Physical Curve("right", 12) = {2};
Physical Curve("top", 13) = {3};
Physical Curve("left", 14) = {4};
Physical Curve("hole", 15) = {5};
