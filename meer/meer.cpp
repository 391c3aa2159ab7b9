#include "meer/meer.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace meerspace {

namespace {

constexpr const char* kSource = "meer";

// Relative size below which the minor components of a node normal count as zero, so that
// the node's frame is taken from the global axes.
constexpr double kFrameTolerance = 0.001;

// Number of terms of the recovery polynomial of a patch type.
std::int32_t spr_terms(std::int32_t type) {
    switch (type) {
    case 1:
        return 3;
    default:
        ERROR(kSource, __LINE__, "Unknown SPR patch type");
    }
}

// Recovery basis P at local (u, v).
struct Basis3 {
    double p0, p1, p2;
};
inline Basis3 spr_basis(std::int32_t type, double u, double v) {
    if (type != 1)
        ERROR(kSource, __LINE__, "Unknown SPR patch type");
    return {1.0, u, v};
}

// First two components of F q, F a row-major 3 x 3 matrix.
inline void map2(const double* f, const Elem3D& q, double& u, double& v) {
    u = f[0] * q.x + f[1] * q.y + f[2] * q.z;
    v = f[3] * q.x + f[4] * q.y + f[5] * q.z;
}

// Gaussian elimination with partial pivoting of a 3 x 3 system, factored once and applied
// to any number of right-hand sides. Every right-hand side goes through exactly the
// operations, in the same order, of the library's general elimination (Dmtrx::solveMany),
// so the solutions are the same to the last bit; only the matrix is not eliminated again
// for each of them, and nothing is copied.
class Elimination3 {
public:
    // False when a pivot's magnitude is below the library's threshold.
    bool factor(const double (&in)[9]) {
        std::copy(in, in + 9, a_);
        for (int c = 0; c < 2; ++c) {
            int p = c; // ties keep the upper row
            for (int row = c + 1; row < 3; ++row)
                if (std::fabs(a_[3 * row + c]) > std::fabs(a_[3 * p + c]))
                    p = row;
            if (std::fabs(a_[3 * p + c]) < kPivotThreshold)
                return false;
            pivot_[c] = p;
            if (p != c)
                for (int j = c; j < 3; ++j)
                    std::swap(a_[3 * c + j], a_[3 * p + j]);
            for (int i = c + 1; i < 3; ++i) {
                const double f = a_[3 * i + c] / a_[3 * c + c];
                multiplier_[c][i] = f;
                for (int j = c; j < 3; ++j)
                    a_[3 * i + j] -= a_[3 * c + j] * f;
            }
        }
        return std::fabs(a_[8]) >= kPivotThreshold;
    }

