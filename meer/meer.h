#pragma once
// The error-estimation engine: superconvergent patch recovery of integration-point fields on
// a mesh of flat 3- and 4-node shell elements, element error integration and the sizing of
// the next mesh.
//
// The engine knows nothing of where its mesh comes from. A derived class fills the mesh
// records (set_number_of_* and the record fields) and answers the pure virtual callbacks;
// estimate() then runs recovery, error integration and sizing in one go.
#include "meer/arrays.h"
#include "meer/obecne.h"

#include <cstdint>
#include <memory>
#include <vector>

namespace meerspace {

// Which integration-point quantity is asked for.
enum MEER_IPValues : std::int32_t {
    MEER_IPV_NONE = 0,
    MEER_IPV_DEFORMATIONS = 1, // kx, ky, kxy, gxz, gyz, ex, ey, gxy
    MEER_IPV_FORCES = 2,       // mx, my, mxy, qx, qy, nx, ny, nxy
};

// Displacement interpolation of an element (edi). The underlying type is fixed so that any
// value a callback returns can be held and reported as unknown.
enum MEER_ElemDisplInterpol : std::int32_t {
    MEER_EDI_TRIANGLE_LINEAR = 1, // area coordinates L1, L2, L3
    MEER_EDI_QUAD_BILINEAR = 2,   // first node at (+1, +1), counter-clockwise
    MEER_EDI_QUAD_BILINEAR_2 = 3, // first node at (-1, -1), counter-clockwise
};

// Largest number of elements that may meet at one node: the size of the buffers handed to
// give_superelems_to_node. The engine trusts the count it gets back.
inline constexpr std::int32_t kMaxSuperelems = 64;

// ---------------------------------------------------------------------------------------
// Records
// ---------------------------------------------------------------------------------------

class REGION {
public:
    virtual ~REGION() = default;

    std::int32_t number = -1;
    std::int32_t n_values = 0;       // components per integration point; 0 = region skipped
    std::int32_t spr_patch_type = 0; // 1 = linear basis (1, x, y)
};

class NODE {
public:
    NODE();
    NODE(const NODE&) = delete;
    NODE& operator=(const NODE&) = delete;
    virtual ~NODE() = default;

    std::int32_t number = -1;
    PoinT coords;
    // [regions] of owned normals; null entry = no local frame in that region. The array
    // itself is created by the first patch preparation and freed by ~MEER.
    VectoR** normals = nullptr;
    Dmtrx frame;               // 3 x 3, rows = local axes t, s, n
    std::int32_t boundary = 0; // 0 interior, 1 free boundary, 2 lone quad, 3 lone triangle
    std::int32_t kind = 0;     // 0 no sampling points, 1 patch centre, 2 served by neighbours
    Lvctr elems;               // elements of the current region that contain the node
};

class ELEMENT {
public:
    ELEMENT() = default;
    ELEMENT(const ELEMENT&) = delete;
    ELEMENT& operator=(const ELEMENT&) = delete;
    virtual ~ELEMENT();

    std::int32_t number = -1;
    std::int32_t region = 0;
    std::int32_t n_nodes = 0;
    std::int32_t* nodes = nullptr; // owned, [n_nodes], 0-based node indices
    std::int32_t n_ips1 = 0;
    PoinT* ip_coords = nullptr; // owned, [n_ips1], global coordinates of the sampling points
    VectoR* normal = nullptr;   // owned, not normalised: its length grows with the area
};

// Storage of the smoothed nodal value vectors. The vectors and their elements are carved
// from blocks, so that a run does not go to the heap once per node; they live as long as
// the store (that is, the engine that made them) and are never deleted one by one.
class NodalValueStore {
public:
    NodalValueStore() = default;
    NodalValueStore(const NodalValueStore&) = delete;
    NodalValueStore& operator=(const NodalValueStore&) = delete;

