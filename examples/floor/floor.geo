// Example project "floor": a floor slab with a stair opening, the wall below its front edge
// (with a window) and a cantilevered balcony in front of the wall. Lengths in metres.
//
//   gmsh floor.geo -2 -format msh41 -o floor.msh            first mesh (size 0.25 m)
//   gmsh floor.geo -2 -bgm floor.refine.pos -o next.msh     remesh with the size field
//
// The mesh size comes only from a background field, so that a background mesh given with
// -bgm (which replaces that field) alone governs the size of the next mesh.
Mesh.MeshSizeExtendFromBoundary = 0;
Mesh.MeshSizeFromPoints = 0;
Mesh.MeshSizeFromCurvature = 0;
Mesh.Algorithm = 6;              // Frontal-Delaunay for the triangles of the floor
Mesh.RecombinationAlgorithm = 1; // Blossom, for the quadrilaterals of the wall and balcony

h = 0.25;  // element size of the first mesh
zf = 3.0;  // level of the floor

// Floor outline; its front edge y = 0 is split where the balcony joins.
Point(1) = {0, 0, zf};
Point(2) = {3, 0, zf};
Point(3) = {7, 0, zf};
Point(4) = {10, 0, zf};
Point(5) = {10, 8, zf};
Point(6) = {0, 8, zf};
Line(1) = {1, 2};
Line(2) = {2, 3};
Line(3) = {3, 4};
Line(4) = {4, 5};
Line(5) = {5, 6};
Line(6) = {6, 1};
// Stair opening.
Point(7) = {6, 4.5, zf};
Point(8) = {8, 4.5, zf};
Point(9) = {8, 6.5, zf};
Point(10) = {6, 6.5, zf};
Line(7) = {7, 8};
Line(8) = {8, 9};
Line(9) = {9, 10};
Line(10) = {10, 7};
Curve Loop(1) = {1, 2, 3, 4, 5, 6};
Curve Loop(2) = {7, 8, 9, 10};
Plane Surface(1) = {1, 2};

// Wall in the plane y = 0 below the floor's front edge, with a window.
Point(11) = {0, 0, 0};
Point(12) = {10, 0, 0};
Line(11) = {11, 12};
Line(12) = {12, 4};
Line(13) = {1, 11};
Point(13) = {1.5, 0, 1.0};
Point(14) = {3.5, 0, 1.0};
Point(15) = {3.5, 0, 2.2};
Point(16) = {1.5, 0, 2.2};
Line(14) = {13, 14};
Line(15) = {14, 15};
Line(16) = {15, 16};
Line(17) = {16, 13};
Curve Loop(3) = {11, 12, -3, -2, -1, 13};
Curve Loop(4) = {14, 15, 16, 17};
Plane Surface(2) = {3, 4};

// Balcony in front of the wall, level with the floor.
Point(17) = {3, -1.5, zf};
Point(18) = {7, -1.5, zf};
Line(18) = {2, 17};
Line(19) = {17, 18};
Line(20) = {18, 3};
Curve Loop(5) = {18, 19, 20, -2};
Plane Surface(3) = {5};

Recombine Surface{2, 3};

Field[1] = MathEval;
Field[1].F = Sprintf("%g", h);
Background Field = 1;

Physical Surface("floor", 1) = {1};
Physical Surface("wall", 2) = {2};
Physical Surface("balcony", 3) = {3};