    // Solves for n right-hand sides held by row: x[i][j] is entry i of right-hand side j.
    // The row pointers are permuted as the rows were, so on return x[i][j] is component i of
    // solution j.
    void solve_columns(double* (&x)[3], std::size_t n) const {
        for (int c = 0; c < 2; ++c) {
            if (pivot_[c] != c)
                std::swap(x[c], x[pivot_[c]]);
            const double* __restrict xc = x[c];
            for (int i = c + 1; i < 3; ++i) {
                double* __restrict xi = x[i];
                const double f = multiplier_[c][i];
                for (std::size_t j = 0; j < n; ++j)
                    xi[j] -= xc[j] * f;
            }
        }
        double* __restrict x0 = x[0];
        double* __restrict x1 = x[1];
        double* __restrict x2 = x[2];
        for (std::size_t j = 0; j < n; ++j) {
            const double s = 0.0;
            x2[j] = (x2[j] - s) / a_[8];
        }
        for (std::size_t j = 0; j < n; ++j) {
            double s = 0.0;
            s += a_[5] * x2[j];
            x1[j] = (x1[j] - s) / a_[4];
        }
        for (std::size_t j = 0; j < n; ++j) {
            double s = 0.0;
            s += a_[1] * x1[j];
            s += a_[2] * x2[j];
            x0[j] = (x0[j] - s) / a_[0];
        }
    }

private:
    double a_[9] = {};
    int pivot_[2] = {0, 1};
    double multiplier_[2][3] = {};
};

// b_t[j] += v[j] p_t for the three terms of the basis. The eight components of a shell
// region (sixteen for both quantities) get a loop of fixed length, which the compiler
// unrolls.
template <std::int32_t K>
inline void accumulate_fixed(double* __restrict b0, double* __restrict b1, double* __restrict b2,
                             const double* __restrict v, double p0, double p1, double p2) {
    for (std::int32_t j = 0; j < K; ++j) {
        b0[j] += v[j] * p0;
        b1[j] += v[j] * p1;
        b2[j] += v[j] * p2;
    }
}
inline void accumulate_terms(double* __restrict b0, double* __restrict b1, double* __restrict b2,
                             const double* __restrict v, std::int32_t k, double p0, double p1,
                             double p2) {
    if (k == 16) // both quantities of a shell region
        return accumulate_fixed<16>(b0, b1, b2, v, p0, p1, p2);
    if (k == 8)
        return accumulate_fixed<8>(b0, b1, b2, v, p0, p1, p2);
    for (std::int32_t j = 0; j < k; ++j) {
        b0[j] += v[j] * p0;
        b1[j] += v[j] * p1;
        b2[j] += v[j] * p2;
    }
}

// b_t[j] = sum over the points i of rows[i][j] p_t[i], for the three terms of the linear
// basis (1, u, v) and every column j. Each sum runs over the points in their order, as adding
// point after point into b would, so the sums are the same to the last bit (the constant
// term's products v x 1 are v itself, so they are not formed); but eight columns are summed
// at a time over all points, so that their sums stay in registers instead of going to memory
// and back at every point.
__attribute__((target_clones("avx2", "default"))) void
accumulate_linear(double* __restrict b0, double* __restrict b1, double* __restrict b2,
                  const double* const* rows, const double* u, const double* w, std::size_t points,
                  std::size_t columns) {
    using Quad = double __attribute__((vector_size(32)));
    std::size_t j = 0;
    for (; j + 8 <= columns; j += 8) {
        Quad s0a = {}, s0b = {}, s1a = {}, s1b = {}, s2a = {}, s2b = {};
        for (std::size_t i = 0; i < points; ++i) {
            Quad va, vb;
            std::memcpy(&va, rows[i] + j, sizeof va);
            std::memcpy(&vb, rows[i] + j + 4, sizeof vb);
            const Quad q1 = {u[i], u[i], u[i], u[i]};
            const Quad q2 = {w[i], w[i], w[i], w[i]};
            s0a += va;
            s0b += vb;
            s1a += va * q1;
            s1b += vb * q1;
            s2a += va * q2;
            s2b += vb * q2;
        }
        std::memcpy(b0 + j, &s0a, sizeof s0a);
        std::memcpy(b0 + j + 4, &s0b, sizeof s0b);
        std::memcpy(b1 + j, &s1a, sizeof s1a);
        std::memcpy(b1 + j + 4, &s1b, sizeof s1b);
        std::memcpy(b2 + j, &s2a, sizeof s2a);
        std::memcpy(b2 + j + 4, &s2b, sizeof s2b);
    }
    for (; j < columns; ++j) {
        double s0 = 0.0;
        double s1 = 0.0;
        double s2 = 0.0;
        for (std::size_t i = 0; i < points; ++i) {
            const double v = rows[i][j];
            s0 += v;
            s1 += v * u[i];
            s2 += v * w[i];
        }
        b0[j] = s0;
        b1[j] = s1;
        b2[j] = s2;
    }
}

// out[j] += a0[j] p0 + a1[j] p1 + a2[j] p2: the fitted polynomials evaluated at one point.
inline void evaluate_terms(double* __restrict out, const double* __restrict a0,
                           const double* __restrict a1, const double* __restrict a2, std::int32_t k,
                           double p0, double p1, double p2) {
    for (std::int32_t j = 0; j < k; ++j)
        out[j] += a0[j] * p0 + a1[j] * p1 + a2[j] * p2;
}

// out[c] = sum over the element's nodes i of shape[i] nodal[i][c]. A quadrilateral with the
// eight components of a shell region gets loops of fixed length.
template <std::int32_t NN, std::int32_t K>
inline void interpolate_fixed(const double* shape, const double* const* nodal,
                              double* __restrict out) {
    for (std::int32_t c = 0; c < K; ++c) {
        double s = 0.0;
        for (std::int32_t i = 0; i < NN; ++i)
            s += shape[i] * nodal[i][c];
        out[c] = s;
    }
}
inline void interpolate(const double* shape, const double* const* nodal, std::int32_t nn,
                        std::int32_t k, double* __restrict out) {
    if (nn == 4 && k == 8)
        return interpolate_fixed<4, 8>(shape, nodal, out);
    for (std::int32_t c = 0; c < k; ++c) {
        double s = 0.0;
        for (std::int32_t i = 0; i < nn; ++i)
            s += shape[i] * nodal[i][c];
        out[c] = s;
    }
}

void set_rows(Dmtrx& frame, const double (&rows)[9]) {
    if (frame.rows != 3 || frame.cols != 3)
        frame.resize(3, 3);
    std::copy(rows, rows + 9, frame.data);
}

// The vectors themselves belong to the engine's value store.
void free_nodal_values(Dvctr***& values, std::int32_t n_regions) {
    if (!values)
        return;
    for (std::int32_t r = 0; r < n_regions; ++r)
        delete[] values[r];
    delete[] values;
    values = nullptr;
}

void free_node_normals(NODE& node, std::int32_t n_regions) {
    if (!node.normals)
        return;
    for (std::int32_t r = 0; r < n_regions; ++r)
        delete node.normals[r];
    delete[] node.normals;
    node.normals = nullptr;
}

} // namespace

// ---------------------------------------------------------------------------------------
// Records
// ---------------------------------------------------------------------------------------

NODE::NODE() : frame(3, 3) {}

Dvctr* NodalValueStore::make(std::int32_t k) {
    if (used_ == kBlock) {
        blocks_.push_back(std::make_unique<Dvctr[]>(kBlock));
        used_ = 0;
    }
    const auto need = static_cast<std::size_t>(std::max(k, std::int32_t{0}));
    if (left_ < need) {
        const std::size_t size = std::max(need * kBlock, std::size_t{1});
        slabs_.push_back(std::make_unique_for_overwrite<double[]>(size)); // zeroed per vector
        free_ = slabs_.back().get();
        left_ = size;
    }
    Dvctr* v = &blocks_.back()[used_++];
    std::fill(free_, free_ + need, 0.0);
    v->attach(free_, k);
    free_ += need;
    left_ -= need;
    return v;
}

ELEMENT::~ELEMENT() {
    delete[] nodes;
    delete[] ip_coords;
    delete normal;
}

// ---------------------------------------------------------------------------------------
// Life cycle
// ---------------------------------------------------------------------------------------

