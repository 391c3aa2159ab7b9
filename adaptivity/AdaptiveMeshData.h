#pragma once
// The integration-point data of the analysed model, read from the project's STRINTG files and
// summed over the requested load cases; also the storing of the adaptivity result and the
// backup and removal of the project's result file (P.GAR).
#include "host/framework/framework.h"
#include "host/outcome/outcome.h"
#include "host/shapekit/shapekit.h"

#include <array>
#include <string_view>
#include <vector>

class CKQ_ResultsAPI;

// One integration point of a shell element: its global position, the 8 internal forces
// (mx, my, mxy, qx, qy, nx, ny, nxy) and the 8 deformations (kx, ky, kxy, gxz, gyz, ex, ey,
// gxy), all per unit width of the slab.
struct CIntegrationPointData {
    static constexpr int c_nValuesPerGroup = 8;

    CIntegrationPointData() = default;

    // Reads one STRINTG record: from character 16 on, one 15-character field for each column
    // present in `flags` (a set of CAdaptiveMeshData::ePropertyFlag), in ascending bit order.
    // Columns not in `flags` and fields missing from a short line read as 0; each field is
    // parsed as _wtof does (the caller sets the "C" numeric locale).
    void ReadFromLine(const CString& line, long flags);
    // The same for a line of ASCII text, giving exactly the values the wide form gives.
    void ReadFromLine(std::string_view line, long flags);

    // Copy the 8 forces or the 8 deformations to out[0..7]; a null `out` throws
    // CInvalidArgException.
    void GetInternalForces(double* out) const;
    void GetDeformations(double* out) const;

    // Adds the 16 values of `other` value by value; the coordinates stay this point's.
    void Add(const CIntegrationPointData& other);
    CIntegrationPointData& operator+=(const CIntegrationPointData& other) {
        Add(other);
        return *this;
    }

    // The i-th value (0..7) of a group; std::out_of_range outside.
    double GetInternalForce(int i) const {
        return m_dInternalForces.at(static_cast<std::size_t>(i));
    }
    void SetInternalForce(int i, double value) {
        m_dInternalForces.at(static_cast<std::size_t>(i)) = value;
    }
    double GetDeformation(int i) const { return m_dDeformations.at(static_cast<std::size_t>(i)); }
    void SetDeformation(int i, double value) {
        m_dDeformations.at(static_cast<std::size_t>(i)) = value;
    }

    CKQPoint3D m_GlobalCoords;                                 // the origin until read
    std::array<double, c_nValuesPerGroup> m_dInternalForces{}; // mx, my, mxy, qx, qy, nx, ny, nxy
    std::array<double, c_nValuesPerGroup> m_dDeformations{};   // kx, ky, kxy, gxz, gyz, ex, ey, gxy
};

class CAdaptiveMeshData {
public:
    // One bit per STRINTG column. 0x8 belongs to no column. "qyz" is another header name of
    // the gyz column: solvers that head the transverse shear strain so are read correctly.
    enum ePropertyFlag : long {
        ePF_None = 0x0,
        ePF_igx = 0x1,
        ePF_igy = 0x2,
        ePF_igz = 0x4,
        ePF_Unused = 0x8,
        ePF_mx = 0x10,
        ePF_my = 0x20,
        ePF_mxy = 0x40,
        ePF_qx = 0x80,
        ePF_qy = 0x100,
        ePF_nx = 0x200,
        ePF_ny = 0x400,
        ePF_nxy = 0x800,
        ePF_kx = 0x1000,
        ePF_ky = 0x2000,
        ePF_kxy = 0x4000,
        ePF_gxz = 0x8000,
        ePF_gyz = 0x10000,
        ePF_qyz = 0x10000,
        ePF_ex = 0x20000,
        ePF_ey = 0x40000,
        ePF_gxy = 0x80000,
    };

    static const double c_dWeightOfIntPointOnQuad;     // 1.0
    static const double c_dWeightOfIntPointOnTriangle; // the double nearest 1/3

    using IntegrationPointTable = std::vector<std::vector<CIntegrationPointData>>;

    CAdaptiveMeshData();

    // Reads the STRINTG file of every load case (project path + ".STRINTG" + the number in
    // at least four digits) and sums them point by point. True when at least one file gave data.
    bool PrepareResultsOnIntegrationPoints(const std::vector<long>& loadCases, CString projectPath);
    void Clear();
    // The model's element count, when the caller knows it: records of higher element numbers
    // are skipped and the table grows no further than that, so that a wild element number
    // costs no memory. The entries of the model's elements are the same as without the limit.
    // 0 (the default) sets no limit.
    void LimitElementNumbers(unsigned long elementCount) { m_ElementLimit = elementCount; }

    // Element and point indices are zero-based; the table is accessed with checks, so an index
    // outside it throws std::out_of_range.
    unsigned long GetCountOfResults() const;
    long GetCountOfIntegrationPoints(unsigned long element) const;
    Outcome64Enums::eElementType GetElementType(unsigned long element) const;
    void GetIntegrationPointResults(unsigned long element, unsigned long point,
                                    Outcome64Enums::eIntegrationPointDataType type,
                                    double* out) const;
    const CKQPoint3D& GetIntegrationPointGlobalCoords(unsigned long element,
                                                      unsigned long point) const;
    const CKQPoint3D& GetIntegrationPointLocalCoords(unsigned long element,
                                                     unsigned long point) const;
    double GetIntegrationPointWeight(unsigned long element, unsigned long point) const;

    // One result table per slab under the adaptivity result type; columns 0 and 1 take the
    // first two vectors divided by 100. Always true: the store reports failures by exception.
    bool StoreMeshErrorAndRefinementInResults(CKQ_ResultsAPI& store, unsigned long loadCase,
                                              const std::vector<double>& first,
                                              const std::vector<double>& second,
                                              const std::vector<double>& third,
                                              const std::vector<double>& fourth);

    // Copy P.GAR aside as backup_<name>.GAR in the same folder, and put it back.
    static bool CreateGARFileBackup(const CString& projectPath, CString& backupPath);
    static bool RestoreGARFileFromBackup(const CString& projectPath);
    // Removes P.GAR, waiting while another process holds it.
    void DeleteResultFiles(const CString& projectPath);

private:
    friend struct CAdaptiveMeshDataTestAccess;

    bool ReadSTRINTGFile(const CString& projectPath, unsigned long loadCase,
                         IntegrationPointTable& table);
    static void GetPropertyFlags(const CString& line, long& flags);
    static ePropertyFlag GetPropertyFlagFromName(const CString& name);
    void AddToResults(const IntegrationPointTable& table);

    IntegrationPointTable m_Results; // one entry per element (element number - 1)
    unsigned long m_ElementLimit = 0;
    std::array<CKQPoint3D, 4> m_QuadNaturalCoords;
    std::array<CKQPoint3D, 3> m_TriangleNaturalCoords;
};
