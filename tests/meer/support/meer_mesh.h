#pragma once
// Test support for the estimation engine: in-memory meshes and an engine subclass that
// serves them through the engine's callbacks.
//
// A TestMesh is a list of nodes and elements (3 or 4 nodes, a region and an edi each). Every
// element carries its sampling points (IPs1) and error-integration points (IPs2) as natural
// coordinates; their global positions follow from the element's own shape functions, so a
// field that is linear in space is also linear along the element. Values at a point come
// from a Field: a function of the kind (1 or 2) and the global position.
#include "meer/meer.h"

#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <cstdint>
#include <functional>
#include <map>
#include <string>
#include <vector>

namespace meertest {

using meerspace::MEER_ElemDisplInterpol;
using meerspace::MEER_IPValues;
using Vec3 = std::array<double, 3>;

// Natural coordinates of a point (area coordinates L1..L3 for triangles, xi, eta, 0 for
// quadrilaterals) and its weight on the reference element.
struct NaturalPoint {
    std::array<double, 3> xi{};
    double weight = 0.0;
};

// The usual rules: 3 points inside the triangle (weights summing to 1/2), 2 x 2 Gauss
// points on the square (weights summing to 4).
inline std::vector<NaturalPoint> triangle_rule() {
    const double a = 2.0 / 3.0;
    const double b = 1.0 / 6.0;
    return {{{a, b, b}, 1.0 / 6.0}, {{b, a, b}, 1.0 / 6.0}, {{b, b, a}, 1.0 / 6.0}};
}

inline std::vector<NaturalPoint> quad_rule() {
    const double g = 1.0 / std::sqrt(3.0);
    return {{{-g, -g, 0.0}, 1.0}, {{g, -g, 0.0}, 1.0}, {{g, g, 0.0}, 1.0}, {{-g, g, 0.0}, 1.0}};
}

// Shape functions of an edi at natural coordinates (unused entries 0).
inline std::array<double, 4> shape_functions(int edi, const std::array<double, 3>& xi) {
    switch (edi) {
    case 1:
        return {xi[0], xi[1], xi[2], 0.0};
    case 2:
        return {0.25 * (1 + xi[0]) * (1 + xi[1]), 0.25 * (1 - xi[0]) * (1 + xi[1]),
                0.25 * (1 - xi[0]) * (1 - xi[1]), 0.25 * (1 + xi[0]) * (1 - xi[1])};
    default:
        return {0.25 * (1 - xi[0]) * (1 - xi[1]), 0.25 * (1 + xi[0]) * (1 - xi[1]),
                0.25 * (1 + xi[0]) * (1 + xi[1]), 0.25 * (1 - xi[0]) * (1 + xi[1])};
    }
}

struct TestElement {
    std::vector<std::int32_t> nodes;
    std::int32_t region = 0;
    std::int32_t edi = 3; // 1 triangle, 2 or 3 quadrilateral (also any value for error tests)
    std::vector<NaturalPoint> ips1;
    std::vector<NaturalPoint> ips2;
    bool valid = true;
    double area = -1.0; // < 0: computed from the nodes
};

struct TestMesh {
    std::vector<Vec3> nodes;
    std::vector<TestElement> elements;
    std::int32_t n_regions = 1;

    std::int32_t add_node(const Vec3& p) {
        nodes.push_back(p);
        return static_cast<std::int32_t>(nodes.size() - 1);
    }
    // Adds an element with the usual rules for its shape (edi 1 for 3 nodes).
    std::int32_t add_element(std::vector<std::int32_t> n, std::int32_t region = 0,
                             std::int32_t edi = -1) {
        TestElement e;
        e.nodes = std::move(n);
        e.region = region;
        e.edi = edi >= 0 ? edi : (e.nodes.size() == 3 ? 1 : 3);
        e.ips1 = e.nodes.size() == 3 ? triangle_rule() : quad_rule();
        e.ips2 = e.ips1;
        elements.push_back(e);
        return static_cast<std::int32_t>(elements.size() - 1);
    }