// A shallow copy: it shares the record tables and the nodal values of its source (the result
// vectors are its own). Ownership stays with the source: the copy frees only what it
// allocates itself (its own run's nodal values, tables it re-creates), so it must not
// outlive the source.
MEER::MEER(const MEER& other)
    : ipv1_kind(other.ipv1_kind), ipv2_kind(other.ipv2_kind), nodal_values1(other.nodal_values1),
      nodal_values2(other.nodal_values2), elem_error2(other.elem_error2),
      elem_norm2(other.elem_norm2), elem_local_error(other.elem_local_error),
      elem_global_error(other.elem_global_error), elem_error_density(other.elem_error_density),
      elem_size(other.elem_size), elem_new_size(other.elem_new_size), enorm(other.enorm),
      max_size_ratio(other.max_size_ratio), min_size_ratio(other.min_size_ratio),
      patch_mode(other.patch_mode), planar(other.planar), n_regions(other.n_regions),
      regions(other.regions), n_nodes(other.n_nodes), nodes(other.nodes), n_elems(other.n_elems),
      elements(other.elements), owns_regions_(false), owns_nodes_(false), owns_elements_(false),
      owns_values1_(false), owns_values2_(false) {}

MEER::~MEER() {
    if (owns_values1_)
        free_nodal_values(nodal_values1, n_regions);
    if (owns_values2_)
        free_nodal_values(nodal_values2, n_regions);
    if (owns_nodes_) {
        for (std::int32_t n = 0; n < n_nodes; ++n) {
            // A node without its normals array means the mesh never went through patch
            // preparation; this is reported even here, which ends the process.
            if (!nodes[n].normals)
                ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
            free_node_normals(nodes[n], n_regions);
        }
    }
    if (owns_regions_)
        delete[] regions;
    if (owns_nodes_)
        delete[] nodes;
    if (owns_elements_)
        delete[] elements;
}

void MEER::set_number_of_regions(std::int32_t n) {
    if (owns_regions_)
        delete[] regions;
    regions = new REGION[n];
    n_regions = n;
    owns_regions_ = true;
    for (std::int32_t i = 0; i < n; ++i)
        regions[i].number = i;
}

void MEER::set_number_of_nodes(std::int32_t n) {
    if (owns_nodes_ && nodes) {
        for (std::int32_t i = 0; i < n_nodes; ++i)
            free_node_normals(nodes[i], n_regions);
        delete[] nodes;
    }
    nodes = new NODE[n];
    n_nodes = n;
    owns_nodes_ = true;
    for (std::int32_t i = 0; i < n; ++i)
        nodes[i].number = i;
}

void MEER::set_number_of_elements(std::int32_t n) {
    if (owns_elements_)
        delete[] elements;
    elements = new ELEMENT[n];
    n_elems = n;
    owns_elements_ = true;
    for (std::int32_t i = 0; i < n; ++i)
        elements[i].number = i;
}

// ---------------------------------------------------------------------------------------
// The run
// ---------------------------------------------------------------------------------------

double MEER::estimate(double target) {
    prepare_run_hook();
    switch (enorm) {
    case 2:
        ipv1_kind = MEER_IPV_DEFORMATIONS;
        ipv2_kind = MEER_IPV_FORCES;
        break;
    case 4:
        ipv1_kind = MEER_IPV_FORCES;
        ipv2_kind = MEER_IPV_NONE;
        break;
    default:
        ERROR(kSource, __LINE__, "Unknown enorm");
    }
    recover_nodal_values();
    compute_element_errors();
    return compute_refinement(target);
}

double* MEER::grow_values_buffer(std::vector<double>& buffer, std::int32_t count, std::int32_t k) {
    // Sized by what the count callback reports; at least k so that the first k entries can
    // always be read (entries the callback did not write read as 0).
    const std::size_t need = static_cast<std::size_t>(std::max(std::max(count, k), 0));
    if (buffer.size() < need)
        buffer.resize(need);
    if (count < k)
        std::fill(buffer.begin() + std::max(count, 0), buffer.begin() + k, 0.0);
    return buffer.data();
}

// ---------------------------------------------------------------------------------------
// Patch recovery
// ---------------------------------------------------------------------------------------

void MEER::recover_nodal_values() {
    auto allocate = [this]() {
        auto rows = new Dvctr**[static_cast<std::size_t>(n_regions)];
        for (std::int32_t r = 0; r < n_regions; ++r)
            rows[r] = new Dvctr*[static_cast<std::size_t>(n_nodes)]();
        return rows;
    };
    // A repeated run starts from fresh rows for each quantity it recovers (the old rows are
    // freed rather than leaked); the rows of a quantity not in use stay as they were.
    if (ipv1_kind != 0) {
        if (owns_values1_)
            free_nodal_values(nodal_values1, n_regions);
        nodal_values1 = allocate();
        owns_values1_ = true;
    }
    if (ipv2_kind != 0) {
        if (owns_values2_)
            free_nodal_values(nodal_values2, n_regions);
        nodal_values2 = allocate();
        owns_values2_ = true;
    }
    Lvctr counter1(n_nodes);
    Lvctr counter2(n_nodes);
    patch_.reserve(static_cast<std::size_t>(4 * kMaxSuperelems + 1));

    for (std::int32_t r = 0; r < n_regions; ++r) {
        if (regions[r].n_values <= 0)
            continue;
        prepare_region(r);
        // Both quantities are fitted on the same patch in one pass (one set of normal
        // equations); each keeps its own values, counter and buffer.
        FitQuantity quantities[2];
        std::int32_t nq = 0;
        if (ipv1_kind != 0)
            quantities[nq++] = {ipv1_kind, nodal_values1[r], &counter1, &value_buf_};
        if (ipv2_kind != 0)
            quantities[nq++] = {ipv2_kind, nodal_values2[r], &counter2, &value_buf2_};
        const bool cached = reset_value_cache(r, nq);
        for (std::int32_t n = 0; n < n_nodes; ++n) {
            assemble_patch(nodes[n], patch_);
            if (patch_.empty())
                continue;
            fit_patch_quantities(r, patch_, quantities, nq, cached);
        }
        for (std::int32_t n = 0; n < n_nodes; ++n) {
            if (nodes[n].kind == 0)
                continue;
            if (ipv1_kind != 0 && !nodal_values1[r][n])
                ERROR(kSource, __LINE__, "values at node %ld not approximated",
                      static_cast<long>(n) + 1);
            if (ipv2_kind != 0 && !nodal_values2[r][n])
                ERROR(kSource, __LINE__, "values at node %ld not approximated",
                      static_cast<long>(n) + 1);
            if (ipv1_kind != 0 && counter1[n] > 1)
                nodal_values1[r][n]->divide(static_cast<double>(counter1[n]));
            if (ipv2_kind != 0 && counter2[n] > 1)
                nodal_values2[r][n]->divide(static_cast<double>(counter2[n]));
        }
    }
}

