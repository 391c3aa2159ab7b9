#include "tests/support/near.h"
#pragma once
// A test double of IAdaptivityResultsAPI (gmock) and small in-memory models it can serve, so
// that the estimator bridge and the run driver can be tested without a project on disk.
//
// MockResultsAPI answers nothing by itself; ServeModel installs default answers (ON_CALL)
// for a FakeModel: mesh, element properties and integration points. Tests then add
// EXPECT_CALLs for what they check, or override single answers.
#include "adaptivity/IAdaptivityResultsAPI.h"
#include "meer/meer.h"

#include <gmock/gmock.h>

#include <array>
#include <cmath>
#include <functional>
#include <vector>

class MockResultsAPI : public IAdaptivityResultsAPI {
public:
    MOCK_METHOD(int, Init, (const CString&, unsigned char, Outcome64Enums::eSolverType),
                (override));
    MOCK_METHOD(bool, SerializeSolverLink, (bool), (override));
    MOCK_METHOD(bool, PrepareAdaptiveMeshData, (const std::vector<long>&), (override));
    MOCK_METHOD(void, ClearAdaptiveMeshData, (), (override));
    MOCK_METHOD(unsigned long, GetNoOfNodes, (), (override));
    MOCK_METHOD(unsigned long, GetNoOfSlabs, (), (override));
    MOCK_METHOD(unsigned long, GetElementsOnSlab, (unsigned long, unsigned long&), (override));
    MOCK_METHOD(void, GetNodesOnElement, (unsigned long, std::vector<unsigned long>&), (override));
    MOCK_METHOD(CKQPoint3D, NodeCoords, (unsigned long), (override));
    MOCK_METHOD(void, GetIntegrationPointResults,
                (unsigned long, unsigned long, Outcome64Enums::eIntegrationPointDataType, double*),
                (const, override));
    MOCK_METHOD(CKQPoint3D, GetIntegrationPointGlobalCoords, (unsigned long, unsigned long),
                (const, override));
    MOCK_METHOD(CKQPoint3D, GetIntegrationPointLocalCoords, (unsigned long, unsigned long),
                (const, override));
    MOCK_METHOD(bool, WriteMeshRefinement, (const std::vector<double>&), (override));
    MOCK_METHOD(bool, StoreMeshErrorAndRefinementInResults,
                (unsigned long, const std::vector<double>&, const std::vector<double>&,
                 const std::vector<double>&, const std::vector<double>&),
                (override));
    MOCK_METHOD(double, GetElementArea, (unsigned long), (override));
    MOCK_METHOD(double, GetElementThickness, (unsigned long), (override));
    MOCK_METHOD(double, GetElementThicknessReduced, (unsigned long), (override));
    MOCK_METHOD(Outcome64Enums::eElementType, GetElementType, (unsigned long), (const, override));
    MOCK_METHOD(unsigned long, GetCountOfDefNodes, (unsigned long), (override));
    MOCK_METHOD(unsigned long, GetCountOfIntegrationPoints, (unsigned long), (const, override));
    MOCK_METHOD(unsigned long, GetCountOfResults, (), (const, override));
    MOCK_METHOD(double, GetIntegrationPointWeight, (unsigned long, unsigned long),
                (const, override));
    MOCK_METHOD(unsigned long, GetCountOfLoadCases, (), (const, override));
    MOCK_METHOD(unsigned long, GetLoadCaseIndex, (unsigned long), (const, override));
    MOCK_METHOD(void, DeleteResultFiles, (), (override));
};

// ---------------------------------------------------------------------------------------------
// Models
// ---------------------------------------------------------------------------------------------

using Values8 = std::array<double, 8>;

struct FakeElement {
    unsigned long slab = 0;
    std::vector<unsigned long> nodes; // zero-based
    std::vector<CKQPoint3D> points;   // global positions of the integration points
    std::vector<Values8> forces;      // per point
    std::vector<Values8> deformations;
    double thickness = 0.2;
};

struct FakeModel {
    std::vector<CKQPoint3D> nodes;
    std::vector<FakeElement> elements; // slab by slab
    unsigned long slabs = 1;
};

// The host's natural coordinates of the integration points and their positions for given
// corners: a triangle's three at area coordinates (1/6, 1/6, 2/3), (2/3, 1/6, 1/6),
// (1/6, 2/3, 1/6); a quadrilateral's four at (-a, -a), (a, -a), (a, a), (-a, a), a = 1/sqrt 3,
// first corner at (-1, -1).
inline CKQPoint3D NaturalCoords(std::size_t corners, unsigned long point) {
    const double a = 1.0 / std::sqrt(3.0);
    static const CKQPoint3D tri[3] = {
        {1.0 / 6, 1.0 / 6, 2.0 / 3}, {2.0 / 3, 1.0 / 6, 1.0 / 6}, {1.0 / 6, 2.0 / 3, 1.0 / 6}};
    const CKQPoint3D quad[4] = {{-a, -a, 0}, {a, -a, 0}, {a, a, 0}, {-a, a, 0}};
    if (corners == 3 && point < 3)
        return tri[point];
    if (corners == 4 && point < 4)
        return quad[point];
    return {1e20, 1e20, 1e20};
}