    // Global position of natural point xi of element e.
    Vec3 position(std::size_t e, const std::array<double, 3>& xi) const {
        const TestElement& el = elements[e];
        const auto n = shape_functions(el.edi == 1 || el.nodes.size() == 3 ? 1 : el.edi, xi);
        Vec3 p{0.0, 0.0, 0.0};
        for (std::size_t i = 0; i < el.nodes.size() && i < 4; ++i)
            for (int c = 0; c < 3; ++c)
                p[c] += n[i] * nodes[static_cast<std::size_t>(el.nodes[i])][c];
        return p;
    }

    double area(std::size_t e) const {
        const TestElement& el = elements[e];
        if (el.area >= 0.0)
            return el.area;
        auto at = [&](std::size_t i) { return nodes[static_cast<std::size_t>(el.nodes[i])]; };
        Vec3 u;
        Vec3 v;
        if (el.nodes.size() == 3) {
            for (int c = 0; c < 3; ++c) {
                u[c] = at(1)[c] - at(0)[c];
                v[c] = at(2)[c] - at(0)[c];
            }
        } else {
            for (int c = 0; c < 3; ++c) {
                u[c] = at(2)[c] - at(0)[c];
                v[c] = at(3)[c] - at(1)[c];
            }
        }
        const double x = u[1] * v[2] - u[2] * v[1];
        const double y = u[2] * v[0] - u[0] * v[2];
        const double z = u[0] * v[1] - u[1] * v[0];
        return 0.5 * std::sqrt(x * x + y * y + z * z);
    }

