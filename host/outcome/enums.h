#pragma once
// The result store's enumerations. The module passes most of them through by number; the
// numbers are what matters, the enumerator names are this library's.

namespace Outcome64Enums {

// The solver whose results are opened; kept by the store and otherwise not interpreted.
enum eSolverType : int {
    eST_Default = 0,
    eST_Linear = 1,
    eST_NonLinear = 2,
};

// Which model of the project; 0 is the analysed model, the only one a project here has.
enum eModelType : int {
    eMT_Analysis = 0,
};

// Dimension of the mesh entities asked for; the mesh here has 2-D elements only.
enum eDimension : int {
    eDim_Point = 0,
    eDim_Line = 1,
    eDim_Surface = 2,
    eDim_Volume = 3,
};

// The kind of a data-set object or of a result case.
enum eDsElementType : int {
    eDs_Undefined = 0,
    eDs_Model = 1,
    eDs_Slab = 2,
    eDs_LoadCase = 3,
    eDs_Combination = 4,
};

enum eCoordSystem : int {
    eCS_Global = 0,
    eCS_Local = 1,
};

// Where the values of a result table sit: 0 one value per element.
enum eResLocation : int {
    eRL_Element = 0,
    eRL_Node = 1,
    eRL_IntegrationPoint = 2,
};

enum eEnvelopeExtreme : int {
    eEE_None = 0,
    eEE_Minimum = 1,
    eEE_Maximum = 2,
};

// The shell element of a mesh element: 0 triangle (3 integration points), 1 quadrilateral (4).
enum eElementType : int {
    eET_Triangle = 0,
    eET_Quadrilateral = 1,
};

// The values asked for at an integration point: 0 the 8 internal forces (mx, my, mxy, qx, qy,
// nx, ny, nxy), 1 the 8 deformations (kx, ky, kxy, gxz, gyz, ex, ey, gxy).
enum eIntegrationPointDataType : int {
    eIPDT_InternalForces = 0,
    eIPDT_Deformations = 1,
};

} // namespace Outcome64Enums