inline std::vector<CKQPoint3D> IntegrationPoints(const std::vector<CKQPoint3D>& corners) {
    std::vector<CKQPoint3D> points;
    for (unsigned long j = 0; j < corners.size(); ++j) {
        const CKQPoint3D n = NaturalCoords(corners.size(), j);
        std::vector<double> w;
        if (corners.size() == 3) {
            w = {n.x, n.y, n.z};
        } else {
            w = {0.25 * (1 - n.x) * (1 - n.y), 0.25 * (1 + n.x) * (1 - n.y),
                 0.25 * (1 + n.x) * (1 + n.y), 0.25 * (1 - n.x) * (1 + n.y)};
        }
        CKQPoint3D p;
        for (std::size_t i = 0; i < corners.size(); ++i)
            p.Set(p.x + w[i] * corners[i].x, p.y + w[i] * corners[i].y, p.z + w[i] * corners[i].z);
        points.push_back(p);
    }
    return points;
}

inline double ElementArea(const FakeModel& model, const FakeElement& e) {
    const auto& c = model.nodes;
    CKQVector3D n;
    if (e.nodes.size() == 3)
        n = (c[e.nodes[1]] - c[e.nodes[0]]).Cross(c[e.nodes[2]] - c[e.nodes[0]]);
    else
        n = (c[e.nodes[2]] - c[e.nodes[0]]).Cross(c[e.nodes[3]] - c[e.nodes[1]]);
    return 0.5 * n.Length();
}

using PointField = std::function<Values8(const CKQPoint3D&)>;

// A linear field: value j = (j + 1) + (j + 2) x - 0.5 (j + 1) y + 0.25 z.
inline Values8 LinearField(const CKQPoint3D& p) {
    Values8 v{};
    for (int j = 0; j < 8; ++j)
        v[j] = (j + 1) + (j + 2) * p.x - 0.5 * (j + 1) * p.y + 0.25 * p.z;
    return v;
}

// A smooth field that no linear patch reproduces.
inline Values8 CurvedField(const CKQPoint3D& p) {
    Values8 v{};
    for (int j = 0; j < 8; ++j)
        v[j] = (j + 1) * (1.0 + p.x * p.x + 0.5 * p.y * p.y * p.y + 0.3 * p.x * p.y);
    return v;
}

// Sets forces = field and deformations = field / 2 at every integration point.
inline void FillValues(FakeModel& model, const PointField& field) {
    for (FakeElement& e : model.elements) {
        e.forces.clear();
        e.deformations.clear();
        for (const CKQPoint3D& p : e.points) {
            Values8 f = field(p);
            Values8 d = f;
            for (double& x : d)
                x *= 0.5;
            e.forces.push_back(f);
            e.deformations.push_back(d);
        }
    }
}

// An nx x ny grid of unit squares in the x-y plane, z = 0; quadrilaterals, or each square cut
// into two triangles. Node (i, j) has index j (nx + 1) + i. One slab.
inline FakeModel GridModel(int nx, int ny, bool triangles, const PointField& field = LinearField) {
    FakeModel model;
    for (int j = 0; j <= ny; ++j)
        for (int i = 0; i <= nx; ++i)
            model.nodes.emplace_back(i, j, 0.0);
    const auto id = [nx](int i, int j) { return static_cast<unsigned long>(j * (nx + 1) + i); };
    for (int j = 0; j < ny; ++j) {
        for (int i = 0; i < nx; ++i) {
            std::vector<std::vector<unsigned long>> cells;
            if (triangles) {
                cells.push_back({id(i, j), id(i + 1, j), id(i + 1, j + 1)});
                cells.push_back({id(i, j), id(i + 1, j + 1), id(i, j + 1)});
            } else {
                cells.push_back({id(i, j), id(i + 1, j), id(i + 1, j + 1), id(i, j + 1)});
            }
            for (auto& cell : cells) {
                FakeElement e;
                e.nodes = cell;
                std::vector<CKQPoint3D> corners;
                for (unsigned long n : cell)
                    corners.push_back(model.nodes[n]);
                e.points = IntegrationPoints(corners);
                model.elements.push_back(e);
            }
        }
    }
    FillValues(model, field);
    return model;
}

// Slab ranges of a model: first element and count of each slab, in slab order.
inline std::vector<std::pair<unsigned long, unsigned long>> SlabRanges(const FakeModel& model) {
    std::vector<std::pair<unsigned long, unsigned long>> ranges(model.slabs, {0, 0});
    std::vector<bool> seen(model.slabs, false);
    for (unsigned long e = 0; e < model.elements.size(); ++e) {
        const unsigned long s = model.elements[e].slab;
        if (!seen[s])
            ranges[s].first = e;
        seen[s] = true;
        ++ranges[s].second;
    }
    return ranges;
}