    // Applies p -> R p + t to every node.
    void transform(const std::array<double, 9>& r, const Vec3& t) {
        for (Vec3& p : nodes) {
            const Vec3 q = p;
            for (int i = 0; i < 3; ++i)
                p[i] = r[3 * i] * q[0] + r[3 * i + 1] * q[1] + r[3 * i + 2] * q[2] + t[i];
        }
    }
};

// Rotation by angle about the unit axis u (Rodrigues).
inline std::array<double, 9> rotation(Vec3 u, double angle) {
    const double l = std::sqrt(u[0] * u[0] + u[1] * u[1] + u[2] * u[2]);
    for (double& c : u)
        c /= l;
    const double c = std::cos(angle);
    const double s = std::sin(angle);
    const double t = 1 - c;
    return {t * u[0] * u[0] + c,        t * u[0] * u[1] - s * u[2], t * u[0] * u[2] + s * u[1],
            t * u[0] * u[1] + s * u[2], t * u[1] * u[1] + c,        t * u[1] * u[2] - s * u[0],
            t * u[0] * u[2] - s * u[1], t * u[1] * u[2] + s * u[0], t * u[2] * u[2] + c};
}

enum class Cells { Quads, Triangles, Mixed };

// Deterministic pseudo-random numbers in [-1, 1].
class Jitter {
public:
    explicit Jitter(std::uint64_t seed) : m_state(seed) {}
    double next() {
        m_state = m_state * 6364136223846793005ULL + 1442695040888963407ULL;
        return static_cast<double>(m_state >> 11) / static_cast<double>(1ULL << 53) * 2.0 - 1.0;
    }

private:
    std::uint64_t m_state;
};

// A structured nx x ny grid over [0, lx] x [0, ly] placed into space by
// p = origin + s * ex + t * ey. Quads are cut into two triangles for Triangles, and in a
// checkerboard for Mixed. perturb moves interior nodes by up to that fraction of a cell.
// Nodes closer than 1e-12 to an existing node of the mesh are shared (this is how two
// grids meet along an edge).
inline void add_grid(TestMesh& mesh, int nx, int ny, double lx, double ly, const Vec3& origin,
                     const Vec3& ex, const Vec3& ey, Cells cells, std::int32_t region,
                     double perturb = 0.0, std::int32_t quad_edi = 3, std::uint64_t seed = 12345) {
    Jitter jitter(seed);
    std::vector<std::int32_t> id(static_cast<std::size_t>((nx + 1) * (ny + 1)));
    const double hx = lx / nx;
    const double hy = ly / ny;
    for (int j = 0; j <= ny; ++j) {
        for (int i = 0; i <= nx; ++i) {
            double s = i * hx;
            double t = j * hy;
            const double ds = jitter.next();
            const double dt = jitter.next();
            if (perturb > 0.0 && i > 0 && i < nx && j > 0 && j < ny) {
                s += perturb * hx * ds;
                t += perturb * hy * dt;
            }
            Vec3 p;
            for (int c = 0; c < 3; ++c)
                p[c] = origin[c] + s * ex[c] + t * ey[c];
            std::int32_t found = -1;
            for (std::size_t k = 0; k < mesh.nodes.size() && found < 0; ++k) {
                const Vec3& q = mesh.nodes[k];
                if (std::fabs(q[0] - p[0]) + std::fabs(q[1] - p[1]) + std::fabs(q[2] - p[2]) <
                    1e-12)
                    found = static_cast<std::int32_t>(k);
            }
            id[static_cast<std::size_t>(j * (nx + 1) + i)] = found >= 0 ? found : mesh.add_node(p);
        }
    }
    auto at = [&](int i, int j) { return id[static_cast<std::size_t>(j * (nx + 1) + i)]; };
    for (int j = 0; j < ny; ++j) {
        for (int i = 0; i < nx; ++i) {
            const std::int32_t a = at(i, j);
            const std::int32_t b = at(i + 1, j);
            const std::int32_t c = at(i + 1, j + 1);
            const std::int32_t d = at(i, j + 1);
            const bool split =
                cells == Cells::Triangles || (cells == Cells::Mixed && (i + j) % 2 == 1);
            if (split) {
                mesh.add_element({a, b, c}, region);
                mesh.add_element({a, c, d}, region);
            } else if (quad_edi == 2) {
                mesh.add_element({c, d, a, b}, region, 2); // first node at (+1, +1)
            } else {
                mesh.add_element({a, b, c, d}, region, quad_edi);
            }
        }
    }
}

// Values of kind 1 or 2 at a global position; writes 8 components.
using Field = std::function<void(int kind, const Vec3& p, double* out)>;

// The patch-test field: each of the 16 components is its own linear function, positive on
// the unit cube so that the energy-type norm of the field is positive.
inline void linear_field(int kind, const Vec3& p, double* out) {
    for (int c = 0; c < 8; ++c) {
        out[c] = 10.0 + c + 3.0 * kind + (0.3 + 0.1 * c) * p[0] - (0.2 + 0.05 * c * kind) * p[1] +
                 (0.15 + 0.07 * c - 0.02 * kind) * p[2];
    }
}

// The engine under test: serves a TestMesh through the callbacks.
class TestEngine : public meerspace::MEER {
public:
    TestEngine(TestMesh m, Field f) : mesh(std::move(m)), field(std::move(f)) {}
    ~TestEngine() override {
        // Runs that stop before the patch preparation leave nodes without their normals
        // array, and the engine's destructor would end the process; tests that want to see
        // that switch this off.
        if (arm_destruction)
            give_missing_normals();
    }

    TestMesh mesh;
    Field field;
    std::int32_t value_count = 8; // what the count callbacks report
    std::int32_t n_values = 8;    // what initialize puts into every region
    std::int32_t patch_type = 1;
    double thickness = 0.2;
    double thickness_reduced = 0.15;
    bool arm_destruction = true;
    // Global positions of the IPs1 of an element, replacing those of its natural points.
    std::map<std::int32_t, std::vector<Vec3>> ip1_positions;
    // Per-kind number of value calls (index = kind).
    mutable std::array<long, 3> ip1_value_calls{};
    mutable std::array<long, 3> ip2_value_calls{};
    mutable long superelem_calls = 0;
    mutable long validity_calls = 0;