std::int32_t MEER::number_of_terms(std::int32_t r) const {
    return spr_terms(regions[r].spr_patch_type);
}

void MEER::prepare_region(std::int32_t r) {
    if (patch_mode != 1 && patch_mode != 2)
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    const bool classify = patch_mode == 2;
    if (classify && boundary_work_.size() < static_cast<std::size_t>(n_nodes))
        boundary_work_.resize(static_cast<std::size_t>(n_nodes), 0.0);
    const std::int32_t m = number_of_terms(r);
    if (!planar)
        compute_element_normals();

    std::int32_t list[kMaxSuperelems];
    for (std::int32_t n = 0; n < n_nodes; ++n) {
        NODE& node = nodes[n];
        node.kind = 0;
        std::int32_t count = 0;
        give_superelems_to_node(node.number, count, list);
        node.elems.resize(count);
        std::int32_t in_region = 0;
        std::int32_t samples = 0;
        for (std::int32_t i = 0; i < count; ++i) {
            const ELEMENT& el = elements[list[i]];
            if (el.region != r)
                continue;
            node.elems[in_region++] = list[i];
            samples += el.n_ips1;
        }
        node.elems.resize(in_region); // within the capacity: the entries stay
        if (samples == 0)
            continue;
        node.kind = samples < m ? 2 : 1;
        if (!classify)
            continue;

        if (in_region == 1) {
            const ELEMENT& el = elements[node.elems[0]];
            if (el.n_nodes == 3)
                node.boundary = 3;
            else if (el.n_nodes == 4)
                node.boundary = 2;
            else
                ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
            continue;
        }
        // Closed-fan test: around an interior node every element shares each of its two
        // edge neighbours with one other element, so its entries sum to n_nodes + 1. Only
        // the entries of the fan's nodes are read, so only those are cleared.
        double* work = boundary_work_.data();
        for (std::int32_t i = 0; i < in_region; ++i) {
            const ELEMENT& el = elements[node.elems[i]];
            for (std::int32_t j = 0; j < el.n_nodes; ++j)
                work[el.nodes[j]] = 0.0;
        }
        for (std::int32_t i = 0; i < in_region; ++i) {
            const ELEMENT& el = elements[node.elems[i]];
            for (std::int32_t j = 0; j < el.n_nodes; ++j)
                work[el.nodes[j]] += 1.0;
        }
        work[n] = 0.0;
        std::int32_t i = 0;
        for (; i < in_region; ++i) {
            const ELEMENT& el = elements[node.elems[i]];
            std::int32_t sum = 0;
            for (std::int32_t j = 0; j < el.n_nodes; ++j)
                sum += static_cast<std::int32_t>(work[el.nodes[j]]);
            if (sum != el.n_nodes + 1)
                break;
        }
        // The class is only ever raised here, never reset: a class from an earlier region
        // stays unless this one overwrites it.
        if (i < in_region)
            node.boundary = 1;
    }

    // Node frames. A node's new normal is summed in place and goes to the heap only when the
    // node keeps it (a normal along z is dropped at once, which is every node of a floor).
    for (std::int32_t n = 0; n < n_nodes; ++n) {
        NODE& node = nodes[n];
        VectoR fresh;
        VectoR* normal = nullptr;
        if (!planar) {
            if (!node.normals)
                node.normals = new VectoR*[static_cast<std::size_t>(n_regions)]();
            if (node.elems.n > 0) {
                delete node.normals[r];
                node.normals[r] = nullptr;
                for (std::int32_t i = 0; i < node.elems.n; ++i)
                    fresh.add(*elements[node.elems[i]].normal);
                normal = &fresh;
            }
        }
        if (!normal) {
            if (!node.normals || !node.normals[r])
                continue;
            normal = node.normals[r];
        }
        auto keep = [&](const VectoR& v) {
            if (normal == &fresh)
                node.normals[r] = new VectoR(v);
        };
        VectoR& nv = *normal;
        const double a = std::fabs(nv.x);
        const double b = std::fabs(nv.y);
        const double c = std::fabs(nv.z);
        VectoR t;
        if (a >= b && a >= c) {
            if (nv.x == 0.0)
                ERROR(kSource, __LINE__, "collapsed normal");
            if (b / a < kFrameTolerance && c / a < kFrameTolerance) {
                set_rows(node.frame, {0, 1, 0, 0, 0, 1, 1, 0, 0});
                keep(nv);
                continue;
            }
            t = VectoR(0.0, nv.z, -nv.y);
        } else if (b >= c && b >= a) {
            if (nv.y == 0.0)
                ERROR(kSource, __LINE__, "collapsed normal");
            if (a / b < kFrameTolerance && c / b < kFrameTolerance) {
                set_rows(node.frame, {0, 0, 1, 1, 0, 0, 0, 1, 0});
                keep(nv);
                continue;
            }
            t = VectoR(-nv.z, 0.0, nv.x);
        } else {
            if (nv.z == 0.0)
                ERROR(kSource, __LINE__, "collapsed normal");
            if (a / c < kFrameTolerance && b / c < kFrameTolerance) {
                // Normal along z: no local frame, the patch fits in global x and y.
                if (normal != &fresh) {
                    delete node.normals[r];
                    node.normals[r] = nullptr;
                }
                set_rows(node.frame, {1, 0, 0, 0, 1, 0, 0, 0, 1});
                continue;
            }
            t = VectoR(nv.y, -nv.x, 0.0);
        }
        VectoR s;
        s.setCross(nv, t);
        t.normalize();
        s.normalize();
        nv.normalize();
        set_rows(node.frame, {t.x, t.y, t.z, s.x, s.y, s.z, nv.x, nv.y, nv.z});
        keep(nv);
    }
}

