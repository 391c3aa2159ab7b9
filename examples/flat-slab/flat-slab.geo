// A flat floor slab, 12 m x 8 m, carried by a wall along x = 0 and four columns of 0.4 m x
// 0.4 m, with an opening of 2 m x 2 m between them. Lengths in metres.
//
// A column holds the slab along the edges of its head (a small square of the slab's mesh), not
// at a point: under a point support the transverse shear force grows like 1/r and the shear
// energy of a Reissner-Mindlin plate has no finite value, so no mesh could bring its error down.
h = 1.0; // the first mesh's element size where the command gives none
c = 0.2; // half the side of a column

Point(1) = {0, 0, 0, h};
Point(2) = {12, 0, 0, h};
Point(3) = {12, 8, 0, h};
Point(4) = {0, 8, 0, h};
Line(1) = {1, 2};
Line(2) = {2, 3};
Line(3) = {3, 4};
Line(4) = {4, 1};

// The opening.
Point(5) = {6.5, 3, 0, h};
Point(6) = {8.5, 3, 0, h};
Point(7) = {8.5, 5, 0, h};
Point(8) = {6.5, 5, 0, h};
Line(5) = {5, 6};
Line(6) = {6, 7};
Line(7) = {7, 8};
Line(8) = {8, 5};

Curve Loop(1) = {1, 2, 3, 4};
Curve Loop(2) = {5, 6, 7, 8};

// The column heads: squares of the slab around (5, 2), (5, 6), (10, 2), (10, 6).
heads[] = {};
edges[] = {};
slab[] = {};
centres[] = {5, 2, 5, 6, 10, 2, 10, 6};
For k In {0 : 3}
  x = centres[2 * k];
  y = centres[2 * k + 1];
  p = newp;
  Point(p) = {x - c, y - c, 0, h};
  Point(p + 1) = {x + c, y - c, 0, h};
  Point(p + 2) = {x + c, y + c, 0, h};
  Point(p + 3) = {x - c, y + c, 0, h};
  l = newl;
  Line(l) = {p, p + 1};
  Line(l + 1) = {p + 1, p + 2};
  Line(l + 2) = {p + 2, p + 3};
  Line(l + 3) = {p + 3, p};
  loop = newll;
  Curve Loop(loop) = {l, l + 1, l + 2, l + 3};
  heads[] += {loop};
  edges[] += {l, l + 1, l + 2, l + 3};
EndFor

Plane Surface(1) = {1, 2, heads[]};
For k In {0 : 3}
  s = news;
  Plane Surface(s) = {heads[k]};
  slab[] += {s};
EndFor

Physical Surface("floor", 1) = {1, slab[]};
Physical Curve("wall", 2) = {4};
Physical Curve("columns", 3) = edges[];