    void initialize() override {
        enorm = 2;
        max_size_ratio = 2.0;
        min_size_ratio = 0.25;
        const auto n_nodes_ = static_cast<std::int32_t>(mesh.nodes.size());
        const auto n_elems_ = static_cast<std::int32_t>(mesh.elements.size());
        set_number_of_nodes(n_nodes_);
        set_number_of_elements(n_elems_);
        set_number_of_regions(mesh.n_regions);
        m_superelems.assign(mesh.nodes.size(), {});
        for (std::size_t n = 0; n < mesh.nodes.size(); ++n) {
            nodes[n].coords.x = mesh.nodes[n][0];
            nodes[n].coords.y = mesh.nodes[n][1];
            nodes[n].coords.z = mesh.nodes[n][2];
        }
        for (std::size_t e = 0; e < mesh.elements.size(); ++e) {
            const TestElement& te = mesh.elements[e];
            meerspace::ELEMENT& el = elements[e];
            el.region = te.region;
            el.n_nodes = static_cast<std::int32_t>(te.nodes.size());
            el.nodes = new std::int32_t[te.nodes.size()];
            for (std::size_t i = 0; i < te.nodes.size(); ++i) {
                el.nodes[i] = te.nodes[i];
                m_superelems[static_cast<std::size_t>(te.nodes[i])].push_back(
                    static_cast<std::int32_t>(e));
            }
            const auto found = ip1_positions.find(static_cast<std::int32_t>(e));
            const std::size_t m =
                found != ip1_positions.end() ? found->second.size() : te.ips1.size();
            el.n_ips1 = static_cast<std::int32_t>(m);
            el.ip_coords = new meerspace::PoinT[m];
            for (std::size_t i = 0; i < m; ++i) {
                const Vec3 p = ip1_position(e, i);
                el.ip_coords[i].x = p[0];
                el.ip_coords[i].y = p[1];
                el.ip_coords[i].z = p[2];
            }
        }
        for (std::int32_t r = 0; r < n_regions; ++r) {
            regions[r].n_values = n_values;
            regions[r].spr_patch_type = patch_type;
        }
    }

    Vec3 ip1_position(std::size_t e, std::size_t i) const {
        const auto found = ip1_positions.find(static_cast<std::int32_t>(e));
        if (found != ip1_positions.end())
            return found->second[i];
        return mesh.position(e, mesh.elements[e].ips1[i].xi);
    }

    // Gives every node that has none an all-null normals array (what a finished patch
    // preparation leaves behind), so the engine can be destroyed.
    void give_missing_normals() {
        for (std::int32_t n = 0; n < n_nodes; ++n)
            if (!nodes[n].normals)
                nodes[n].normals = new meerspace::VectoR*[static_cast<std::size_t>(n_regions)]();
    }

    // Nodal value of quantity q (1 or 2) of region r at node n; null when not approximated.
    const meerspace::Dvctr* nodal(int q, std::int32_t r, std::int32_t n) const {
        meerspace::Dvctr*** rows = q == 1 ? nodal_values1 : nodal_values2;
        return rows ? rows[r][n] : nullptr;
    }