void MEER::compute_element_normals() {
    for (std::int32_t e = 0; e < n_elems; ++e) {
        ELEMENT& el = elements[e];
        if (el.normal)
            continue;
        const PoinT* p[4];
        if (el.n_nodes != 3 && el.n_nodes != 4)
            ERROR(kSource, __LINE__, "Unsupported number of nodes at element");
        for (std::int32_t i = 0; i < el.n_nodes; ++i)
            p[i] = &nodes[el.nodes[i]].coords;
        // Not normalised: a node's sum of element normals is weighted by element area.
        if (el.n_nodes == 3)
            el.normal = new VectoR(cross(*p[0] - *p[1], *p[2] - *p[1]));
        else
            el.normal = new VectoR(cross(*p[0] - *p[2], *p[3] - *p[1]));
    }
}

void MEER::assemble_patch(NODE& node, std::vector<NODE*>& patch) {
    patch.clear();
    if (node.kind != 1)
        return;
    if (patch_mode != 1 && patch_mode != 2)
        ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
    patch.push_back(&node);
    const bool aware = patch_mode == 2;
    bool interior_neighbour = false;
    bool lone_triangle = false;
    auto add = [&patch](NODE* m) {
        if (std::find(patch.begin(), patch.end(), m) == patch.end())
            patch.push_back(m);
    };
    for (std::int32_t i = 0; i < node.elems.n; ++i) {
        const ELEMENT& el = elements[node.elems[i]];
        for (std::int32_t j = 0; j < el.n_nodes; ++j) {
            NODE* m = &nodes[el.nodes[j]];
            if (m->kind == 2) {
                add(m);
            } else if (aware) {
                if (m->boundary != 0) {
                    add(m);
                    if (m->boundary == 3)
                        lone_triangle = true;
                } else if (node.boundary != 0) {
                    interior_neighbour = true;
                }
            }
        }
    }
    // A boundary node next to the interior takes its values from its interior neighbours'
    // patches instead of extrapolating its own one-sided patch.
    if (aware && node.boundary != 0 && interior_neighbour && !lone_triangle)
        patch.clear();
}

void MEER::fit_patch(std::int32_t r, const std::vector<NODE*>& patch, MEER_IPValues kind,
                     Dvctr** values, Lvctr& counter) {
    FitQuantity q{kind, values, &counter, &value_buf_};
    fit_patch_quantities(r, patch, &q, 1, false);
}