// Installs default answers for `model` on `api`. The model must outlive the mock's use.
inline void ServeModel(testing::NiceMock<MockResultsAPI>& api, const FakeModel& model) {
    using testing::_;
    using testing::Invoke;
    using testing::Return;
    const FakeModel* m = &model;
    ON_CALL(api, Init).WillByDefault(Return(0));
    ON_CALL(api, SerializeSolverLink).WillByDefault(Return(true));
    ON_CALL(api, PrepareAdaptiveMeshData).WillByDefault(Return(true));
    ON_CALL(api, GetLoadCaseIndex).WillByDefault(Invoke([](unsigned long id) { return id; }));
    ON_CALL(api, StoreMeshErrorAndRefinementInResults).WillByDefault(Return(true));
    ON_CALL(api, WriteMeshRefinement).WillByDefault(Return(true));
    ON_CALL(api, GetNoOfNodes).WillByDefault(Return(model.nodes.size()));
    ON_CALL(api, GetNoOfSlabs).WillByDefault(Return(model.slabs));
    ON_CALL(api, GetElementsOnSlab)
        .WillByDefault(Invoke([m](unsigned long slab, unsigned long& count) {
            const auto ranges = SlabRanges(*m);
            count = ranges.at(slab).second;
            return ranges.at(slab).first;
        }));
    ON_CALL(api, GetNodesOnElement)
        .WillByDefault(Invoke([m](unsigned long e, std::vector<unsigned long>& nodes) {
            nodes = m->elements.at(e).nodes;
        }));
    ON_CALL(api, NodeCoords).WillByDefault(Invoke([m](unsigned long n) { return m->nodes.at(n); }));
    ON_CALL(api, GetCountOfDefNodes).WillByDefault(Invoke([m](unsigned long e) {
        return static_cast<unsigned long>(m->elements.at(e).nodes.size());
    }));
    ON_CALL(api, GetCountOfIntegrationPoints).WillByDefault(Invoke([m](unsigned long e) {
        return static_cast<unsigned long>(m->elements.at(e).points.size());
    }));
    ON_CALL(api, GetElementType).WillByDefault(Invoke([m](unsigned long e) {
        return m->elements.at(e).points.size() == 4 ? Outcome64Enums::eET_Quadrilateral
                                                    : Outcome64Enums::eET_Triangle;
    }));
    ON_CALL(api, GetCountOfResults).WillByDefault(Return(8UL));
    ON_CALL(api, GetIntegrationPointGlobalCoords)
        .WillByDefault(Invoke(
            [m](unsigned long e, unsigned long p) { return m->elements.at(e).points.at(p); }));
    ON_CALL(api, GetIntegrationPointLocalCoords)
        .WillByDefault(Invoke([m](unsigned long e, unsigned long p) {
            return NaturalCoords(m->elements.at(e).points.size(), p);
        }));
    ON_CALL(api, GetIntegrationPointWeight)
        .WillByDefault(Invoke([m](unsigned long e, unsigned long) {
            return m->elements.at(e).points.size() == 4 ? 1.0 : 0.3333333333333333;
        }));
    ON_CALL(api, GetIntegrationPointResults)
        .WillByDefault(Invoke([m](unsigned long e, unsigned long p,
                                  Outcome64Enums::eIntegrationPointDataType type, double* out) {
            if (out == nullptr)
                AfxThrowInvalidArgException();
            const FakeElement& element = m->elements.at(e);
            const Values8& v = type == Outcome64Enums::eIPDT_Deformations
                                   ? element.deformations.at(p)
                                   : element.forces.at(p);
            std::copy(v.begin(), v.end(), out);
        }));
    ON_CALL(api, GetElementArea).WillByDefault(Invoke([m](unsigned long e) {
        return ElementArea(*m, m->elements.at(e));
    }));
    ON_CALL(api, GetElementThickness).WillByDefault(Invoke([m](unsigned long e) {
        return m->elements.at(e).thickness;
    }));
    ON_CALL(api, GetElementThicknessReduced).WillByDefault(Return(1.0));
    ON_CALL(api, GetCountOfLoadCases).WillByDefault(Return(1UL));
}

// Gives every node of an engine whose run never prepared its nodes an empty normals array, so
// that the engine can be destroyed (tests that stop after Init).
inline void LetEngineBeDestroyed(meerspace::MEER& engine) {
    for (std::int32_t n = 0; n < engine.n_nodes; ++n)
        if (engine.nodes[n].normals == nullptr)
            engine.nodes[n].normals =
                new meerspace::VectoR*[static_cast<std::size_t>(engine.n_regions)]();
}

using slabadapt::test::Near;