    using MEER::assemble_patch;
    using MEER::compute_element_normals;
    using MEER::fit_patch;
    using MEER::ip_shape_functions;
    using MEER::prepare_region;

protected:
    void give_superelems_to_node(std::int32_t node, std::int32_t& count,
                                 std::int32_t* elems) const override {
        ++superelem_calls;
        const auto& list = m_superelems[static_cast<std::size_t>(node)];
        count = static_cast<std::int32_t>(list.size());
        for (std::size_t i = 0; i < list.size(); ++i)
            elems[i] = list[i];
    }
    MEER_ElemDisplInterpol give_element_EDI(std::int32_t elem) override {
        return static_cast<MEER_ElemDisplInterpol>(
            mesh.elements[static_cast<std::size_t>(elem)].edi);
    }
    double give_element_area(std::int32_t elem) const override {
        return mesh.area(static_cast<std::size_t>(elem));
    }
    double give_element_thickness(std::int32_t) const override { return thickness; }
    double give_element_thickness_reduced(std::int32_t) const override { return thickness_reduced; }
    std::int32_t give_number_of_IPs2(std::int32_t elem) const override {
        return static_cast<std::int32_t>(mesh.elements[static_cast<std::size_t>(elem)].ips2.size());
    }
    double give_IPs2_coords_natural(std::int32_t elem, int ip, double* coords) const override {
        const NaturalPoint& p =
            mesh.elements[static_cast<std::size_t>(elem)].ips2[static_cast<std::size_t>(ip)];
        coords[0] = p.xi[0];
        coords[1] = p.xi[1];
        coords[2] = p.xi[2];
        return p.weight;
    }
    void give_IPs1_values(std::int32_t elem, int ip, MEER_IPValues kind, std::int32_t count,
                          double* values) const override {
        ++ip1_value_calls[static_cast<std::size_t>(kind) % 3];
        const Vec3 p = ip1_position(static_cast<std::size_t>(elem), static_cast<std::size_t>(ip));
        fill(kind, p, count, values);
    }
    void give_IPs2_values(std::int32_t elem, int ip, MEER_IPValues kind, std::int32_t count,
                          double* values) const override {
        ++ip2_value_calls[static_cast<std::size_t>(kind) % 3];
        const auto e = static_cast<std::size_t>(elem);
        const Vec3 p = mesh.position(e, mesh.elements[e].ips2[static_cast<std::size_t>(ip)].xi);
        fill(kind, p, count, values);
    }
    std::int32_t give_IPs1_values_count(std::int32_t, int, MEER_IPValues) const override {
        return value_count;
    }
    std::int32_t give_IPs2_values_count(std::int32_t, int, MEER_IPValues) const override {
        return value_count;
    }
    bool is_element_valid(std::int32_t elem) const override {
        ++validity_calls;
        return mesh.elements[static_cast<std::size_t>(elem)].valid;
    }

private:
    void fill(MEER_IPValues kind, const Vec3& p, std::int32_t count, double* values) const {
        double v[8];
        field(static_cast<int>(kind), p, v);
        for (std::int32_t c = 0; c < count; ++c)
            values[c] = c < 8 ? v[c] : 1000.0 + c; // beyond the 8 components: never used
    }

    std::vector<std::vector<std::int32_t>> m_superelems;
};

// Runs f, which must raise the engine's fatal error; returns what went to standard error.
template <typename F> std::string fatal_output(F&& f) {
    testing::internal::CaptureStderr();
    int code = 0;
    try {
        f();
    } catch (int c) {
        code = c;
    }
    std::string text = testing::internal::GetCapturedStderr();
    EXPECT_EQ(code, 201) << "no fatal error was raised; stderr: " << text;
    return text;
}

// True when text is exactly one fatal report of the engine's source with this message.
inline ::testing::AssertionResult is_engine_error(const std::string& text,
                                                  const std::string& message) {
    const std::string head = "\n\n ERROR:  " + message + " (meer:";
    const std::string tail = ").  !!!\n\n";
    if (text.rfind(head, 0) != 0 || text.size() < head.size() + tail.size() ||
        text.compare(text.size() - tail.size(), tail.size(), tail) != 0)
        return ::testing::AssertionFailure() << "stderr was: [" << text << "]";
    for (std::size_t i = head.size(); i < text.size() - tail.size(); ++i)
        if (text[i] < '0' || text[i] > '9')
            return ::testing::AssertionFailure() << "no line number in: [" << text << "]";
    return ::testing::AssertionSuccess();
}

inline constexpr const char* kInternal =
    "za ktery muze autor teto sqele utility, bezte ho vytahat za usi";

// Mixed absolute/relative comparison, symmetric in a and b.
inline ::testing::AssertionResult near(double a, double b, double rel, double abs = 0.0) {
    const double tol = abs + rel * std::max(std::fabs(a), std::fabs(b));
    if (std::fabs(a - b) <= tol)
        return ::testing::AssertionSuccess();
    return ::testing::AssertionFailure()
           << a << " vs " << b << " (difference " << a - b << ", tolerance " << tol << ")";
}

} // namespace meertest