    // A vector of k zeros.
    Dvctr* make(std::int32_t k);

private:
    static constexpr std::int32_t kBlock = 4096;
    std::vector<std::unique_ptr<Dvctr[]>> blocks_;
    std::int32_t used_ = kBlock; // vectors taken from the last block
    std::vector<std::unique_ptr<double[]>> slabs_;
    double* free_ = nullptr;
    std::size_t left_ = 0; // doubles left in the last slab
};

// ---------------------------------------------------------------------------------------
// The engine
// ---------------------------------------------------------------------------------------

class MEER {
public:
    MEER() = default;
    // Shallow: the copy shares the mesh records and nodal values of its source (see the
    // definition for who frees them).
    MEER(const MEER& other);
    MEER& operator=(const MEER&) = delete;
    virtual ~MEER();

    // Slot 1: the derived class builds the mesh copy here.
    virtual void initialize() = 0;

protected:
    // Slots 2-13, answered by the derived class. All numbers are 0-based indices.
    virtual void give_superelems_to_node(std::int32_t node, std::int32_t& count,
                                         std::int32_t* elems) const = 0;
    virtual MEER_ElemDisplInterpol give_element_EDI(std::int32_t elem) = 0;
    virtual double give_element_area(std::int32_t elem) const = 0;
    virtual double give_element_thickness(std::int32_t elem) const = 0;
    virtual double give_element_thickness_reduced(std::int32_t elem) const = 0;
    virtual std::int32_t give_number_of_IPs2(std::int32_t elem) const = 0;
    // Writes the natural coordinates of the point, returns its weight.
    virtual double give_IPs2_coords_natural(std::int32_t elem, int ip, double* coords) const = 0;
    virtual void give_IPs1_values(std::int32_t elem, int ip, MEER_IPValues kind, std::int32_t count,
                                  double* values) const = 0;
    virtual void give_IPs2_values(std::int32_t elem, int ip, MEER_IPValues kind, std::int32_t count,
                                  double* values) const = 0;
    virtual std::int32_t give_IPs1_values_count(std::int32_t elem, int ip,
                                                MEER_IPValues kind) const = 0;
    virtual std::int32_t give_IPs2_values_count(std::int32_t elem, int ip,
                                                MEER_IPValues kind) const = 0;
    virtual bool is_element_valid(std::int32_t elem) const = 0;

public:
    // Allocate the record tables (default records numbered by their index).
    void set_number_of_regions(std::int32_t n);
    void set_number_of_nodes(std::int32_t n);
    void set_number_of_elements(std::int32_t n);

    // The whole run; returns the global relative error (a fraction). Meant to run once.
    double estimate(double target);
    void recover_nodal_values();
    void compute_element_errors();
    double compute_refinement(double target);

    const Dvctr& give_elem_error2() const { return elem_error2; }
    const Dvctr& give_elem_norm2() const { return elem_norm2; }
    const Dvctr& give_elem_local_error() const { return elem_local_error; }
    const Dvctr& give_elem_global_error() const { return elem_global_error; }
    const Dvctr& give_elem_error_density() const { return elem_error_density; }
    const Dvctr& give_elem_size() const { return elem_size; }
    const Dvctr& give_elem_new_size() const { return elem_new_size; }

