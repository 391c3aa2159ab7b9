// The flat slab of flat-slab.geo split into its three bays between the wall (x = 0) and the
// column lines x = 5 and x = 10, so that loads can be placed bay by bay (pattern loading).
// Lengths in metres.
SetFactory("OpenCASCADE");
h = 1.0; // the first mesh's element size where the command gives none
c = 0.2; // half the side of a column
e = 1e-6;

Rectangle(1) = {0, 0, 0, 5, 8};
Rectangle(2) = {5, 0, 0, 5, 8};
Rectangle(3) = {10, 0, 0, 2, 8};
Rectangle(4) = {6.5, 3, 0, 2, 2}; // the opening
centres[] = {5, 2, 5, 6, 10, 2, 10, 6};
For k In {0 : 3}
  Rectangle(10 + k) = {centres[2 * k] - c, centres[2 * k + 1] - c, 0, 2 * c, 2 * c};
EndFor
BooleanFragments{ Surface{1, 2, 3}; Delete; }{ Surface{4, 10, 11, 12, 13}; Delete; }
opening[] = Surface In BoundingBox{6.5 - e, 3 - e, -1, 8.5 + e, 5 + e, 1};
Recursive Delete { Surface{opening[]}; }
MeshSize{ PointsOf{ Surface{:}; } } = h;

Physical Surface("bay 1", 1) = Surface In BoundingBox{-e, -e, -1, 5 + e, 8 + e, 1};
Physical Surface("bay 2", 2) = Surface In BoundingBox{5 - e, -e, -1, 10 + e, 8 + e, 1};
Physical Surface("bay 3", 3) = Surface In BoundingBox{10 - e, -e, -1, 12 + e, 8 + e, 1};
Physical Curve("wall", 4) = Curve In BoundingBox{-e, -e, -1, e, 8 + e, 1};
heads[] = {};
For k In {0 : 3}
  heads[] += Curve In BoundingBox{centres[2 * k] - c - e, centres[2 * k + 1] - c - e, -1,
                                  centres[2 * k] + c + e, centres[2 * k + 1] + c + e, 1};
EndFor
Physical Curve("columns", 5) = heads[];