void MEER::fit_patch_quantities(std::int32_t r, const std::vector<NODE*>& patch,
                                const FitQuantity* quantities, std::int32_t nq, bool cached) {
    const std::int32_t type = regions[r].spr_patch_type;
    number_of_terms(r); // 3: the accumulation below relies on it
    const std::int32_t k = regions[r].n_values;
    NODE& centre = *patch.front();

    // Local coordinates F (p - C) are computed as F p - F C.
    const bool local = centre.normals && centre.normals[r];
    const double* f = centre.frame.data;
    double c0 = 0.0;
    double c1 = 0.0;
    if (local)
        map2(f, centre.coords, c0, c1);
    auto coordinates = [&](const Elem3D& q, double& u, double& v) {
        if (local) {
            map2(f, q, u, v);
            u -= c0;
            v -= c1;
        } else {
            u = q.x;
            v = q.y;
        }
    };

    // Normal equations A = sum P P^T, b_j = sum v_j P, built once for every quantity of the
    // patch: A depends on the points only. The only basis has three terms, so A is summed in
    // scalars (only its upper half: the lower one receives the very same products). The
    // right-hand sides of all quantities are kept by basis term: b[t][q k + j] is term t of
    // component j of quantity q, so that every loop below runs over contiguous columns.
    const std::size_t columns = static_cast<std::size_t>(k) * static_cast<std::size_t>(nq);
    if (fit_b_.size() < 3 * columns)
        fit_b_.resize(3 * columns);
    double* b[3] = {fit_b_.data(), fit_b_.data() + columns, fit_b_.data() + 2 * columns};
    double a00 = 0.0, a01 = 0.0, a02 = 0.0, a11 = 0.0, a12 = 0.0, a22 = 0.0;
    std::size_t points = 0;
    for (std::int32_t i = 0; i < centre.elems.n; ++i)
        points += static_cast<std::size_t>(std::max(elements[centre.elems[i]].n_ips1, 0));
    if (fit_p_.size() < 3 * points) {
        fit_p_.resize(3 * points);
        fit_rows_.resize(points);
    }
    double* pt[3] = {fit_p_.data(), fit_p_.data() + points, fit_p_.data() + 2 * points};
    const double** rows = fit_rows_.data();
    std::size_t point = 0;
    for (std::int32_t i = 0; i < centre.elems.n; ++i) {
        const std::int32_t e = centre.elems[i];
        const ELEMENT& el = elements[e];
        // The point's values of all quantities are one row of the columns.
        const double* held = cached ? cached_element_values(e, quantities, nq, k) : nullptr;
        for (std::int32_t ip = 0; ip < el.n_ips1; ++ip, ++point) {
            double u = 0.0;
            double w = 0.0;
            coordinates(el.ip_coords[ip], u, w);
            const Basis3 p = spr_basis(type, u, w);
            a00 += p.p0 * p.p0;
            a01 += p.p0 * p.p1;
            a02 += p.p0 * p.p2;
            a11 += p.p1 * p.p1;
            a12 += p.p1 * p.p2;
            a22 += p.p2 * p.p2;
            pt[0][point] = p.p0;
            pt[1][point] = p.p1;
            pt[2][point] = p.p2;
            rows[point] = held ? held + columns * static_cast<std::size_t>(ip) : nullptr;
        }
    }
    // The rows are read where the cache holds them, unless two elements of the patch share
    // a slot of the cache (the later one then took the earlier one's place): then, and
    // without the cache, the values are asked for again point by point.
    bool held = cached;
    for (std::int32_t i = 0; held && i < centre.elems.n; ++i)
        held = cache_holds(centre.elems[i]);
    if (held) {
        // The basis is (1, u, v) (spr_basis): its constant term is 1 at every point.
        accumulate_linear(b[0], b[1], b[2], rows, pt[1], pt[2], points, columns);
    } else {
        std::fill(fit_b_.begin(), fit_b_.begin() + static_cast<std::ptrdiff_t>(3 * columns), 0.0);
        point = 0;
        for (std::int32_t i = 0; i < centre.elems.n; ++i) {
            const std::int32_t e = centre.elems[i];
            const ELEMENT& el = elements[e];
            for (std::int32_t ip = 0; ip < el.n_ips1; ++ip) {
                const double p0 = pt[0][point];
                const double p1 = pt[1][point];
                const double p2 = pt[2][point];
                ++point;
                for (std::int32_t q = 0; q < nq; ++q) {
                    const MEER_IPValues kind = quantities[q].kind;
                    const std::int32_t count = give_IPs1_values_count(e, ip, kind);
                    double* v = values_buffer(*quantities[q].buffer, count, k);
                    give_IPs1_values(e, ip, kind, count, v);
                    const std::size_t at =
                        static_cast<std::size_t>(q) * static_cast<std::size_t>(k);
                    accumulate_terms(b[0] + at, b[1] + at, b[2] + at, v, k, p0, p1, p2);
                }
            }
        }
    }

    const double upper[9] = {a00, a01, a02, a01, a11, a12, a02, a12, a22};
    Elimination3 a;
    if (!a.factor(upper)) {
        // A singular patch is tolerated only for a lone element that the bridge itself
        // declares degenerate: the node then takes the element's mean value.
        if (centre.elems.n == 1 && !is_element_valid(centre.elems[0])) {
            for (std::int32_t q = 0; q < nq; ++q)
                take_element_mean(centre, centre.elems[0], quantities[q], k);
            return;
        }
        ERROR(kSource, __LINE__, "Problem s zaplatou elementu kolem uzlu %ld",
              static_cast<long>(centre.number));
    }
    a.solve_columns(b, columns); // b[t] now holds coefficient t of every solution

    for (NODE* node : patch) {
        double u = 0.0;
        double w = 0.0;
        if (node != &centre || !local)
            coordinates(node->coords, u, w);
        const Basis3 p = spr_basis(type, u, w);
        const std::int32_t c = node->number;
        for (std::int32_t q = 0; q < nq; ++q) {
            Dvctr** values = quantities[q].values;
            Lvctr& counter = *quantities[q].counter;
            if (!values[c]) {
                values[c] = value_store_.make(k);
                counter[c] = 0;
            }
            const std::size_t at = static_cast<std::size_t>(q) * static_cast<std::size_t>(k);
            evaluate_terms(values[c]->data, b[0] + at, b[1] + at, b[2] + at, k, p.p0, p.p1, p.p2);
            ++counter[c];
        }
    }
}

bool MEER::reset_value_cache(std::int32_t r, std::int32_t nq) {
    // At most 8 MiB of values and 4096 slots: enough for the elements a band of nodes
    // shares, small enough to stay in the caches of the processor.
    constexpr std::size_t kMaxDoubles = std::size_t{1} << 20;
    constexpr std::uint32_t kMaxSlots = 4096;
    std::int32_t ips = 0;
    for (std::int32_t e = 0; e < n_elems; ++e)
        if (elements[e].region == r)
            ips = std::max(ips, elements[e].n_ips1);
    const std::size_t stride = static_cast<std::size_t>(ips) *
                               static_cast<std::size_t>(std::max(nq, std::int32_t{0})) *
                               static_cast<std::size_t>(regions[r].n_values);
    std::uint32_t slots = 1;
    while (slots < kMaxSlots && slots < static_cast<std::uint32_t>(n_elems))
        slots *= 2;
    while (slots > 1 && stride * slots > kMaxDoubles)
        slots /= 2;
    if (stride == 0 || stride * slots > kMaxDoubles)
        return false;
    cache_stride_ = stride;
    cache_mask_ = slots - 1;
    cache_tag_.assign(slots, -1);
    if (cache_capacity_ < stride * slots) {
        // Not zeroed: a slot is written before it is read (every tag is -1 until then).
        cache_values_ = std::make_unique_for_overwrite<double[]>(stride * slots);
        cache_capacity_ = stride * slots;
    }
    return true;
}