    MEER_IPValues ipv1_kind = MEER_IPV_NONE;
    MEER_IPValues ipv2_kind = MEER_IPV_NONE;
    // [regions][nodes] of value vectors owned by the engine (its value store); null = not
    // approximated.
    Dvctr*** nodal_values1 = nullptr;
    Dvctr*** nodal_values2 = nullptr;
    Dvctr elem_error2;        // squared error norm per element
    Dvctr elem_norm2;         // squared norm of the computed field per element
    Dvctr elem_local_error;   // per cent
    Dvctr elem_global_error;  // per cent of the mean element norm
    Dvctr elem_error_density; // elem_error2 / area / thickness
    Dvctr elem_size;          // present characteristic size
    Dvctr elem_new_size;      // required size
    std::int32_t enorm = 0;   // 2 energy-type, 4 L2 of the forces
    double max_size_ratio = 2.0;
    double min_size_ratio = 0.25;
    std::int32_t patch_mode = 2; // 1 plain node patches, 2 boundary-aware patches
    bool planar = false;
    std::int32_t n_regions = 0;
    REGION* regions = nullptr;
    std::int32_t n_nodes = 0;
    NODE* nodes = nullptr;
    std::int32_t n_elems = 0;
    ELEMENT* elements = nullptr;

protected:
    // Steps of the recovery, exposed to derived classes for inspection.
    void prepare_region(std::int32_t r);
    void compute_element_normals();
    void assemble_patch(NODE& node, std::vector<NODE*>& patch);
    void fit_patch(std::int32_t r, const std::vector<NODE*>& patch, MEER_IPValues kind,
                   Dvctr** values, Lvctr& counter);
    std::int32_t number_of_terms(std::int32_t r) const;
    // Shape functions (4 entries, unused ones 0) at error-integration point j of e; returns
    // the point's weight scaled so that weight x area integrates over the element.
    double ip_shape_functions(std::int32_t e, std::int32_t j, double* shape);
    // The same for an element whose interpolation is already known.
    double ip_shape_functions(std::int32_t e, std::int32_t j, MEER_ElemDisplInterpol edi,
                              double* shape);

private:
    // One quantity of a patch fit: its kind, its row of nodal values, its counter and the
    // buffer its callbacks write into.
    struct FitQuantity {
        MEER_IPValues kind = MEER_IPV_NONE;
        Dvctr** values = nullptr;
        Lvctr* counter = nullptr;
        std::vector<double>* buffer = nullptr;
    };
    // fit_patch for nq quantities at once: the points, and so the normal equations, are
    // shared; the right-hand sides and results are per quantity.
    // With `cached`, each element's values come from the element value cache.
    void fit_patch_quantities(std::int32_t r, const std::vector<NODE*>& patch,
                              const FitQuantity* quantities, std::int32_t nq, bool cached);
    // The sampling-point values of element e for the quantities of a fit, laid out
    // [point][quantity][component], from the cache or asked of the derived class.
    const double* cached_element_values(std::int32_t e, const FitQuantity* quantities,
                                        std::int32_t nq, std::int32_t k);
    bool cache_holds(std::int32_t e) const {
        return cache_tag_[static_cast<std::uint32_t>(e) & cache_mask_] == e;
    }
    // Empties the cache and shapes it for the elements of region r; false when they would
    // not fit in its memory (the fit then asks for every point as it goes).
    bool reset_value_cache(std::int32_t r, std::int32_t nq);
    // The degenerate lone element's mean value, given to the centre node alone.
    void take_element_mean(const NODE& centre, std::int32_t e, const FitQuantity& quantity,
                           std::int32_t k);
    void prepare_run_hook() {}
    // A buffer for count values of which the first k are read.
    static double* values_buffer(std::vector<double>& buffer, std::int32_t count, std::int32_t k) {
        if (count >= k && static_cast<std::size_t>(count) <= buffer.size())
            return buffer.data();
        return grow_values_buffer(buffer, count, k);
    }
    static double* grow_values_buffer(std::vector<double>& buffer, std::int32_t count,
                                      std::int32_t k);

    // Ownership of the shared tables: a copy borrows what it got from its source.
    bool owns_regions_ = true;
    bool owns_nodes_ = true;
    bool owns_elements_ = true;
    bool owns_values1_ = true;
    bool owns_values2_ = true;

    NodalValueStore value_store_;

    // Reusable working storage of a run, sized by what the callbacks report.
    std::vector<double> value_buf_;
    std::vector<double> value_buf2_;
    std::vector<double> s1_;
    std::vector<double> s2_;
    std::vector<double> fit_b_;
    std::vector<double> fit_p_;           // the basis at each point of the patch, by term
    std::vector<const double*> fit_rows_; // each point's row of values in the cache
    std::vector<double> boundary_work_;
    std::vector<NODE*> patch_;
    std::vector<double> fit_mean_;
    // Values of recently fitted elements. An element serves the patches of all its nodes, so
    // its values are asked once and kept while the neighbouring patches are fitted. Direct
    // mapped by element index; one region at a time.
    std::vector<std::int32_t> cache_tag_; // element held by each slot, -1 none
    std::unique_ptr<double[]> cache_values_;
    std::size_t cache_capacity_ = 0; // doubles
    std::size_t cache_stride_ = 0;   // doubles per slot
    std::uint32_t cache_mask_ = 0;   // slots - 1
};

} // namespace meerspace