const double* MEER::cached_element_values(std::int32_t e, const FitQuantity* quantities,
                                          std::int32_t nq, std::int32_t k) {
    const std::uint32_t slot = static_cast<std::uint32_t>(e) & cache_mask_;
    double* held = cache_values_.get() + cache_stride_ * slot;
    if (cache_tag_[slot] == e)
        return held;
    const ELEMENT& el = elements[e];
    double* out = held;
    for (std::int32_t ip = 0; ip < el.n_ips1; ++ip) {
        for (std::int32_t q = 0; q < nq; ++q) {
            const MEER_IPValues kind = quantities[q].kind;
            const std::int32_t count = give_IPs1_values_count(e, ip, kind);
            if (count == k) {
                give_IPs1_values(e, ip, kind, count, out); // straight into the cache
            } else {
                double* v = values_buffer(*quantities[q].buffer, count, k);
                give_IPs1_values(e, ip, kind, count, v);
                std::copy(v, v + k, out);
            }
            out += k;
        }
    }
    cache_tag_[slot] = e;
    return held;
}

void MEER::take_element_mean(const NODE& centre, std::int32_t e, const FitQuantity& quantity,
                             std::int32_t k) {
    const ELEMENT& el = elements[e];
    if (fit_mean_.size() < static_cast<std::size_t>(k))
        fit_mean_.resize(static_cast<std::size_t>(k));
    double* mean = fit_mean_.data();
    std::fill(mean, mean + k, 0.0);
    double* v = values_buffer(*quantity.buffer, k, k);
    for (std::int32_t ip = 0; ip < el.n_ips1; ++ip) {
        give_IPs1_values(e, ip, quantity.kind, k, v);
        for (std::int32_t j = 0; j < k; ++j)
            mean[j] += v[j];
    }
    const double n = static_cast<double>(el.n_ips1);
    for (std::int32_t j = 0; j < k; ++j)
        mean[j] /= n;
    const std::int32_t c = centre.number;
    Dvctr** values = quantity.values;
    Lvctr& counter = *quantity.counter;
    if (!values[c]) {
        values[c] = value_store_.make(k);
        counter[c] = 0;
    }
    double* out = values[c]->data;
    for (std::int32_t j = 0; j < k; ++j)
        out[j] += mean[j];
    ++counter[c];
}

// ---------------------------------------------------------------------------------------
// Element errors
// ---------------------------------------------------------------------------------------

double MEER::ip_shape_functions(std::int32_t e, std::int32_t j, double* shape) {
    return ip_shape_functions(e, j, give_element_EDI(e), shape);
}

double MEER::ip_shape_functions(std::int32_t e, std::int32_t j, MEER_ElemDisplInterpol edi,
                                double* shape) {
    double xi[3] = {0.0, 0.0, 0.0};
    double w = give_IPs2_coords_natural(e, static_cast<int>(j), xi);
    switch (edi) {
    case MEER_EDI_TRIANGLE_LINEAR:
        w *= 2.0;
        shape[0] = xi[0];
        shape[1] = xi[1];
        shape[2] = xi[2];
        shape[3] = 0.0;
        break;
    case MEER_EDI_QUAD_BILINEAR:
        w *= 0.25;
        shape[0] = 0.25 * (1 + xi[0]) * (1 + xi[1]);
        shape[1] = 0.25 * (1 - xi[0]) * (1 + xi[1]);
        shape[2] = 0.25 * (1 - xi[0]) * (1 - xi[1]);
        shape[3] = 0.25 * (1 + xi[0]) * (1 - xi[1]);
        break;
    case MEER_EDI_QUAD_BILINEAR_2:
        w *= 0.25;
        shape[0] = 0.25 * (1 - xi[0]) * (1 - xi[1]);
        shape[1] = 0.25 * (1 + xi[0]) * (1 - xi[1]);
        shape[2] = 0.25 * (1 + xi[0]) * (1 + xi[1]);
        shape[3] = 0.25 * (1 - xi[0]) * (1 + xi[1]);
        break;
    default:
        ERROR(kSource, __LINE__, "Unknown edi");
    }
    return w;
}

void MEER::compute_element_errors() {
    elem_error2.resize(n_elems);
    elem_error2.zero();
    elem_norm2.resize(n_elems);
    elem_norm2.zero();
    const bool use1 = ipv1_kind != 0;
    const bool use2 = ipv2_kind != 0;

    // Nodal value vectors of the element's nodes; a missing one means recovery did not
    // reach the node (it is reported rather than read).
    const double* nodal1[4] = {nullptr, nullptr, nullptr, nullptr};
    const double* nodal2[4] = {nullptr, nullptr, nullptr, nullptr};
    auto gather = [&](Dvctr*** rows, std::int32_t r, const ELEMENT& el, std::int32_t nn,
                      const double** out) {
        for (std::int32_t i = 0; i < nn; ++i) {
            const std::int32_t node = el.nodes[i];
            const Dvctr* v = rows ? rows[r][node] : nullptr;
            if (!v)
                ERROR(kSource, __LINE__, "values at node %ld not approximated",
                      static_cast<long>(node) + 1);
            out[i] = v->data;
        }
    };

    for (std::int32_t e = 0; e < n_elems; ++e) {
        const ELEMENT& el = elements[e];
        const std::int32_t r = el.region;
        const std::int32_t k = regions[r].n_values;
        const std::int32_t nip = give_number_of_IPs2(e);
        if (el.n_nodes == 3 && nip < 3)
            ERROR(kSource, __LINE__, "low number of int points");
        if (el.n_nodes == 4 && nip < 4)
            ERROR(kSource, __LINE__, "low number of int points");
        // Shape functions exist for at most four nodes; further nodes carry no weight.
        const std::int32_t nn = std::min(el.n_nodes, std::int32_t{4});
        if (k > 0) {
            if (use1)
                gather(nodal_values1, r, el, nn, nodal1);
            if (use2)
                gather(nodal_values2, r, el, nn, nodal2);
        }
        if (s1_.size() < static_cast<std::size_t>(k)) {
            s1_.resize(static_cast<std::size_t>(k));
            s2_.resize(static_cast<std::size_t>(k));
        }
        const double fac = give_element_thickness_reduced(e) * give_element_area(e);
        // An element's interpolation is asked once, not at each of its points.
        const MEER_ElemDisplInterpol edi = nip > 0 ? give_element_EDI(e) : MEER_EDI_TRIANGLE_LINEAR;
        double error2 = elem_error2[e];
        double norm2 = elem_norm2[e];
        for (std::int32_t j = 0; j < nip; ++j) {
            double shape[4];
            const double w = ip_shape_functions(e, j, edi, shape);
            double* s1 = s1_.data();
            double* s2 = s2_.data();
            if (use1)
                interpolate(shape, nodal1, nn, k, s1);
            if (use2)
                interpolate(shape, nodal2, nn, k, s2);
            const double* h1 = nullptr;
            const double* h2 = nullptr;
            if (use1) {
                const std::int32_t count =
                    give_IPs2_values_count(e, static_cast<int>(j), ipv1_kind);
                double* v = values_buffer(value_buf_, count, k);
                give_IPs2_values(e, static_cast<int>(j), ipv1_kind, count, v);
                h1 = v;
            }
            if (use2) {
                const std::int32_t count =
                    give_IPs2_values_count(e, static_cast<int>(j), ipv2_kind);
                double* v = values_buffer(value_buf2_, count, k);
                give_IPs2_values(e, static_cast<int>(j), ipv2_kind, count, v);
                h2 = v;
            }
            const double weight = w * fac;
            double de = 0.0;
            double dn = 0.0;
            switch (enorm) {
            case 2:
                if (!h1 || !h2) // the kinds do not match the norm: estimate() sets both
                    ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
                for (std::int32_t c = 0; c < k; ++c) {
                    de += (s1[c] - h1[c]) * (s2[c] - h2[c]);
                    dn += h1[c] * h2[c];
                }
                break;
            case 4:
                if (!h1)
                    ERROR(kSource, __LINE__, "%s", kInternalErrorMessage);
                for (std::int32_t c = 0; c < k; ++c) {
                    const double d = s1[c] - h1[c];
                    de += d * d;
                    dn += h1[c] * h1[c];
                }
                break;
            default:
                ERROR(kSource, __LINE__, "Unsupported enorm");
            }
            error2 += weight * de;
            norm2 += weight * dn;
        }
        elem_error2[e] = error2;
        elem_norm2[e] = norm2;
    }
}

// ---------------------------------------------------------------------------------------
// Refinement sizing
// ---------------------------------------------------------------------------------------

double MEER::compute_refinement(double target) {
    // Elements without a usable error take the mean of the usable errors around their
    // nodes (an element sharing several nodes counts once per shared node).
    std::int32_t list[kMaxSuperelems];
    for (std::int32_t e = 0; e < n_elems; ++e) {
        if (elem_error2[e] >= 0.0)
            continue;
        const ELEMENT& el = elements[e];
        double sum = 0.0;
        std::int32_t used = 0;
        for (std::int32_t i = 0; i < el.n_nodes; ++i) {
            std::int32_t count = 0;
            give_superelems_to_node(el.nodes[i], count, list);
            for (std::int32_t j = 0; j < count; ++j) {
                const double f = elem_error2[list[j]];
                if (f >= 0.0) {
                    sum += f;
                    ++used;
                }
            }
        }
        elem_error2[e] = used > 0 ? sum / used : 0.0;
    }

    double e2 = 0.0;
    double u2 = 0.0;
    for (std::int32_t e = 0; e < n_elems; ++e) {
        e2 += elem_error2[e];
        u2 += elem_norm2[e];
    }
    const double count = static_cast<double>(n_elems);
    const double eta = std::sqrt(e2 / (e2 + u2));
    const double mean_norm = std::sqrt((u2 + e2) / count);
    const double permitted = (1.0 * target) * std::sqrt((u2 + e2) / count);

    elem_local_error.resize(n_elems);
    elem_global_error.resize(n_elems);
    elem_size.resize(n_elems);
    elem_size.zero();
    elem_new_size.resize(n_elems);
    elem_new_size.zero();
    for (std::int32_t e = 0; e < n_elems; ++e) {
        const double err = elem_error2[e];
        elem_local_error[e] = std::sqrt(err / (elem_norm2[e] + err)) * 100;
        elem_global_error[e] = std::sqrt(err) / mean_norm * 100;
        double xi = std::sqrt(err) / permitted;
        if (1 / max_size_ratio > xi)
            xi = 1 / max_size_ratio;
        if (xi > 1 / min_size_ratio)
            xi = 1 / min_size_ratio;
        const MEER_ElemDisplInterpol edi = give_element_EDI(e);
        const double area = give_element_area(e);
        double h = 0.0;
        switch (edi) {
        case MEER_EDI_TRIANGLE_LINEAR:
            h = std::sqrt(2 * area);
            break;
        case MEER_EDI_QUAD_BILINEAR:
        case MEER_EDI_QUAD_BILINEAR_2:
            h = std::sqrt(area);
            break;
        default:
            ERROR(kSource, __LINE__, "Unknown edi");
        }
        elem_size[e] = h;
        elem_new_size[e] = h / xi;
    }

    elem_error_density.resize(n_elems);
    for (std::int32_t e = 0; e < n_elems; ++e)
        elem_error_density[e] = elem_error2[e] / give_element_area(e) / give_element_thickness(e);
    return eta;
}

} // namespace meerspace
